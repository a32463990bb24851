// Which delays the chain sets between microphones and references, and whether they are right.
#pragma once

#include "bench/quality/ScoreTable.h"

namespace vellumic::quality {

// One row per scene, count, seed and chain: over the shifts, the delays set within 3 s and the last
// ones. A reference may come early by a few samples: the filters reach that far. Prints.
void printDelays(const TableJob& job);

}  // namespace vellumic::quality
