// What a person should know about a setting beside its values. One line each, nothing when there is
// nothing to say. Not for the real-time thread.
#pragma once

#include <optional>
#include <string>

#include "parameters/Catalogue.h"

namespace vellumic {

// The speech mode runs echo cancellation and noise suppression, whatever their switches say.
std::optional<std::string> speechModeNote(const RawValues& values);

// Of the first band that runs with a frequency above half the device rate, where most filters are
// unstable. `rate`: of the device, Hz.
std::optional<std::string> unstableBandNote(const RawValues& values, int rate);

// A running stream goes on hearing the loudspeakers at the internal rate at which it was locked.
std::optional<std::string> internalRateNote(const RawValues& before, const RawValues& after);

}  // namespace vellumic
