// Whole lives of an object in which one call fails, to the system, to a device or to the heap: each
// import that can fail, each of its calls in turn, on whatever thread. The answer is a stated one,
// a second try succeeds, a later reload is taken, nothing leaks, and the next life is sound.
#include <windows.h>

#include <aclapi.h>
#include <process.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <filesystem>
#include <limits>
#include <string_view>
#include <type_traits>

#include "tests/apo/ApoWorld.h"
#include "tests/support/OpenHandles.h"
#include "tests/support/SystemCalls.h"

namespace vellumic::test {
namespace {

std::atomic<int> callsLeft{0};          // the call that brings it to 0 fails; of any thread
std::atomic<const char*> failing = "";  // the import whose calls count
std::atomic<int> blocks{0}, uses{0};    // what the library holds: of the heap, of the apartment

bool turnHasCome(std::string_view import) {
  return callsLeft.load() > 0 && import == failing.load() && callsLeft.fetch_sub(1) == 1;
}

// Stands before the import: fails when its turn has come, and counts what it gives or takes.
template <auto function, auto failure, DWORD error, std::atomic<int>* held, int change>
struct Stand;
template <class Result, class First, class... Rest, Result(WINAPI* function)(First, Rest...),
          auto failure, DWORD error, std::atomic<int>* held, int change>
struct Stand<function, failure, error, held, change> {
  static inline auto real = function;
  static inline std::string_view name;

  static Result WINAPI call(First first, Rest... rest) {
    if constexpr (change < 0) {
      *held -= first != nullptr ? 1 : 0;
      return real(first, rest...);
    } else {
      if (turnHasCome(name)) {
        if (error != ERROR_SUCCESS) SetLastError(error);
        return Result(failure);
      }
      const Result result = real(first, rest...);
      if constexpr (change > 0) {
        bool given = std::is_pointer_v<Result> == (result != Result(0));                // S_OK is 0
        if constexpr (std::is_same_v<First, void*>) given = given && first == nullptr;  // realloc
        *held += given ? 1 : 0;
      }
      return result;
    }
  }
};

struct Import {
  const char* name;
  void (*put)(ImportTable& imports, const char* name);
};
template <auto function, auto failure = 0, DWORD error = ERROR_SUCCESS,
          std::atomic<int>* held = nullptr, int change = 0>
constexpr Import fault(const char* import) {
  return {import, [](ImportTable& imports, const char* name) {
            using Here = Stand<function, failure, error, held, change>;
            Here::name = name;
            Here::real = imports.put(name, &Here::call);
          }};
}
template <auto function, std::atomic<int>& held, int change, auto failure = 0>
constexpr Import counted(const char* import) {
  return fault<function, failure, ERROR_SUCCESS, &held, change>(import);
}

// Not among them: SetEvent, CreateSemaphoreA, TlsAlloc, realloc and _strdup, by which the C++ and
// thread libraries make locks and thread records, and which they cannot do without;
// WaitForSingleObject, whose wait for the board's mutex Damage lets fail; PropVariantClear, which
// nobody asks for its result; LoadLibraryW and CryptAcquireContextA, which the library never calls.
constexpr DWORD denied = ERROR_ACCESS_DENIED;
constexpr Import faults[] = {
    fault<&RegOpenKeyExW, denied>("RegOpenKeyExW"),
    fault<&RegQueryValueExW, denied>("RegQueryValueExW"),
    fault<&CreateEventW, 0, denied>("CreateEventW"),
    fault<&OpenEventW, 0, denied>("OpenEventW"),
    fault<&OpenMutexW, 0, denied>("OpenMutexW"),
    fault<&OpenFileMappingW, 0, denied>("OpenFileMappingW"),
    fault<&OpenSemaphoreW, 0, denied>("OpenSemaphoreW"),
    fault<&MapViewOfFile, 0, denied>("MapViewOfFile"),
    fault<&DuplicateHandle, FALSE, denied>("DuplicateHandle"),
    fault<&AllocateAndInitializeSid, FALSE, denied>("AllocateAndInitializeSid"),
    fault<&InitializeSecurityDescriptor, FALSE, denied>("InitializeSecurityDescriptor"),
    fault<&SetSecurityDescriptorDacl, FALSE, denied>("SetSecurityDescriptorDacl"),
    fault<&SetEntriesInAclW, ERROR_NOT_ENOUGH_MEMORY>("SetEntriesInAclW"),
    fault<&LocalAlloc, 0, denied>("LocalAlloc"),
    fault<&WaitForMultipleObjects, WAIT_FAILED, denied>("WaitForMultipleObjects"),
    fault<&CoCreateInstance, REGDB_E_CLASSNOTREG>("CoCreateInstance"),
    fault<&CoCreateGuid, E_FAIL>("CoCreateGuid"),
    fault<&CLSIDFromString, CO_E_CLASSSTRING>("CLSIDFromString"),
    fault<&StringFromGUID2>("StringFromGUID2"),
    counted<&CoIncrementMTAUsage, uses, 1, E_OUTOFMEMORY>("CoIncrementMTAUsage"),
    fault<&CoTaskMemAlloc>("CoTaskMemAlloc"),
    fault<&_beginthreadex>("_beginthreadex"),
    counted<&malloc, blocks, 1>("malloc"),
    counted<&calloc, blocks, 1>("calloc"),
    counted<&_aligned_malloc, blocks, 1>("_aligned_malloc"),
    {"a method of a device",
     [](ImportTable&, const char*) {
       deviceCallFails = [] { return turnHasCome("a method of a device"); };
     }},
};

constexpr Import unfailing[] = {
    counted<&realloc, blocks, 1>("realloc"),
    counted<&_strdup, blocks, 1>("_strdup"),
    counted<&free, blocks, -1>("free"),
    counted<&_aligned_free, blocks, -1>("_aligned_free"),
    counted<&CoDecrementMTAUsage, uses, -1>("CoDecrementMTAUsage"),
};

class Faults : public ApoWorld {
 protected:
  Faults() {
    for (const Import& import : faults) import.put(imports, import.name);
    for (const Import& import : unfailing) import.put(imports, import.name);
  }
  ~Faults() override {
    deviceCallFails = [] { return false; };
  }

