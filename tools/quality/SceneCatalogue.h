// Scenes by name.
//
// Standard scenes ask one question each, in one room. Kinds are what users sit in: their rooms,
// places, levels and delays are drawn from the seed, so that settings can be tuned on some seeds
// and judged on others.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/quality/Scene.h"

namespace vellumic::quality {

// In the order in which they are reported.
const std::vector<SceneSpec>& standardScenes();

// "desk": one talker 0.4 to 0.8 m away, loudspeakers beside the microphones.
// "meeting": two talkers in turn at 1 to 3 m, steady noise, loudspeakers at times.
// "loud-room": one talker in strong diffuse noise.
// "second-voice": one talker and an unwanted voice from another direction.
// "slow-speakers": as desk at 1 to 2 m, the loudspeakers 100 to 250 ms late.
const std::vector<std::string>& sceneKinds();

// A standard scene (the seed is of its noise and music) or a kind; nothing for other names.
std::optional<SceneSpec> sceneNamed(const std::string& name, std::uint64_t seed, int microphones);

}  // namespace vellumic::quality
