#include "platform/KernelBuild.h"
// KernelBuild.h first: it names the set.
#include "array/kernels/PrincipalVectors.h"

namespace vellumic::VELLUMIC_KERNEL_SET {
namespace {

using Mask = xsimd::batch_bool<float, Arch>;

// Of a pivot to the diagonal element it came from. Below it rounding is a thousandth of the pivot
// and more, and every order of operations makes another factor.
constexpr float leastPivot = 1e-4F;
constexpr int mostSquarings = 11;
// Trace of the square at which the next matrix is of rank one: eigenvalues 1 - d and d give
// 1 - 2 d, and the next matrix d^2.
constexpr float rankOneTrace = 0.9998F;
// Two microphones: half the distance of the eigenvalues to their mean.
constexpr float leastDistance = 0.0025F;

struct Complex {
  Floats re, im;
};

Complex operator*(const Complex& a, Floats b) { return {a.re * b, a.im * b}; }
Floats norm(const Complex& a) { return fma(a.re, a.re, a.im * a.im); }

// sum -= a conj(b)
void subtractConjugate(Complex& sum, const Complex& a, const Complex& b) {
  sum.re = fnma(a.re, b.re, fnma(a.im, b.im, sum.re));
  sum.im = fnma(a.im, b.re, fma(a.re, b.im, sum.im));
}
// sum -= a b
void subtract(Complex& sum, const Complex& a, const Complex& b) {
  sum.re = fnma(a.re, b.re, fma(a.im, b.im, sum.re));
  sum.im = fnma(a.im, b.re, fnma(a.re, b.im, sum.im));
}
// sum += a conj(b)
void addConjugate(Complex& sum, const Complex& a, const Complex& b) {
  sum.re = fma(a.re, b.re, fma(a.im, b.im, sum.re));
  sum.im = fma(a.im, b.re, fnma(a.re, b.im, sum.im));
}

// Row and column C of an odd count are zero, so that all sizes work in blocks of two.
template <int C>
inline constexpr int evenSize = C + C % 2;

template <int C>
struct Matrix {
  Complex at[evenSize<C>][evenSize<C>];
  Complex* operator[](int row) { return at[row]; }
  const Complex* operator[](int row) const { return at[row]; }
};

// Lower triangles: A and B of the pair; B becomes its factor.
template <int C>
struct Pair {
  Matrix<C> A, L;
  Floats inverse[C];  // of the factor's diagonal
  Mask sound;
};

Complex loadElement(const float* plane, int rows) {
  return {Floats::load_unaligned(plane), Floats::load_unaligned(plane + rows)};
}

template <int C>
void loadPair(const CovariancePair& from, Pair<C>& pair) {
  const float *signal = from.signal, *noise = from.noise;
  const int rows = from.rows;
  for (int column = 0; column < C; ++column) {
    const Floats zero(0.0F);
    pair.A[column][column] = {Floats::load_unaligned(signal) + Floats(from.signalLoading), zero};
    pair.L[column][column] = {Floats::load_unaligned(noise) + Floats(from.noiseLoading), zero};
    signal += rows;
    noise += rows;
    for (int row = column + 1; row < C; ++row, signal += 2 * rows, noise += 2 * rows) {
      pair.A[row][column] = loadElement(signal, rows);
      pair.L[row][column] = loadElement(noise, rows);
    }
  }
}

template <int C>
void factorNoise(Pair<C>& pair) {
  Matrix<C>& L = pair.L;
  pair.sound = Mask(true);
  for (int j = 0; j < C; ++j) {
    const Floats diagonal = L[j][j].re;
    Floats pivot = diagonal;
    for (int k = 0; k < j; ++k) pivot -= norm(L[j][k]);
    pair.sound = pair.sound && (pivot > Floats(leastPivot) * diagonal);
    const Floats root = sqrt(pivot);
    L[j][j].re = root;
    pair.inverse[j] = Floats(1.0F) / root;
    for (int i = j + 1; i < C; ++i) {
      for (int k = 0; k < j; ++k) subtractConjugate(L[i][j], L[i][k], L[j][k]);
      L[i][j] = L[i][j] * pair.inverse[j];
    }
  }
}

// A = inverse(L) A inverse(L^H), column by column in place: G. H. Golub, C. F. Van Loan, "Matrix
// Computations", the reduction of the symmetric-definite problem.
template <int C>
void whitenSignal(Pair<C>& pair) {
  Matrix<C>&A = pair.A, &L = pair.L;
  for (int k = 0; k < C; ++k) {
    const Floats inverse = pair.inverse[k];
    A[k][k].re *= inverse * inverse;
    const Floats half = Floats(-0.5F) * A[k][k].re;
    for (int i = k + 1; i < C; ++i) {
      Complex& a = A[i][k];
      a = a * inverse;
      a = {fma(half, L[i][k].re, a.re), fma(half, L[i][k].im, a.im)};
    }
    for (int j = k + 1; j < C; ++j) {
      A[j][j].re -= Floats(2.0F) * fma(A[j][k].re, L[j][k].re, A[j][k].im * L[j][k].im);
      for (int i = j + 1; i < C; ++i) {
        subtractConjugate(A[i][j], A[i][k], L[j][k]);
        subtractConjugate(A[i][j], L[i][k], A[j][k]);
      }
    }
    for (int i = k + 1; i < C; ++i) {
      Complex& a = A[i][k];
      a = {fma(half, L[i][k].re, a.re), fma(half, L[i][k].im, a.im)};
      for (int j = k + 1; j < i; ++j) subtract(a, L[i][j], A[j][k]);
      a = a * pair.inverse[i];
    }
  }
}

template <int C>
Floats traceOf(const Matrix<C>& W) {
  Floats trace = W[0][0].re;
  for (int i = 1; i < C; ++i) trace += W[i][i].re;
  return trace;
}

// Of a lower triangle, both triangles divided by `trace`. The two may be the same.
template <int C>
void normalise(const Matrix<C>& lower, Floats trace, Matrix<C>& whole) {
  const Floats scale = Floats(1.0F) / trace;
  for (int i = 0; i < C; ++i) {
    whole[i][i] = {lower[i][i].re * scale, Floats(0.0F)};
    for (int j = 0; j < i; ++j) {
      const Floats re = lower[i][j].re * scale, im = lower[i][j].im * scale;
      whole[i][j] = {re, im};
      whole[j][i] = {re, -im};
    }
  }
}

// Rows i, i + 1 and columns j, j + 1 of the square of a Hermitian matrix.
template <int C>
void squareBlock(const Matrix<C>& W, int i, int j, Matrix<C>& square) {
  const Floats zero(0.0F);
  Complex s00{zero, zero}, s01 = s00, s10 = s00, s11 = s00;
  for (int k = 0; k < C; ++k) {
    // References: a copy of two registers would go through memory.
    const Complex &a = W[i][k], &b = W[i + 1][k], &c = W[j][k], &d = W[j + 1][k];
    addConjugate(s00, a, c);
    addConjugate(s01, a, d);
    addConjugate(s10, b, c);
    addConjugate(s11, b, d);
  }
  square[i][j] = s00;
  square[i + 1][j] = s10;
  square[i][j + 1] = s01;
  square[i + 1][j + 1] = s11;
}

// The projector's first column, from a whitened matrix. Returns the lanes that have it.
template <int C>
Mask firstColumn(Matrix<C>& W, Mask wanted, Complex (&column)[C]) {
  if constexpr (C % 2 != 0) {
    for (int i = 0; i <= C; ++i) W[i][C] = W[C][i] = {Floats(0.0F), Floats(0.0F)};
  }
  normalise<C>(W, traceOf<C>(W), W);
  Mask converged(false);
  Matrix<C> square;
  for (int step = 0; step < mostSquarings; ++step) {
    for (int i = 0; i < C; i += 2)
      for (int j = 0; j <= i; j += 2) squareBlock<C>(W, i, j, square);
    const Floats trace = traceOf<C>(square);
    converged = trace > Floats(rankOneTrace);
    normalise<C>(square, trace, W);
    if (all(converged || !wanted)) break;
  }
  for (int i = 0; i < C; ++i) column[i] = W[i][0];
  return converged;
}

// Of [a, conj(b); b, d] in closed form: half of unity plus the matrix without its mean, over half
// the eigenvalues' distance.
Mask firstColumn(Matrix<2>& W, Mask /*wanted*/, Complex (&column)[2]) {
  const Floats scale = Floats(1.0F) / (W[0][0].re + W[1][1].re);
  const Floats half = (W[0][0].re - W[1][1].re) * scale * Floats(0.5F);
  const Complex b = W[1][0] * scale;
  const Floats distance = sqrt(fma(half, half, norm(b)));
  const Floats sum = distance + abs(half);
  const Floats over = Floats(0.5F) / distance;
  column[0] = {select(half < Floats(0.0F), norm(b) / sum, sum) * over, Floats(0.0F)};
  column[1] = b * over;
  return distance > Floats(0.5F * leastDistance);
}

template <int C>
std::uint32_t solveLanes(const CovariancePair& from, int bins, float* weightReal,
                         float* weightImaginary) {
  Pair<C> pair;
  loadPair<C>(from, pair);
  factorNoise<C>(pair);
  whitenSignal<C>(pair);
  Complex v[C];
  Mask solved = pair.sound && firstColumn(pair.A, pair.sound, v);

  const Floats scale = pair.L[0][0].re * Floats(C % 2 == 0 ? 1.0F : -1.0F);
  float lane[floatLanes];
  for (int i = 0; i < floatLanes; ++i) lane[i] = static_cast<float>(i);
  const Mask ours = Floats::load_unaligned(lane) < Floats(static_cast<float>(bins));
  for (int i = C - 1; i >= 0; --i) {
    for (int k = i + 1; k < C; ++k) {  // v(i) -= conj(L(k, i)) v(k)
      subtractConjugate(v[i], v[k], pair.L[k][i]);
    }
    v[i] = v[i] * pair.inverse[i];
    const Floats re = v[i].re * scale, im = -v[i].im * scale;
    solved = solved && (abs(re) + abs(im) < Floats(1e30F));
    float *toReal = weightReal + i * from.rows, *toImaginary = weightImaginary + i * from.rows;
    select(ours, re, Floats::load_unaligned(toReal)).store_unaligned(toReal);
    select(ours, im, Floats::load_unaligned(toImaginary)).store_unaligned(toImaginary);
  }
  const Floats unsolved = select(solved || !ours, Floats(0.0F), Floats(1.0F));
  unsolved.store_unaligned(lane);
  std::uint32_t bits = 0;
  for (int i = 0; i < floatLanes; ++i) bits |= (lane[i] != 0.0F ? 1U : 0U) << i;
  return bits;
}

template <int C>
std::uint32_t solveBins(const CovariancePair& pair, int bins, float* weightReal,
                        float* weightImaginary) {
  std::uint32_t unsolved = 0;
  for (int k = 0; k < bins; k += floatLanes) {
    CovariancePair from = pair;
    from.signal += k;
    from.noise += k;
    unsolved |= solveLanes<C>(from, bins - k, weightReal + k, weightImaginary + k) << k;
  }
  return unsolved;
}

std::uint32_t solve(const CovariancePair& pair, int microphones, int bins, float* weightReal,
                    float* weightImaginary) noexcept VELLUMIC_NONBLOCKING {
  switch (microphones) {
    case 2:
      return solveBins<2>(pair, bins, weightReal, weightImaginary);
    case 3:
      return solveBins<3>(pair, bins, weightReal, weightImaginary);
    case 4:
      return solveBins<4>(pair, bins, weightReal, weightImaginary);
    case 5:
      return solveBins<5>(pair, bins, weightReal, weightImaginary);
    case 6:
      return solveBins<6>(pair, bins, weightReal, weightImaginary);
    case 7:
      return solveBins<7>(pair, bins, weightReal, weightImaginary);
    case 8:
      return solveBins<8>(pair, bins, weightReal, weightImaginary);
    default:
      return (1U << bins) - 1U;
  }
}

}  // namespace

const PrincipalVectorKernels principalVectors{solve};

}  // namespace vellumic::VELLUMIC_KERNEL_SET
