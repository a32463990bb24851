// Blind adaptive beamformer: all microphones' spectra to one, by maximum signal-to-noise ratio.
//
// Per bin it tracks the spatial covariance of everything and of the noise alone, and filters with
// the principal generalized eigenvector of the pair, scaled to the level and phase at the first
// microphone. No geometry, no steering: adaptation follows detected activity only. See
// E. Warsitz, R. Haeb-Umbach, "Blind Acoustic Beamforming Based on Generalized Eigenvalue
// Decomposition", IEEE TASLP 15(5), 2007.
//
// The covariance recursion runs for all bins every frame; the eigen solves go round-robin,
// binsPerFrame a frame, so the load hardly depends on the content. Neighbouring bins are solved
// side by side (array/kernels/PrincipalVectors.h); what that leaves open goes to
// PrincipalComponent.
//
// Threads: construction and init allocate; process and apply are for the audio thread.
#pragma once

#include <vector>

#include "array/ActivityEstimator.h"
#include "array/AlgorithmBase.h"
#include "array/BoundedValue.h"
#include "array/Planes.h"
#include "parameters/StageSettings.h"

namespace vellumic {

class BeamformerAdaptive final : public SpectralAlgorithm {
 public:
  // frameRate in frames per second. Less than two microphones become two.
  explicit BeamformerAdaptive(int channelCount = 2, int binCount = 257, float frameRate = 125.0F);

  bool init(bool resetChildren) override;

  // input: binCount x channelCount. output: binCount. Disabled, the output is column 0.
  void process(const Input& input, Output output) noexcept VELLUMIC_NONBLOCKING override;

  // Copies numbers; acts from the next frame and leaves covariances and weights alone.
  void apply(const BeamformerSettings& settings) noexcept VELLUMIC_NONBLOCKING;

  enum AdaptationMode : std::int32_t { adaptFree, freezeNoise, byActivity, freezeBoth };

  BoundedFloat powerRatioThreshold = BoundedFloat::atLeast(0.0F, 1.5F);   // linear power ratio
  BoundedFloat binActivityThreshold = BoundedFloat::atLeast(0.0F, 0.5F);  // probability
  BoundedFloat activeBinFractionThreshold = BoundedFloat::atLeast(0.0F, 0.15F);
  BoundedFloat thresholdScale = BoundedFloat::atLeast(0.0F, 1.0F);  // factor on all three
  SpectrumPlanes weights;     // binCount x channelCount, already conjugated
  bool signalActive = false;  // verdict of the current frame
  std::int32_t nextBin = 0;   // next bin to solve
  std::int32_t adaptationMode = byActivity;

  CovariancePlanes signalCovariance;  // of all that is picked up
  CovariancePlanes noiseCovariance;   // of the frames without activity

  std::vector<ActivityEstimator> estimators;  // one per microphone
  BoundedInt binCount = BoundedInt::atLeast(1, 257);
  BoundedInt channelCount = BoundedInt::atLeast(2, 2);
  BoundedInt binsPerFrame;  // eigen solves per frame
  BoundedFloat frameRate = BoundedFloat::atLeast(1.0F, 125.0F);
  BoundedFloat covarianceRate;                                                // of both recursions
  BoundedFloat covarianceTimeConstant = BoundedFloat::atLeast(1e-16F, 5.0F);  // s
  BoundedFloat binUpdateRate = BoundedFloat::atLeast(0.0F, 8.0F);  // intended solves per bin, Hz

 private:
  void split(const Input& input) noexcept;
  void detectActivity() noexcept;
  void updateCovariances() noexcept;
  void solveBins(int count) noexcept;
  void solveExactly(int bin) noexcept;

  SpectrumPlanes spectrum_;                      // the frame's
  Eigen::ArrayXXf power_;                        // of it, planeRows x channelCount
  Eigen::ArrayXf maxActivity_;                   // per bin, over the microphones
  Eigen::ArrayXf channelActivity_;               // of the microphone being inspected
  Eigen::MatrixXcf signalMatrix_, noiseMatrix_;  // of one bin, lower triangle
  Eigen::VectorXcf solvedWeights_;
};

}  // namespace vellumic
