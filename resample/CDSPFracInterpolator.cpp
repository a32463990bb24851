#include "resample/CDSPFracInterpolator.h"

#include <algorithm>
#include <cmath>

#include "resample/KaiserWindow.h"
#include "resample/kernels/ConverterKernels.h"

namespace vellumic::resample {
namespace {

// When a call leaves more outputs than this behind, the counters start over: keeps the product of
// count and rate exact.
constexpr int outputsBeforeReset = 1000;
// dB, what 24 taps reach from half the band upward.
constexpr double interpolatorAttenuation = 180.15;

// Rows of c0, c1, c2, each `taps` long: tap value = c0 + r * (c1 + r * c2), r from 0 to 1 across
// the row. The parabolas meet the window's sinc at both ends and in the middle.
template <int taps, int phases>
std::vector<double> buildTable() {
  const KaiserWindow window(interpolatorAttenuation);
  constexpr int half = taps / 2;
  const auto tapAt = [&](int tap, double position) {
    const double time = tap - (half - 1) - position;
    return sinc(time) * window(time / half);
  };
  std::vector<double> table;
  table.reserve(static_cast<std::size_t>(phases * 3 * taps));
  for (int row = 0; row < phases; ++row) {
    for (int power = 0; power < 3; ++power) {
      for (int tap = 0; tap < taps; ++tap) {
        const double start = tapAt(tap, static_cast<double>(row) / phases);
        const double middle = tapAt(tap, (row + 0.5) / phases);
        const double end = tapAt(tap, (row + 1.0) / phases);
        const double coefficients[] = {start, 4.0 * middle - 3.0 * start - end,
                                       2.0 * (start + end) - 4.0 * middle};
        table.push_back(coefficients[power]);
      }
    }
  }
  return table;
}

template <int taps, int phases>
const double* sharedTable() {
  static const std::vector<double> table = buildTable<taps, phases>();
  return table.data();
}

}  // namespace

template <int taps, int phases>
CDSPFracInterpolator<taps, phases>::CDSPFracInterpolator(double source, double destination,
                                                         double latencyFraction, int maxInput)
    : source_(source),
      destination_(destination),
      latencyFraction_(latencyFraction),
      table_(sharedTable<taps, phases>()) {
  result_.resize(static_cast<std::size_t>(maxOutputLength(maxInput)));
  clear();
}

template <int taps, int phases>
int CDSPFracInterpolator<taps, phases>::inputBeforeOutput(int nextInput) const noexcept {
  return reach + static_cast<int>(latencyFraction_ + nextInput * source_ / destination_);
}

template <int taps, int phases>
int CDSPFracInterpolator<taps, phases>::maxOutputLength(int maxInput) const noexcept {
  return static_cast<int>(std::ceil(maxInput * destination_ / source_)) + 1;
}

template <int taps, int phases>
void CDSPFracInterpolator<taps, phases>::clear() noexcept {
  history_.fill(0.0);
  fill_ = 0;
  writePosition_ = 0;
  readPosition_ = ringLength - (reach - 1);
  place_ = {.position = latencyFraction_, .base = latencyFraction_};
}

template <int taps, int phases>
int CDSPFracInterpolator<taps, phases>::process(
    const double* input, int count, const double*& output) noexcept VELLUMIC_NONBLOCKING {
  double* result = result_.data();
  output = result;
  for (const double* end = input + count; input != end; ++input) {
    const auto place = static_cast<std::size_t>(writePosition_);
    history_[place] = history_[place + ringLength] = *input;
    writePosition_ = (writePosition_ + 1) % ringLength;
    ++fill_;
    while (fill_ > reach) {
      *result++ = interpolate(place_.position, history_.data() + readPosition_);
      const int steps = step(place_);
      fill_ -= steps;
      readPosition_ = (readPosition_ + steps) % ringLength;
    }
  }
  if (place_.outputCount > outputsBeforeReset)
    place_ = {.position = place_.position, .base = place_.position};
  return static_cast<int>(result - output);
}

// position: from the sample at reach - 1 to the next one, 0 up to 1.
template <int taps, int phases>
double CDSPFracInterpolator<taps, phases>::interpolate(double position,
                                                       const double* samples) const noexcept {
  const double x = position * phases;
  const int row = static_cast<int>(x);
  return converterKernels().interpolate(table_ + row * 3 * taps, x - row, samples, taps);
}

// To the next output; returns the whole samples between the two.
template <int taps, int phases>
int CDSPFracInterpolator<taps, phases>::step(Place& place) const noexcept {
  ++place.outputCount;
  place.position = place.outputCount * source_ / destination_ + place.base - place.consumed;
  const int steps = static_cast<int>(place.position);
  place.position -= steps;
  place.consumed += steps;
  return steps;
}

template <int taps, int phases>
void CDSPFracInterpolator<taps, phases>::pace(std::span<int> counts) const noexcept
    VELLUMIC_NONBLOCKING {
  Place place = place_;
  int ahead = fill_;
  for (int& count : counts) {
    ahead += count;
    for (count = 0; ahead > reach; ++count) ahead -= step(place);
  }
}

template <int taps, int phases>
void CDSPFracInterpolator<taps, phases>::follow(const CDSPFracInterpolator& leader) noexcept
    VELLUMIC_NONBLOCKING {
  history_ = leader.history_;
  fill_ = leader.fill_;
  writePosition_ = leader.writePosition_;
  readPosition_ = leader.readPosition_;
  place_ = leader.place_;
}

template class CDSPFracInterpolator<24, 673>;

}  // namespace vellumic::resample
