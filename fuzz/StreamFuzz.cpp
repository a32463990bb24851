// Parameter arrays and streams through the whole portable object.
#include "fuzz/Neighbours.h"
#include "fuzz/Require.h"
#include "fuzz/StreamScript.h"
#include "tests/support/HeapInUse.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace vellumic::fuzz;
  using vellumic::heapInUse;
  keepNeighbours();
  static long long grown = 0;  // over all inputs; small tables that are kept for the next one pass
  const std::size_t before = heapInUse();
  StreamScript({data, size}).run();
  grown += static_cast<long long>(heapInUse()) - static_cast<long long>(before);
  require(grown < 8'000'000, "memory stays constant");
  return 0;
}
