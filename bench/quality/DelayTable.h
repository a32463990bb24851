// How often the chain sets a false delay between microphones and references.
#pragma once

#include "bench/quality/ScoreTable.h"

namespace vellumic::quality {

// One row per scene, count and chain, over its seeds and shifts: in how many runs the delay is off
// when it is first set, at 3 s and at the end, and the longest stay of such a delay. Off is by more
// than 8 samples, in brackets by more than the 31 that the chain itself tolerates. Right is the lag
// at which loudspeakers and echo match best over the whole scene, so that only scenes in which it
// stays the same make sense. Prints.
void printDelays(const TableJob& job);

}  // namespace vellumic::quality
