// Parameter arrays and streams through the whole portable object.
#include "fuzz/StreamScript.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace vellumic::fuzz;
  StreamScript(ByteReader({data, size})).run();
  return 0;
}
