#include "tools/quality/SceneCatalogue.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>

namespace vellumic::quality {
namespace {

// Bursts of 2 s with pauses of 0.1 to 5 s; in pauses from 0.5 s on the loopback rests too.
SceneSpec bursts() {
  SceneSpec spec{.name = "far-bursts", .seconds = 40};
  double t = 0.0;
  for (const double pause : {0.1, 0.2, 0.5, 1.0, 2.0, 3.0, 5.0, 0.3, 0.7}) {
    spec.farActive.push_back({t, t + 2.0});
    if (pause >= 0.5) spec.packetGaps.push_back({t + 2.0, t + 2.0 + pause});
    t += 2.0 + pause;
  }
  spec.farActive.push_back({t, spec.seconds});
  return spec;
}

class Draw {
 public:
  Draw(const std::string& kind, std::uint64_t seed) {
    std::seed_seq mixed(kind.begin(), kind.end());
    std::vector<std::uint32_t> words(2);
    mixed.generate(words.begin(), words.end());
    random_.seed(seed * 0x9E3779B97F4A7C15ULL ^ (std::uint64_t{words[0]} << 32U | words[1]));
  }
  // Not a std distribution: those differ between libraries.
  double between(double low, double high) {
    return low + (high - low) * static_cast<double>(random_() >> 11U) * 0x1p-53;
  }

