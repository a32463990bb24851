// The principal component of the covariance pairs of several bins at a time, one bin a lane.
//
// What a lane computes is what array/PrincipalComponent.h states, by another road of bounded cost.
// With B = L L^H (noise) and W = inverse(L) A inverse(L^H) (whitened signal) of unit principal
// eigenvector u, the weights are conj((-1)^C L(0,0) inverse(L^H) u conj(u(0))), and u conj(u(0)) is
// the first column of the projector u u^H. Two microphones have that in closed form; more have it
// as the limit of W^(2^n): each step squares the matrix and divides it by its trace, and the trace
// of the square of a matrix of trace 1 tells how close to rank one it was.
//
// A lane is left to the exact solver when a pivot of the Cholesky factor is mostly rounding, when
// its two largest eigenvalues lie within about half a percent of each other, or when anything in
// it is not finite.
#pragma once

#include <cstdint>

#include "platform/Realtime.h"

namespace vellumic {

inline constexpr int mostMicrophonesInLanes = 8;
inline constexpr int mostBinsOfASolve = 16;

// Planes as array/Planes.h has them, from the first bin to solve on; `rows` from plane to plane.
struct CovariancePair {
  const float* signal;
  const float* noise;
  int rows;
  float signalLoading, noiseLoading;  // added to the diagonals
};

struct PrincipalVectorKernels {
  // Solves `bins` bins, at most mostBinsOfASolve, of 2 to mostMicrophonesInLanes microphones. Bit b
  // of the result: the weights of bin b are not solved. weightReal, weightImaginary: planes as
  // above, written for these bins only.
  std::uint32_t (*solve)(const CovariancePair& pair, int microphones, int bins, float* weightReal,
                         float* weightImaginary) noexcept VELLUMIC_NONBLOCKING;
};

const PrincipalVectorKernels& principalVectorKernels() noexcept VELLUMIC_NONBLOCKING;

namespace base {
extern const PrincipalVectorKernels principalVectors;
}
namespace avx2 {
extern const PrincipalVectorKernels principalVectors;
}

}  // namespace vellumic
