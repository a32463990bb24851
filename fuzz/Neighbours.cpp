#include "fuzz/Neighbours.h"

#include <algorithm>
#include <memory>
#include <vector>

#include "engine/CaptureCore.h"
#include "fuzz/Require.h"
#include "parameters/Catalogue.h"

namespace vellumic::fuzz {

void keepNeighbours() {
  static std::vector<std::unique_ptr<CaptureCore>> neighbours;
  if (!neighbours.empty()) return;
  for (const float rate : rates) {
    CaptureCore& core = *neighbours.emplace_back(std::make_unique<CaptureCore>(LoopbackOpener{}));
    require(core.sets.allocate(), "a neighbour has room for its blocks");
    std::ranges::copy(factorySettings(), core.sets.rawParameters().begin());
    core.sets.initialize(ProcessingMode::speech, EffectMode::array);
    core.sets.proposeRate(rate);
    const StreamFormat format{.sampleRate = rate};
    require(
        core.sets.lock(format, ProcessingMode::speech, EffectMode::array, core.context).has_value(),
        "a neighbour locks");
  }
}

}  // namespace vellumic::fuzz
