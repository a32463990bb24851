// What the shipped library calls while the real-time thread is inside it.
#include <cmath>
#include <set>

#include "tests/apo/ApoWorld.h"
#include "tests/support/ImportTable.h"

namespace vellumic::test {
namespace {

// Destructors of empty matrices free a null pointer, which does nothing; anything else counts.
DWORD quietThread = 0;
int frees = 0;
void (*realFree)(void*) = nullptr;
void watchedFree(void* memory) {
  if (memory == nullptr) return;
  if (GetCurrentThreadId() == quietThread) ++frees;
  realFree(memory);
}

class QuietCalls : public ApoWorld {};

TEST_F(QuietCalls, NoWaitNoAllocationNoLock) {
  const ServiceObjects service;
  writeFactorySettings();
  system.defaultRender = &speaker;
  struct Stream {
    unsigned channels, rate;
    GUID mode;
  };
  const Stream streams[] = {{4, 48000, mode::standard},
                            {8, 16000, mode::speech},
                            {1, 44100, mode::raw},
                            {2, 48000, mode::speech}};
  std::set<std::string> called;
  for (const ClassCase& which : classCases)
    for (const Stream& stream : streams) {
      // Two seconds of loopback wait from the start: with sound, silent ones, a gap at the end.
      auto& packets = speaker.client.capture.packets;
      packets.resize(200);
      for (std::size_t i = 0; i < packets.size(); ++i)
        packets[i] = {.samples = std::vector<float>(2 * 480, 0.1F * static_cast<float>(i % 7)),
                      .flags = i % 11 == 0 ? DWORD{AUDCLNT_BUFFERFLAGS_SILENT} : 0};
      ImportTable imports(library());
      realFree = imports.put("free", &watchedFree);
      MediaType format = MediaType::plain(stream.channels, stream.rate);
      CaptureObject object = locked(which, format, stream.mode);
      Sleep(20);  // the loopback's helper
      const UINT32 frames = stream.rate / 100;
      std::vector<float> samples(frames * stream.channels);
      for (int call = 0; call < 120; ++call) {
        for (std::size_t i = 0; i < samples.size(); ++i)
          samples[i] = 0.3F * std::sin(static_cast<float>(i) * 0.1F + static_cast<float>(call));
        if (call == 40) {  // by a fade
          registry.writeSlot(L"1", Raw::fadeRequest, 1.0F);
          service.signalReload();
          Sleep(60);
        }
        quietThread = GetCurrentThreadId();
        imports.watchThisThread();
        object.process(samples.data(), frames, call % 10 == 9 ? BUFFER_SILENT : BUFFER_VALID);
        imports.stopWatching();
        quietThread = 0;
      }
      called.merge(imports.called());
      object = CaptureObject();
    }
  EXPECT_TRUE(called.contains("TryEnterCriticalSection"));  // the watch works
  EXPECT_EQ(frees, 0);
  // Nothing that can wait, allocate or enter the kernel. The rest is the library's own code.
  for (const char* function : {"TryEnterCriticalSection", "LeaveCriticalSection", "memset",
                               "memcpy", "memmove", "tan", "_hypot"})
    called.erase(function);
  EXPECT_EQ(called, std::set<std::string>{});
}

}  // namespace
}  // namespace vellumic::test
