// The per-bin arithmetic of EchoCanceller and its EchoPathFilters. Symbols as there; `bins` is
// blockLength + 1. Bin by bin all instruction sets give the same bits; sums differ by rounding.
// Real-time safe; arrays may not overlap unless they are the same.
#pragma once

#include "echo/kernels/Planes.h"
#include "platform/Realtime.h"

namespace vellumic {

struct KalmanKernels {
  // Y = X_0 W_0 + X_1 W_1
  struct Echo {
    ConstPlanes reference0, weights0, reference1, weights1;
    Planes echo;
  };
  void (*predictEcho)(const Echo&, int bins) noexcept VELLUMIC_NONBLOCKING;

  // E = M - Y, and unless it is held the measurement noise T: where the filters have settled
  // (updatePower < threshold) it follows |M|^2 - |Y|^2, elsewhere it falls toward 0.1.
  // Returns the sum of T.
  struct Error {
    ConstPlanes microphone, echo;
    const float* updatePower;
    float pole, threshold;
    bool holdNoise;
    Planes error;
    float* noise;
  };
  float (*measureError)(const Error&, int bins) noexcept VELLUMIC_NONBLOCKING;

  // C = A + Q;  H = C / (3 C G + T), at most 2 / |G|;  update = D H E;  A = (1 - H G) C
  struct Adaptation {
    ConstPlanes decorrelated, error;                       // D, E
    const float *scaledPower, *noisePower, *processNoise;  // G, T, Q
    float* posterior;                                      // A
    Planes update;
  };
  void (*adapt)(const Adaptation&, int bins) noexcept VELLUMIC_NONBLOCKING;

  // W += update;  Q = pole Q + (1 - pole) |update|^2
  struct Step {
    ConstPlanes update;
    float pole;
    Planes weights;
    float* processNoise;
  };
  void (*takeStep)(const Step&, int bins) noexcept VELLUMIC_NONBLOCKING;

  // updatePower = Q_0 + Q_1, and what the health check asks.
  struct Filters {
    const float *posterior0, *posterior1, *processNoise0, *processNoise1;
    float threshold, silence;
    float* updatePower;
  };
  struct Health {
    float covariance;  // sum of the squares of A_0 and A_1
    int settled;       // bins with updatePower < threshold
    bool moving;       // some |updatePower| > silence
  };
  Health (*judge)(const Filters&, int bins) noexcept VELLUMIC_NONBLOCKING;

  // error = microphone - echo, over samples; returns both energies.
  struct Energies {
    float microphone, error;
  };
  Energies (*subtract)(const float* microphone, const float* echo, float* error,
                       int samples) noexcept VELLUMIC_NONBLOCKING;
};

const KalmanKernels& kalmanKernels() noexcept VELLUMIC_NONBLOCKING;

}  // namespace vellumic