  struct Results {
    HRESULT create, initialize, lock;
    bool answers;  // the worker, to a ping after a reload
    bool operator==(const Results&) const = default;
    bool refused() const { return create != S_OK || initialize != S_OK || lock != S_OK; }
  };
  Results life(const ClassCase& which, DWORD patienceMs = 20000) {
    std::vector<std::string> before = calls.stillOpen();
    const int usesBefore = uses;
    reloads = 0;
    const Results results = wholeLife(which, patienceMs);
    for (int wait = 0; wait < 1000 && blocks > mostBlocks; ++wait) Sleep(1);
    EXPECT_LE(blocks, mostBlocks);
    EXPECT_EQ(uses, usesBefore);
    const std::vector<std::string> after = calls.stillOpen();
    // A second reload costs a key, the agreed price.
    if (reloads == 2 && after.size() > before.size()) {
      before.insert(std::ranges::upper_bound(before, settings), settings);
      ++agreedKeys;
    }
    EXPECT_EQ(after, before);
    return results;
  }
  const std::string settings = std::filesystem::path(machine::settings).string();
  SystemCalls calls{library(), SystemCalls::Keeps::openObjects};
  ImportTable imports{library()};
  const ServiceObjects service;
  int mostBlocks = std::numeric_limits<int>::max();  // that may stay after a life
  int reloads = 0;                                   // of the latest life
  int agreedKeys = 0;                                // left open by all lives
  enum Stage : std::size_t { whole, locking, running };
  std::array<int, 3> turns{};  // what becomes callsLeft when the stage begins
  bool withoutArena = false;   // such an object can never be initialised

