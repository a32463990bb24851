// Sums over whole signals, and cross-correlation at a few lags, in double precision.
#pragma once

#include <span>
#include <vector>

namespace vellumic::quality {

using View = std::span<const float>;

double energy(View signal);
double dot(View a, View b);  // over the length of a

// 10 log10, not below -200.
double decibels(double ratio);

// sum over n of a[n] b[n + lag] for lag = first .. last; b is zero outside.
std::vector<double> crossCorrelation(View a, View b, int first, int last);

}  // namespace vellumic::quality
