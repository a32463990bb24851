// What to tune, on what, and towards what: a plan, read from a TOML file (docs/tuning.md describes
// it).
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "parameters/Catalogue.h"
#include "tools/quality/Figures.h"
#include "tools/tune/Search.h"

namespace vellumic::tune {

// what() is one line for the user: file, line, field, what is wrong and how to mend it.
class PlanError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// What is wanted of one figure. Weights and slacks are per unit: 1 dB, 1 s, 0.01 of STOI.
struct Wish {
  quality::Figure figure = quality::Figure::nearSdr;
  double weight = 0.0;                      // worth of a unit of the mean over all scenes
  std::optional<double> cap;                // better than that is worth no more
  std::optional<double> limit;              // to be held in every scene
  std::optional<double> slackBelowFactory;  // in every scene at most that much worse
  std::optional<double> slackBelowInput;    // than the microphone
};

// Simulated scenes by name, one per seed and microphone count; or a recording.
struct Matter {
  std::string scene;
  std::vector<int> microphones;
  std::vector<std::uint64_t> seeds;
  std::string recording, far, talker;  // WAV files; far and talker may be empty

  bool isScene() const { return !scene.empty(); }  // else a recording
};

struct Voices {
  std::string nearFile, farFile;
};

struct Plan {
  std::string text;                 // the whole file, as it was read
  std::vector<std::string> header;  // first lines of the settings file: for whom, at what cost
  std::uint64_t seed = 1;
  Budget budget;
  double worth = 0.1;  // a setting that gains less stays at the factory

  Space space;               // the settings to move, in the order of their names
  std::vector<Raw> slots;    // of the space's dimensions
  RawValues measuredWith{};  // the factory settings with what is fixed while measuring
  std::vector<Wish> goal;
  std::vector<Matter> material, heldOut;
  Voices voices, heldOutVoices;

  RawValues settings(const Point& point) const;  // on top of `measuredWith`
};

// The same for every way to write a file's path, whether the file is there or not.
std::filesystem::path placeOf(const std::string& file);

// Throws PlanError. Paths in the plan are relative to the present folder.
Plan parsePlan(const std::string& text, const std::string& source);
Plan readPlan(const std::filesystem::path& file);

}  // namespace vellumic::tune