 private:
  Results wholeLife(const ClassCase& which, DWORD patienceMs) {
    Results results{S_OK, S_OK, S_OK, false};
    begin(whole);
    registry.select(L"none");
    CaptureObject object(which.id, &results.create);
    if (!object.object) return results;
    const std::vector<std::string> atFirst = calls.stillOpen();
    results.initialize = initialize(object, blob(mode::speech));
    MediaType format = MediaType::extensible(4, 0);
    if (results.initialize != S_OK) {
      EXPECT_EQ(calls.stillOpen(), atFirst);
      expectUninitialized(object, format);
      if (withoutArena) return results;
      EXPECT_EQ(initialize(object, blob(mode::speech)), S_OK);
    }
    begin(locking);
    results.lock = object.lock(format);
    if (results.lock != S_OK) {
      EXPECT_TRUE(microphone.volume.callbacks.empty());
      EXPECT_EQ(object.lock(format), S_OK);
    }
    begin(running);
    registry.select(L"1");
    // The object told no name when a failure took it.
    const KernelHandle reload = service.propertyEvent();
    const UINT wanted = which.endpointEffect ? 0 : 4;
    UINT effects = 99;
    do {
      if (reload) SetEvent(reload.get());
      results.answers = service.pingIsAnswered(patienceMs);  // reloads come first
      effects = effectsOf(object);
    } while (++reloads < 2 && results.answers && effects != wanted);
    EXPECT_TRUE(!reload || !results.answers || effects == wanted) << effects;
    tellRecord(object);
    EXPECT_EQ(object.configuration->UnlockForProcess(), S_OK);
    object = CaptureObject();
    EXPECT_EQ(format.references, 0U);
    return results;
  }
  void begin(Stage stage) {
    if (turns[stage] != 0) callsLeft = std::exchange(turns[stage], 0);
  }
  void expectUninitialized(CaptureObject& object, MediaType& format) {
    IAudioMediaType* supported = nullptr;
    EXPECT_EQ(filter.store.references, 0U);
    EXPECT_EQ(object.listEffects(), E_POINTER);
    EXPECT_EQ(object.object->IsInputFormatSupported(nullptr, &format, &supported),
              static_cast<HRESULT>(0x887D0003));
    EXPECT_EQ(object.lock(format), static_cast<HRESULT>(0x887D0002));
  }
  UINT effectsOf(CaptureObject& object) {
    EXPECT_TRUE(object.sounds());
    UINT count = 99;
    const HRESULT result = object.listEffects(changed.get(), &count);
    EXPECT_TRUE(result == S_OK || count == 0);
    return result == S_OK ? count : 99;
  }
  static void tellRecord(CaptureObject& object) {
    auto* record = reinterpret_cast<APO_REG_PROPERTIES*>(std::uintptr_t{1});
    const HRESULT result = object.object->GetRegistrationProperties(&record);
    EXPECT_EQ(result, record != nullptr ? S_OK : E_OUTOFMEMORY);
    CoTaskMemFree(record);
  }
  const KernelHandle changed{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
};

TEST_F(Faults, EachCallToTheSystemAndTheHeapFailsOnceInTurn) {
  writeFactorySettings();
  registry.writeSetting(L"none", 1, 1, [](unsigned) { return 0.0F; });
  system.defaultRender = &speaker;
  const Results sound{S_OK, S_OK, S_OK, true};
  {  // What is made once stays: tables, records of threads, an exception's.
    failing = "_beginthreadex";
    turns[whole] = 1;
    EXPECT_TRUE(life(mfx).refused());
    for (std::size_t n = 0; n < 9; ++n) ASSERT_EQ(life(classCases[n % 3]), sound);
  }
  mostBlocks = blocks;
  const std::size_t memoryAtFirst = residentBytes();
  for (const Import& fault : faults) {
    SCOPED_TRACE(fault.name);
    failing = fault.name;
    int lives = 0, refused = 0;
    const int handles = openHandles() - agreedKeys;
    const std::string_view import = fault.name;
    const bool memory = import == "malloc" || import == "calloc" || import == "_aligned_malloc";
    const bool many = memory || import == "RegQueryValueExW";  // 1365 calls alike for each setting
    withoutArena = import == "calloc";
    const auto livesWithFailures = [&](Stage stage, const ClassCase& which = mfx) {
      const int before = lives;
      // Of many calls alike the first ones, and some of the rest.
      for (int turn = 1; turn < 100000; turn += many && turn > 12 ? turn / 3 : 1) {
        turns[stage] = turn;
        const std::vector board(service.board().begin(), service.board().end());
        const Results results = life(which, 500);  // the failure may take the board or the worker
        if (callsLeft.exchange(0) > 0) break;      // not reached any more
        ++lives;
        if (import == "CoCreateGuid") {  // without a name nothing is published
          EXPECT_TRUE(std::ranges::equal(service.board(), board));
        }
        for (const HRESULT result : {results.create, results.initialize, results.lock})
          EXPECT_TRUE(result == S_OK || result == E_FAIL || result == E_OUTOFMEMORY)
              << std::hex << result << " at call " << std::dec << turn;
        refused += results.refused() ? 1 : 0;
        if (many && lives % 3 != 0) continue;
        EXPECT_EQ(life(classCases[static_cast<std::size_t>(turn) % 3]), sound) << "after " << turn;
      }
      if (stage == whole || import == "malloc") {  // others may come early, on the helper
        EXPECT_GT(lives, before) << "in stage " << stage;
      }
    };
    livesWithFailures(whole);
    if (memory)  // whose calls at the start hide the few of later stages
      for (const Stage stage : {locking, running}) livesWithFailures(stage);
    if (import == "_beginthreadex") livesWithFailures(whole, kdmfx);  // whose worker starts last
    if (import == "RegOpenKeyExW" || import == "_beginthreadex")      // looks for its headset
      livesWithFailures(whole, efx);
    // Registry, named objects and identifiers are done without; devices and threads are not.
    const bool needed = memory || import == "CoCreateInstance" || import == "_beginthreadex" ||
                        import == "a method of a device";
    EXPECT_EQ(refused > 0, needed);
    EXPECT_LE(openHandles() - agreedKeys, handles + 4);
    std::printf("%-30s %3d lives with a failure, %d refused\n", fault.name, lives, refused);
  }
  EXPECT_LT(residentBytes(), memoryAtFirst + (16U << 20));  // the heap keeps some pages
  EXPECT_EQ(canUnload(), S_OK);
}

}  // namespace
}  // namespace vellumic::test
