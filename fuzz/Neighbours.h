// Objects of other microphones, one of each usual rate: the tables and filters that all objects
// share live on from input to input, as they do in a service that runs for long.
#pragma once

#include <array>

namespace vellumic::fuzz {

inline constexpr std::array rates{16000.0F, 22050.0F, 24000.0F,  44100.0F, 48000.0F,
                                  88200.0F, 96000.0F, 192000.0F, 8000.0F,  32000.0F};

// Made at the first call.
void keepNeighbours();

}  // namespace vellumic::fuzz
