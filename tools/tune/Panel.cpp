#include "tools/tune/Panel.h"

#include <algorithm>
#include <utility>

#include "tools/quality/Parallel.h"
#include "tools/quality/SceneCatalogue.h"
#include "tools/quality/SoundFiles.h"
#include "tools/tune/Journal.h"

namespace vellumic::tune {
namespace {

using quality::Channels;
using quality::Signal;

// A scene to be made or a recording to be read.
struct Piece {
  const Matter* matter;
  std::optional<quality::SceneSpec> spec;
  std::string name;
};

std::vector<Piece> piecesOf(const std::vector<Matter>& all) {
  std::vector<Piece> pieces;
  for (const Matter& matter : all) {
    if (!matter.isScene()) pieces.push_back({&matter, std::nullopt, matter.recording});
    for (const int count : matter.isScene() ? matter.microphones : std::vector<int>{})
      for (const std::uint64_t seed : matter.seeds)
        pieces.push_back({&matter, quality::sceneNamed(matter.scene, seed, count),
                          matter.scene + " " + std::to_string(seed) + ", " + std::to_string(count) +
                              " microphones"});
  }
  return pieces;
}

std::uint64_t printOf(const Channels& channels, std::uint64_t before) {
  for (const Signal& channel : channels)
    before = fingerprint(
        {reinterpret_cast<const char*>(channel.data()), channel.size() * sizeof(float)}, before);
  return before;
}

std::unique_ptr<quality::Material> recording(const Piece& piece, std::uint64_t& print) {
  const Matter& matter = *piece.matter;
  const Channels microphones = quality::readChannels(matter.recording);
  print = printOf(microphones, print);
  std::optional<tools::WaveData> far;
  std::optional<Signal> talker;
  if (!matter.far.empty()) {
    const Channels sides = quality::readChannels(matter.far);
    print = printOf(sides, print);
    far = quality::waveOf(sides);
  }
  if (!matter.talker.empty()) {
    talker = quality::readChannels(matter.talker)[0];
    print = printOf({*talker}, print);
  }
  return quality::recordedMaterial(piece.name, quality::waveOf(microphones), std::move(far),
                                   talker);
}

}  // namespace

Panel::Panel(const std::vector<Matter>& matter, const Voices& voices, unsigned jobs,
             const std::atomic<bool>& stop)
    : print_(fingerprint("")), jobs_(jobs), stop_(stop) {
  const std::vector<Piece> pieces = piecesOf(matter);
  const bool scenes =
      std::ranges::any_of(pieces, [](const Piece& p) { return p.spec.has_value(); });
  Signal near, far;
  if (scenes) {
    near = quality::readChannels(voices.nearFile)[0];
    far = quality::readChannels(voices.farFile)[0];
  }
  material_.resize(pieces.size());
  std::vector<std::uint64_t> prints(pieces.size(), print_);
  quality::inParallel(pieces.size(), jobs, [&](std::size_t n) {
    if (stop_) throw Stopped();
    if (!pieces[n].spec) {
      material_[n] = recording(pieces[n], prints[n]);
      return;
    }
    const quality::Scene scene = quality::makeScene(*pieces[n].spec, near, far);
    prints[n] = printOf(scene.far, printOf(scene.mix, prints[n]));
    material_[n] = quality::sceneMaterial(pieces[n].name, *pieces[n].spec, scene);
  });
  for (std::size_t n = 0; n < pieces.size(); ++n) {
    names_.push_back(pieces[n].name);
    print_ = fingerprint(pieces[n].name + std::to_string(prints[n]), print_);
  }
}

std::vector<quality::Summary> Panel::judge(const RawValues& settings, Depth depth) const {
  const std::size_t shifts = depth == Depth::quick ? 1 : quality::shiftCount;
  std::vector<std::vector<quality::Figures>> figures(material_.size(),
                                                     std::vector<quality::Figures>(shifts));
  quality::inParallel(material_.size() * shifts, jobs_, [&](std::size_t n) {
    if (stop_) throw Stopped();
    const std::size_t piece = n / shifts, shift = n % shifts;
    figures[piece][shift] = material_[piece]->judge(settings, static_cast<int>(shift)).figures;
  });
  std::vector<quality::Summary> summaries;
  summaries.reserve(figures.size());
  for (const auto& scores : figures) summaries.push_back(quality::summarise(scores));
  return summaries;
}

}  // namespace vellumic::tune
