#include "array/PrincipalComponent.h"

#include <Eigen/Cholesky>
#include <Eigen/Eigenvalues>
#include <complex>
#include <limits>

namespace vellumic {
namespace {

template <class Matrix>
void solve(const ConstView<Eigen::MatrixXcf>& signal, const ConstView<Eigen::MatrixXcf>& noise,
           Eigen::Ref<Eigen::VectorXcf> weights) {
  const Eigen::Index count = signal.rows();
  // A factor that fails midway is used as it is: for nearly equal microphones the rest then has
  // little weight, and the scale stays right because it follows from this very factor.
  const Eigen::LLT<Matrix> factor{Matrix(noise)};
  Matrix whitened = signal.template selfadjointView<Eigen::Lower>();
  factor.matrixL().template solveInPlace<Eigen::OnTheLeft>(whitened);
  factor.matrixU().template solveInPlace<Eigen::OnTheRight>(whitened);
  if (!whitened.allFinite()) {  // the iteration below would run to its limit
    constexpr float nan = std::numeric_limits<float>::quiet_NaN();
    weights.setConstant({nan, nan});
    return;
  }
  const Eigen::SelfAdjointEigenSolver<Matrix> solver(whitened);  // ascending eigenvalues
  weights = solver.eigenvectors().col(count - 1);
  const float polarity = count % 2 == 0 ? 1.0F : -1.0F;
  const std::complex<float> scale =
      polarity * factor.matrixLLT()(0, 0).real() * std::conj(weights(0));
  factor.matrixU().solveInPlace(weights);
  weights = (scale * weights).conjugate();
}

}  // namespace

void solvePrincipalComponent(const ConstView<Eigen::MatrixXcf>& signal,
                             const ConstView<Eigen::MatrixXcf>& noise,
                             Eigen::Ref<Eigen::VectorXcf> weights) noexcept VELLUMIC_NONBLOCKING {
  constexpr int most = maxMicrophonesWithoutAllocation;
  using InPlace = Eigen::Matrix<std::complex<float>, Eigen::Dynamic, Eigen::Dynamic,
                                Eigen::ColMajor, most, most>;
  vouchedFor([&] {  // nothing goes to the heap up to `most`, a size that only the run knows
    if (signal.rows() <= most)
      solve<InPlace>(signal, noise, weights);
    else
      solve<Eigen::MatrixXcf>(signal, noise, weights);
  });
}

}  // namespace vellumic
