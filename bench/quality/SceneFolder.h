// A scene as a folder of WAV files: mix (the microphones), its parts speech, noise and echo, and
// far (the loudspeakers); scene.txt tells its name and seed.
#pragma once

#include <filesystem>

#include "tools/quality/Scene.h"

namespace vellumic::quality {

struct StoredScene {
  SceneSpec spec;
  Scene scene;
};

// Both throw std::runtime_error with one line.
void writeScene(const StoredScene& stored, const std::filesystem::path& folder);
StoredScene readScene(const std::filesystem::path& folder);

}  // namespace vellumic::quality
