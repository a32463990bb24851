// What a finished run tells: the settings file and the page.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/tune/Tuner.h"

namespace vellumic::tune {

// Figures of one set of scenes, with the factory settings and the tuned ones.
struct Comparison {
  std::vector<std::string> names;
  std::vector<quality::Summary> factory, tuned;
};

struct Outcome {
  const Plan& plan;
  const Tuning& tuning;
  Comparison seen;
  std::optional<Comparison> heldOut;
  double seconds = 0.0;  // the run took, without what its journal already held
};

// Only what differs from the factory, each line with its reason; the file's first lines say for
// whom it is and what it gains and costs on scenes that were held out.
std::string settingsText(const Outcome& outcome);
// What the figures of held-out material do not tell: nothing is held out, or voices are the same;
// "" if all is other.
std::string heldOutNote(const Plan& plan);

// One self-contained page of HTML: figures per scene before and after, which settings mattered,
// the best trade-offs that were met, the course of the search.
std::string tuningPage(const Outcome& outcome, const Journal& journal);

// Evaluations that no other one beats in both figures; indices into the journal, by the first
// figure. `first` and `second`: indices of wishes.
std::vector<std::size_t> front(const Plan& plan, const Journal& journal, std::size_t first,
                               std::size_t second);

// "near SDR, dB 12.1 > 20.3 (worst 18.0)": mean over scenes before and after.
std::string changeOf(const Comparison& comparison, quality::Figure figure);

}  // namespace vellumic::tune
