// Common base of the array algorithms: sized once, then one unit of work per call.
#pragma once

#include <Eigen/Core>
#include <complex>

#include "platform/Realtime.h"
#include "spectra/ArrayViews.h"

namespace vellumic {

template <class InputArray, class OutputArray>
class AlgorithmBase {
 public:
  using Input = ConstView<InputArray>;
  using Output = Eigen::Ref<OutputArray>;

  bool enabled = true;

  // Sizes and clears all state; with resetChildren also that of the objects it owns. True on
  // success. Allocates: never on the audio path.
  virtual bool init(bool resetChildren) = 0;

  // Pass views whose memory layout fits (contiguous columns), or Eigen makes a copy.
  virtual void process(const Input& input, Output output) noexcept VELLUMIC_NONBLOCKING = 0;

  virtual ~AlgorithmBase() = default;

 protected:
  AlgorithmBase() = default;
  AlgorithmBase(const AlgorithmBase&) = default;
  AlgorithmBase(AlgorithmBase&&) noexcept = default;
  AlgorithmBase& operator=(const AlgorithmBase&) = default;
  AlgorithmBase& operator=(AlgorithmBase&&) noexcept = default;
};

// Columns are microphones; rows are samples or bins.
using RealAlgorithm = AlgorithmBase<Eigen::ArrayXXf, Eigen::ArrayXf>;
using SpectralAlgorithm = AlgorithmBase<Eigen::ArrayXXcf, Eigen::ArrayXcf>;

}  // namespace vellumic
