#include "spectra/TransformTables.h"

#include <cmath>
#include <map>
#include <mutex>
#include <numbers>
#include <utility>

namespace vellumic {
namespace {

// exp(-2 pi i part / whole)
struct Turn {
  Turn(long long part, long long whole)
      : angle(2.0 * std::numbers::pi * static_cast<double>(part % whole) /
              static_cast<double>(whole)) {}
  template <class Real>
  Real re() const {
    return static_cast<Real>(std::cos(angle));
  }
  template <class Real>
  Real im() const {
    return static_cast<Real>(-std::sin(angle));
  }
  double angle;
};

// Radices whose product is `length`, the largest last: the last pass needs no twiddles. Powers of
// two take 4 and 8, and 2 only where nothing else is left.
std::vector<int> radicesOf(int length) {
  std::vector<int> radices;
  const auto take = [&](int radix) {
    radices.push_back(radix);
    length /= radix;
  };
  while (length % 3 == 0) take(3);
  while (length % 5 == 0) take(5);
  while (length % 16 == 0 || length == 4) take(4);
  while (length > 1) take(length % 8 == 0 ? 8 : 2);
  return radices;
}

// Of step 1 in kernels/TransformKernels.h: for each register of columns, and for the columns left
// over one by one, the factors of lanes 1 and up, a register of cosines and one of negative sines.
template <class Real>
AlignedVector<Real> laneTwiddles(int points, int lanes) {
  AlignedVector<Real> table;
  const int length = points / lanes;
  for (int first = 0, width = lanes; first < length; first += width) {
    if (length - first < lanes) width = 1;
    for (int lane = 1; lane < lanes; ++lane)
      for (const bool sine : {false, true})
        for (int n = first; n < first + width; ++n) {
          const Turn turn(static_cast<long long>(n) * lane, points);
          table.push_back(sine ? turn.im<Real>() : turn.re<Real>());
        }
  }
  return table;
}

}  // namespace

template <class Real>
bool ComplexTables<Real>::possible(int points, int lanes) noexcept {
  if (points < 2 * lanes || points % lanes != 0) return false;
  for (const int factor : {2, 3, 5})
    while (points % factor == 0) points /= factor;
  return points == 1;
}

template <class Real>
ComplexTables<Real>::ComplexTables(int points, int lanes)
    : laneTwiddles_(laneTwiddles<Real>(points, lanes)) {
  plan_.points = points;
  plan_.laneTwiddles = laneTwiddles_.data();
  int length = points / lanes, columns = 1;
  std::vector<std::size_t> starts;
  for (const int radix : radicesOf(length)) {
    const int rows = length / radix;
    starts.push_back(twiddles_.size());
    plan_.passes[plan_.passCount++] = {radix, rows, columns, nullptr};
    for (int row = 0; row < rows; ++row)
      for (int k = 1; k < radix; ++k) {
        const Turn turn(static_cast<long long>(row) * k, length);
        twiddles_.push_back(turn.re<Real>());
        twiddles_.push_back(turn.im<Real>());
      }
    length = rows;
    columns *= radix;
  }
  for (std::size_t n = 0; n < starts.size(); ++n)
    plan_.passes[n].twiddles = twiddles_.data() + starts[n];
}

template class ComplexTables<float>;
template class ComplexTables<double>;

bool RealTables::possible(int size, int lanes) noexcept {
  return size % 2 == 0 && ComplexTables<float>::possible(size / 2, lanes);
}

RealTables::RealTables(int size, int lanes) : half_(size / 2, lanes) {
  for (const bool sine : {false, true})
    for (int k = 0; k <= size / 4; ++k) {
      const Turn turn(k, size);
      twiddles_.push_back(sine ? turn.im<float>() : turn.re<float>());
    }
  plan_ = {half_.plan(), twiddles_.data()};
}

std::shared_ptr<const RealTables> RealTables::shared(int size, int lanes) {
  static std::mutex mutex;
  static std::map<std::pair<int, int>, std::weak_ptr<const RealTables>> pool;
  const std::scoped_lock lock(mutex);
  auto& kept = pool[{size, lanes}];
  auto tables = kept.lock();
  if (!tables) {
    tables = std::make_shared<const RealTables>(size, lanes);
    std::erase_if(pool, [](const auto& entry) { return entry.second.expired(); });
    pool[{size, lanes}] = tables;
  }
  return tables;
}

}  // namespace vellumic
