#include "bench/quality/SceneFolder.h"

#include <fstream>
#include <stdexcept>
#include <utility>

#include "tools/quality/SceneCatalogue.h"
#include "tools/quality/SoundFiles.h"

namespace vellumic::quality {

namespace fs = std::filesystem;

void writeScene(const StoredScene& stored, const fs::path& folder) {
  fs::create_directories(folder);
  const Scene& scene = stored.scene;
  writeChannels(folder / "mix.wav", scene.mix);
  writeChannels(folder / "speech.wav", scene.speech);
  writeChannels(folder / "noise.wav", scene.noise);
  writeChannels(folder / "echo.wav", scene.echo);
  // The far end goes on in silence, so that the last delayed block still has its references.
  Channels far = scene.far;
  for (Signal& side : far) side.resize(side.size() + static_cast<std::size_t>(sceneRate));
  writeChannels(folder / "far.wav", far);
  std::ofstream(folder / "scene.txt") << stored.spec.name << ' ' << stored.spec.seed << '\n';
}

StoredScene readScene(const fs::path& folder) {
  std::ifstream file(folder / "scene.txt");
  std::string name;
  std::uint64_t seed = 0;
  if (!(file >> name >> seed))
    throw std::runtime_error((folder / "scene.txt").string() +
                             ": cannot be read, make the scene first");
  Scene scene{.mix = readChannels(folder / "mix.wav"),
              .speech = readChannels(folder / "speech.wav"),
              .noise = readChannels(folder / "noise.wav"),
              .echo = readChannels(folder / "echo.wav"),
              .far = readChannels(folder / "far.wav")};
  const auto spec = sceneNamed(name, seed, static_cast<int>(scene.mix.size()));
  if (!spec)
    throw std::runtime_error((folder / "scene.txt").string() + ": names no scene, make it anew");
  for (const auto& [part, channels] :
       {std::pair{"speech.wav", &scene.speech}, std::pair{"noise.wav", &scene.noise},
        std::pair{"echo.wav", &scene.echo}})
    if (channels->front().size() != scene.mix.front().size())
      throw std::runtime_error((folder / part).string() +
                               ": is not as long as mix.wav; make the scene anew");
  if (scene.far.size() != 2)
    throw std::runtime_error((folder / "far.wav").string() +
                             ": has not two channels; make the scene anew");
  for (Signal& side : scene.far) side.resize(scene.mix.front().size());
  return {*spec, std::move(scene)};
}

}  // namespace vellumic::quality