 private:
  std::mt19937_64 random_;
};

// In front of the array, at mouth height; angle in degrees, 90 is straight ahead.
Point ahead(double distance, double angle) {
  const double turn = angle * std::numbers::pi / 180.0;
  return {distance * std::cos(turn), distance * std::sin(turn), 0.2};
}

void drawRoom(SceneSpec& spec, Draw& draw, bool large) {
  spec.room.size = large ? Point{draw.between(6, 9), draw.between(5.5, 8), draw.between(2.6, 3.2)}
                         : Point{draw.between(4, 6), draw.between(3.5, 5), draw.between(2.4, 3)};
  spec.room.reverberationTime = draw.between(0.2, 0.45);
  spec.voiceStart = draw.between(0, 60);
}

// Loudspeakers alone, then both, then the talker alone with a pause.
void speakersThenTalker(SceneSpec& spec, Draw& draw) {
  spec.seconds = 24;
  spec.farActive = {{0, 14.5}};
  spec.nearActive = {{9, 14}, {15.5, 19}, {20.5, 24}};
  spec.echoDb = draw.between(-30, -22);
  spec.noiseDb = draw.between(-62, -52);
}

void meeting(SceneSpec& spec, Draw& draw) {
  drawRoom(spec, draw, true);
  spec.seconds = 26;
  spec.farActive = {{0, 9}, {19, 24}};
  spec.nearActive = {{6, 9}, {10, 14}, {15, 18.5}, {20.5, 24}};
  spec.talker = ahead(draw.between(1, 3), draw.between(25, 85));
  spec.secondTalker = ahead(draw.between(1, 3), draw.between(95, 155));
  spec.loudspeakerReach = draw.between(0.3, 0.8);
  spec.systemDelay = draw.between(0.01, 0.06);
  spec.echoDb = draw.between(-32, -24);
  spec.noiseDb = draw.between(-50, -43);
}

void loudRoom(SceneSpec& spec, Draw& draw) {
  drawRoom(spec, draw, true);
  spec.seconds = 18;
  spec.nearActive = {{3, 8}, {11, 16}};
  spec.talker = ahead(draw.between(0.5, 1.2), draw.between(40, 140));
  spec.noiseDb = draw.between(-38, -34);
}

void secondVoice(SceneSpec& spec, Draw& draw) {
  loudRoom(spec, draw);
  spec.noiseDb = draw.between(-54, -46);
  spec.talker = ahead(draw.between(0.5, 1.0), draw.between(80, 140));
  spec.rival = ahead(draw.between(1.2, 2.2), draw.between(5, 35));
  spec.rivalActive = {{1.5, 9.5}, {10, 13}, {14, 18}};
  spec.rivalDb = draw.between(-38, -32);
}

void slowSpeakers(SceneSpec& spec, Draw& draw) {
  drawRoom(spec, draw, false);
  speakersThenTalker(spec, draw);
  spec.talker = ahead(draw.between(1, 2), draw.between(60, 120));
  spec.loudspeakerReach = draw.between(0.4, 0.8);
  spec.systemDelay = draw.between(0.1, 0.25);
}

void desk(SceneSpec& spec, Draw& draw) {
  drawRoom(spec, draw, false);
  speakersThenTalker(spec, draw);
  spec.talker = ahead(draw.between(0.4, 0.8), draw.between(70, 110));
  spec.loudspeakerReach = draw.between(0.15, 0.4);
  spec.systemDelay = draw.between(0.01, 0.06);
}

struct Kind {
  const char* name;
  void (*fill)(SceneSpec&, Draw&);
};
constexpr Kind kinds[] = {{"desk", desk},
                          {"meeting", meeting},
                          {"loud-room", loudRoom},
                          {"second-voice", secondVoice},
                          {"slow-speakers", slowSpeakers}};

}  // namespace

const std::vector<SceneSpec>& standardScenes() {
  static const std::vector<SceneSpec> scenes{
      {.name = "noise", .nearActive = {{3, 8}, {11, 16}}, .noiseDb = -36},
      {.name = "near-only", .nearActive = {{1, 20}}},
      {.name = "far-single", .farActive = {{0, 20}}},
      {.name = "delay-100ms", .farActive = {{0, 20}}, .systemDelay = 0.1},
      {.name = "delay-200ms", .farActive = {{0, 20}}, .systemDelay = 0.2},
      {.name = "double-talk", .nearActive = {{10, 20}}, .farActive = {{0, 20}}},
      {.name = "path-change", .seconds = 24, .farActive = {{0, 24}}, .pathChangeAt = 12},
      {.name = "loud-nonlinear", .farActive = {{0, 20}}, .echoDb = -14, .drive = 6},
      {.name = "far-pause",
       .seconds = 30,
       .farActive = {{0, 10}, {15, 30}},
       .packetGaps = {{10, 15}}},
      bursts(),
      {.name = "lost-packet", .farActive = {{0, 20}}, .packetGaps = {{10, 10.01}}},
      {.name = "music", .farActive = {{0, 20}}, .music = true},
      {.name = "drift-20ppm", .seconds = 40, .farActive = {{0, 40}}, .driftPpm = 20},
      {.name = "drift-100ppm", .seconds = 40, .farActive = {{0, 40}}, .driftPpm = 100},
      {.name = "quiet",
       .nearActive = {{10, 20}},
       .farActive = {{0, 20}},
       .noiseDb = -60,
       .levelDb = -20},
      {.name = "moving-talker",
       .nearActive = {{3, 8}, {9, 16}},
       .noiseDb = -46,
       .talker = {-1.2, 1.0, 0.2},
       .talkerEnd = Point{1.2, 1.0, 0.2}},
      {.name = "two-talkers",
       .nearActive = {{3, 6}, {6.5, 9}, {9.5, 12}, {12.5, 16}},
       .noiseDb = -46,
       .talker = {0.9, 1.0, 0.2},
       .secondTalker = Point{-0.9, 0.9, 0.2}},
      {.name = "keyboard", .nearActive = {{3, 8}, {11, 16}}, .noiseDb = -60, .clicksDb = -46},
      {.name = "everything",
       .seconds = 30,
       .nearActive = {{6, 11}, {16, 28}},
       .farActive = {{0, 20}},
       .noiseDb = -46},
  };
  return scenes;
}

const std::vector<std::string>& sceneKinds() {
  static const std::vector<std::string> names = [] {
    std::vector<std::string> list;
    for (const Kind& kind : kinds) list.emplace_back(kind.name);
    return list;
  }();
  return names;
}

std::optional<SceneSpec> sceneNamed(const std::string& name, std::uint64_t seed, int microphones) {
  std::optional<SceneSpec> found;
  const auto standard = std::ranges::find(standardScenes(), name, &SceneSpec::name);
  if (standard != standardScenes().end()) found = *standard;
  for (const Kind& kind : kinds) {
    if (name != kind.name) continue;
    Draw draw(name, seed);
    found = SceneSpec{.name = name};
    kind.fill(*found, draw);
  }
  if (found) {
    found->seed = seed;
    found->microphones = microphones;
  }
  return found;
}

}  // namespace vellumic::quality
