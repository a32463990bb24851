// When an object's parameter thread begins its work.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>

#include "control/ParameterWorker.h"
#include "engine/FrameEngine.h"

namespace vellumic::test {
namespace {

// A thread that is told to end at once: only its start is seen.
TEST(ParameterWorker, BeginsForAnInitialisedObjectWithRoomForItsReader) {
  struct Case {
    bool initialised, full;
    unsigned long exitCode;
  };
  for (const auto& [initialised, full, exitCode] :
       {Case{false, false, 1}, Case{true, true, 1}, Case{true, false, 0}}) {
    ParameterSync sync;
    Arena arena;
    FrameEngine engine{{}};
    ParameterSets sets(arena, engine, sync);
    CParametersInRegistry parameters;
    const CHandleEndpoint endpoint;
    CSharedMemoryAccessHandler link;
    const std::atomic<bool> isInitialized = initialised;
    const ProcessingMode processingMode{};
    void* const rest = full ? arena.allocate(Arena::capacity - arena.used() - 4096) : nullptr;
    ASSERT_EQ(rest != nullptr, full);
    std::atomic<std::uint32_t> running = 0;
    EXPECT_EQ(ParameterWorker(
                  {sync, arena, sets, parameters, endpoint, link, isInitialized, processingMode},
                  {}, running)
                  .run(),
              exitCode);
    EXPECT_EQ(static_cast<bool>(sync.event(ThreadEvent::ping)), exitCode == 0);
    arena.release(rest);
  }
}

}  // namespace
}  // namespace vellumic::test
