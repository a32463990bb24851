// Converts between two rates of any ratio by interpolating a signal that fills no more than half
// of its band: a windowed sinc of `taps` taps, tabulated in `phases` rows as second-order
// polynomials of the position inside the row.
//
// The position of an output follows from its count, so that no error adds up; after a call, when
// they are past 1000 outputs, the counters start over from the fraction reached. Streams that are
// cut into calls differently therefore agree but for rounding.
#pragma once

#include <array>
#include <vector>

#include "platform/Realtime.h"
#include "resample/CDSPProcessor.h"

namespace vellumic::resample {

template <int taps, int phases>
class CDSPFracInterpolator final : public CDSPProcessor {
 public:
  static constexpr int ringLength = 256;  // samples of history

  static constexpr int reach = taps / 2;  // inputs to either side that an output depends on

  // source, destination: rates in Hz, both above 0; latencyFraction: position of the first output
  // in samples of the source, 0 up to 1.
  CDSPFracInterpolator(double source, double destination, double latencyFraction, int maxInput);

  double latencyFraction() const noexcept override { return 0.0; }
  int inputBeforeOutput(int nextInput) const noexcept override;
  int maxOutputLength(int maxInput) const noexcept override;
  void pace(std::span<int> counts) const noexcept VELLUMIC_NONBLOCKING override;
  void clear() noexcept override;
  // Goes on as if it had had the input of `leader`, which converts between the same rates.
  void follow(const CDSPFracInterpolator& leader) noexcept VELLUMIC_NONBLOCKING;
  int process(const double* input, int count,
              const double*& output) noexcept VELLUMIC_NONBLOCKING override;

 private:
  // Of the next output, in the source's samples.
  struct Place {
    int outputCount = 0;  // since base was set
    int consumed = 0;     // whole steps since then
    double position = 0.0;
    double base = 0.0;
  };

  double interpolate(double position, const double* samples) const noexcept;
  int step(Place& place) const noexcept;

  double source_;
  double destination_;
  double latencyFraction_;
  const double* table_;  // phases rows of three times taps coefficients

  std::array<double, 2 * ringLength> history_{};  // each sample twice: no window wraps
  int fill_ = 0;                                  // samples that lie ahead of the position
  int writePosition_ = 0;
  int readPosition_ = 0;  // first sample of the window
  Place place_;
  std::vector<double> result_;
};

extern template class CDSPFracInterpolator<24, 673>;

}  // namespace vellumic::resample
