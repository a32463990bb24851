// Spectra and covariances of all microphones as planes of floats: one plane per real or imaginary
// part, the bins of a plane side by side, so that kernels work on as many bins at a time as a
// register has lanes.
//
// A plane has planeRows(bins) rows. Those past the bins are padding: a kernel may read a full
// register from any bin on, and nothing ever depends on what the padding holds.
//
// Construction allocates.
#pragma once

#include <Eigen/Core>
#include <complex>

namespace vellumic {

inline constexpr int mostLanes = 8;  // floats in the widest register that a kernel uses

// Enough for a full register from the last bin on; itself whole registers.
constexpr int planeRows(int bins) { return (bins + 2 * (mostLanes - 1)) / mostLanes * mostLanes; }

// One spectrum per microphone, a column each.
struct SpectrumPlanes {
  SpectrumPlanes() = default;
  SpectrumPlanes(int bins, int microphones)
      : real(Eigen::ArrayXXf::Zero(planeRows(bins), microphones)), imaginary(real) {}

  std::complex<float> at(int bin, int microphone) const {
    return {real(bin, microphone), imaginary(bin, microphone)};
  }
  void set(int bin, int microphone, std::complex<float> value) {
    real(bin, microphone) = value.real();
    imaginary(bin, microphone) = value.imag();
  }

  Eigen::ArrayXXf real, imaginary;  // planeRows x microphones
};

// The lower triangle of one Hermitian matrix per bin: microphones^2 planes, for every column i its
// diagonal, which is real, then the real and the imaginary plane of each row j > i.
class CovariancePlanes {
 public:
  CovariancePlanes() = default;
  CovariancePlanes(int bins, int microphones, float diagonal)
      : planes(Eigen::ArrayXXf::Zero(planeRows(bins), microphones * microphones)),
        microphones_(microphones) {
    for (int i = 0; i < microphones; ++i) planes.col(diagonalPlane(i)).setConstant(diagonal);
  }

  // Of this bin, row >= column: the mean of x_row * conj(x_column).
  std::complex<float> at(int bin, int row, int column) const {
    const int diagonal = diagonalPlane(column);
    if (row == column) return planes(bin, diagonal);
    const int plane = diagonal + 2 * (row - column) - 1;
    return {planes(bin, plane), planes(bin, plane + 1)};
  }

  Eigen::ArrayXXf planes;  // planeRows x microphones^2

 private:
  int diagonalPlane(int i) const { return i * (2 * microphones_ - i); }

  int microphones_ = 0;
};

}  // namespace vellumic
