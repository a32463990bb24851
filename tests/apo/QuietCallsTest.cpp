// What the shipped library calls while the real-time thread is inside it, and what it does when
// memory runs out.
#include <array>
#include <atomic>
#include <cmath>
#include <set>

#include "parameters/Catalogue.h"
#include "tests/apo/ApoWorld.h"
#include "tests/support/ImportTable.h"

namespace vellumic::test {
namespace {

// Nothing that can wait, allocate or enter the kernel. The rest of the library's calls are its own
// code.
const std::set<std::string> allowed{"TryEnterCriticalSection", "LeaveCriticalSection"};
const std::set<std::string> arithmetic{
    "memset", "memcpy", "memmove", "sinf",  "cosf",   "expf",   "logf",  "log10f",
    "powf",   "sqrtf",  "atan2f",  "tanf",  "hypotf", "sin",    "cos",   "exp",
    "log",    "log10",  "pow",     "sqrt",  "atan2",  "tan",    "floor", "ceil",
    "fmod",   "floorf", "ceilf",   "fmodf", "lrintf", "lround", "_hypot"};

// Destructors of empty matrices free a null pointer, which does nothing; anything else counts.
DWORD quietThread = 0;
int frees = 0;
void (*realFree)(void*) = nullptr;
void watchedFree(void* memory) {
  if (memory == nullptr) return;
  if (GetCurrentThreadId() == quietThread) ++frees;
  realFree(memory);
}

class QuietCalls : public ApoWorld {
 protected:
  // A minute of loopback waits from the start: packets with sound, silent ones, a gap at the end.
  void fillLoopback() {
    system.defaultRender = &speaker;
    speaker.client.capture.packets.reserve(400);
    for (int i = 0; i < 200; ++i) {
      FakePacket packet;
      packet.samples.assign(2 * 480, 0.1F * static_cast<float>(i % 7));
      packet.flags = i % 11 == 0 ? DWORD{2} : DWORD{0};
      speaker.client.capture.packets.push_back(packet);
    }
  }
};

TEST_F(QuietCalls, NoWaitNoAllocationNoLock) {
  const ServiceObjects service;
  writeFactorySettings();
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
      fillLoopback();
      ImportTable imports(library());
      realFree = reinterpret_cast<decltype(realFree)>(
          imports.replace("free", reinterpret_cast<void*>(&watchedFree)));
      ASSERT_NE(realFree, nullptr);
      CaptureObject object = initialized(which, stream.mode);
      MediaType format = MediaType::plain(stream.channels, stream.rate);
      ASSERT_EQ(object.lock(format), S_OK);
      Sleep(20);  // the loopback's helper
      const UINT32 frames = stream.rate / 100;
      std::vector<float> samples(frames * stream.channels);
      for (int call = 0; call < 120; ++call) {
        for (std::size_t i = 0; i < samples.size(); ++i)
          samples[i] = 0.3F * std::sin(static_cast<float>(i) * 0.1F + static_cast<float>(call));
        if (call == 40) {  // by a fade
          registry.writeSetting(L"1", 310, 310, [](unsigned) { return 1.0F; });
          service.signalReload();
          Sleep(60);
        }
        quietThread = GetCurrentThreadId();
        imports.watchThisThread();
        object.process(samples.data(), frames, call % 10 == 9 ? BUFFER_SILENT : BUFFER_VALID);
        imports.stopWatching();
        quietThread = 0;
      }
      for (const auto& function : imports.calls()) called.insert(function.function);
      object = CaptureObject();
    }
  EXPECT_TRUE(called.contains("TryEnterCriticalSection"));  // the watch works
  EXPECT_EQ(frees, 0);
  for (const std::string& function : called)
    EXPECT_TRUE(allowed.contains(function) || arithmetic.contains(function)) << function;
}

// Runs an action in which the nth allocation fails, on one thread or on any.
int nthAllocation = 0;
std::atomic<int> allocationsLeft{0};
bool reached = false;
constexpr DWORD anyThread = 0;
DWORD failingThread = anyThread;
bool failsNow() {
  return (failingThread == anyThread || GetCurrentThreadId() == failingThread) &&
         allocationsLeft > 0 && allocationsLeft.fetch_sub(1) == 1;
}
template <class Action>
HRESULT failing(Action action) {
  allocationsLeft = nthAllocation;
  const HRESULT result = action();
  reached = allocationsLeft.exchange(0) <= 0;
  return result;
}
void* (*realMalloc)(std::size_t) = nullptr;
void* (*realCalloc)(std::size_t, std::size_t) = nullptr;
void* WINAPI noTaskMemory(SIZE_T) { return nullptr; }

void letAllocationsFail(ImportTable& imports) {
  realMalloc = reinterpret_cast<decltype(realMalloc)>(
      imports.replace("malloc", reinterpret_cast<void*>(+[](std::size_t size) {
                        return failsNow() ? nullptr : realMalloc(size);
                      })));
  realCalloc = reinterpret_cast<decltype(realCalloc)>(
      imports.replace("calloc", reinterpret_cast<void*>(+[](std::size_t count, std::size_t size) {
                        return failsNow() ? nullptr : realCalloc(count, size);
                      })));
  ASSERT_TRUE(realMalloc != nullptr && realCalloc != nullptr);
}

// From the lock to the release, of the worker and of the loopback's helper too: the sets in force
// stay, and the next reload is taken.
TEST_F(QuietCalls, AnyAllocationOfARunningObjectMayFail) {
  const ServiceObjects service;
  system.defaultRender = &speaker;
  ImportTable imports(library());
  letAllocationsFail(imports);
  failingThread = anyThread;
  std::array<float, 4 * 480> samples{};
  const auto reload = [&](CaptureObject& object) {
    service.signalReload();
    EXPECT_TRUE(service.pingIsAnswered(20000));  // reloads come first
    for (int call = 0; call < 5; ++call)
      EXPECT_EQ(object.process(samples.data(), 480).u32ValidFrameCount, 480U);
    return S_OK;
  };
  std::array<int, 4> failures{};
  bool any = true;
  for (nthAllocation = 1; any; nthAllocation += 1 + nthAllocation / 4) {
    any = false;
    const auto attempt = [&](std::size_t step, auto action) {
      failing(action);
      failures[step] += reached ? 1 : 0;
      any = any || reached;
    };
    ASSERT_LT(nthAllocation, 20000);
    registry.select(L"none");
    registry.writeSetting(L"none", 1, rawCount, [](unsigned) { return 0.0F; });
    CaptureObject object = initialized(mfx, mode::speech);
    MediaType format = MediaType::extensible(4, 0);
    ASSERT_EQ(object.lock(format), S_OK);
    writeFactorySettings();
    attempt(0, [&] { return reload(object); });
    reload(object);
    GUID* ids = nullptr;
    UINT count = 0;
    EXPECT_EQ(object.effects->GetEffectsList(&ids, &count, nullptr), S_OK);
    CoTaskMemFree(ids);
    EXPECT_EQ(count, 4U) << nthAllocation;
    attempt(1, [&] { return object.configuration->UnlockForProcess(); });
    attempt(2, [&] { return object.lock(format); });
    attempt(3, [&] { return (object = CaptureObject()), S_OK; });
  }
  EXPECT_GT(failures[0], 0);
  EXPECT_GT(failures[2], 0);
  std::printf("failed: %d in reloads, %d unlocks, %d locks, %d releases\n", failures[0],
              failures[1], failures[2], failures[3]);
}

TEST_F(QuietCalls, AnyAllocationMayFail) {
  writeFactorySettings();
  ImportTable imports(library());
  letAllocationsFail(imports);
  failingThread = GetCurrentThreadId();
  ComPtr<IClassFactory> factory;
  exported<HRESULT WINAPI(REFCLSID, REFIID, void**)>("DllGetClassObject")(mfx.id, IID_IClassFactory,
                                                                          factory.putVoid());

  // Each step once for every allocation it makes; a failed step succeeds when tried again.
  const auto everyAllocation = [](const char* step, auto attempt) {
    int failures = 0;
    reached = true;
    for (nthAllocation = 1; reached; nthAllocation += 1 + nthAllocation / 4) {
      const HRESULT result = attempt();
      EXPECT_TRUE(result == S_OK || result == E_OUTOFMEMORY || result == E_FAIL)
          << step << ' ' << std::hex << result;
      failures += FAILED(result) ? 1 : 0;
      ASSERT_LT(nthAllocation, 20000) << step;
    }
    EXPECT_GT(failures, 0) << step;
  };
  everyAllocation("create", [&] {
    ComPtr<IUnknown> object;
    return failing(
        [&] { return factory->CreateInstance(nullptr, IID_IUnknown, object.putVoid()); });
  });
  everyAllocation("initialize", [&] {
    CaptureObject object(mfx.id);
    const HRESULT result = failing([&] { return initialize(object, blob()); });
    EXPECT_TRUE(SUCCEEDED(result) || initialize(object, blob()) == S_OK);
    return result;
  });
  everyAllocation("lock", [&] {
    MediaType format = MediaType::extensible(4, 0);
    CaptureObject object = initialized(mfx);
    const HRESULT result = failing([&] { return object.lock(format); });
    EXPECT_TRUE(SUCCEEDED(result) || object.lock(format) == S_OK);
    return result;
  });

  MediaType format = MediaType::extensible(4, 0);
  CaptureObject object = initialized(mfx);
  imports.replace("CoTaskMemAlloc", reinterpret_cast<void*>(&noTaskMemory));
  auto* record = reinterpret_cast<APO_REG_PROPERTIES*>(std::uintptr_t{1});
  EXPECT_EQ(object.object->GetRegistrationProperties(&record), E_OUTOFMEMORY);
  EXPECT_EQ(record, nullptr);
  ASSERT_EQ(object.lock(format), S_OK);
  GUID* ids = reinterpret_cast<GUID*>(std::uintptr_t{1});
  UINT count = 7;
  EXPECT_EQ(object.effects->GetEffectsList(&ids, &count, nullptr), E_OUTOFMEMORY);
  EXPECT_EQ(ids, nullptr);
  EXPECT_EQ(count, 0U);
}

}  // namespace
}  // namespace vellumic::test
