// The dominant component of a pencil of covariances, as it arrives at the first microphone.
//
// For A v = lambda B v (A, B Hermitian, B positive definite) with the eigenvectors V normalised to
// V^H B V = I, the vector of the largest eigenvalue is scaled by
//   g = -det(V without row 0 and its last column) / det(V) = (-1)^C * (v^H B e0),
// the second form because inverse(V) = V^H B. It needs no determinants, which overflow in float
// from five microphones up. With an odd microphone count the polarity is inverted, in every bin
// alike. The result does not depend on the norm or phase of v.
//
// Thread: audio thread. No allocation up to maxMicrophones; a larger array allocates per solve.
#pragma once

#include <Eigen/Core>

#include "platform/Realtime.h"

namespace vellumic {

class PrincipalComponent {
 public:
  static constexpr int maxMicrophones = 16;

  // Only the lower triangles are read. weights = conj(g v), C values: a plain product-sum with the
  // microphones gives the component. NaN throughout where the matrices are not finite.
  static void solve(const Eigen::Ref<const Eigen::MatrixXcf>& signal,
                    const Eigen::Ref<const Eigen::MatrixXcf>& noise,
                    Eigen::Ref<Eigen::VectorXcf> weights) noexcept VELLUMIC_NONBLOCKING;
};

}  // namespace vellumic
