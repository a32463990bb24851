// The dominant component of a pair of covariances, as it arrives at the first microphone.
//
// For A v = lambda B v (A signal, B noise, V normalised to V^H B V = I) the eigenvector of the
// largest eigenvalue is scaled by
//   g = -det(V without its first row and last column) / det(V).
// With inverse(V) = V^H B and B = L L^H this is (-1)^C L(0,0) conj(u(0)) for the unit eigenvector
// u = L^H v of inverse(L) A inverse(L^H): no determinants, which overflow in float from five
// microphones up. An odd microphone count inverts the polarity, in every bin alike. The result
// does not depend on the norm or phase of v.
#pragma once

#include <Eigen/Core>

#include "platform/Realtime.h"
#include "spectra/ArrayViews.h"

namespace vellumic {

// Above this count a solve allocates.
inline constexpr int maxMicrophonesWithoutAllocation = 16;

// signal, noise: C x C, only the lower triangles are read. weights: conj(g v), C values, so that a
// plain product-sum with the microphones gives the component; NaN where the pair is not finite or
// singular in its first element.
void solvePrincipalComponent(const ConstView<Eigen::MatrixXcf>& signal,
                             const ConstView<Eigen::MatrixXcf>& noise,
                             Eigen::Ref<Eigen::VectorXcf> weights) noexcept VELLUMIC_NONBLOCKING;

}  // namespace vellumic
