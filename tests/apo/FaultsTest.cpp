// Whole lives of an object in which one call to the system fails: each import that can fail, each
// of its calls in turn. The answer is a stated one, nothing leaks, and the next life is sound.
#include <windows.h>

#include <aclapi.h>

#include <array>
#include <atomic>
#include <string_view>
#include <type_traits>

#include "tests/apo/ApoWorld.h"
#include "tests/support/OpenHandles.h"
#include "tests/support/SystemCalls.h"

namespace vellumic::test {
namespace {

std::atomic<int> callsLeft{0};  // the call that brings it to 0 fails; of any thread

bool failsNow() { return callsLeft.load() > 0 && callsLeft.fetch_sub(1) == 1; }

// Stands before the import: fails when its turn has come.
template <int tag, class Function>
struct Stand;
template <int tag, class Result, class... Arguments>
struct Stand<tag, Result(WINAPI*)(Arguments...)> {
  using Function = Result(WINAPI*)(Arguments...);
  static inline Function real = nullptr;
  static inline Result failure{};
  static inline DWORD error = ERROR_SUCCESS;

  static Result WINAPI call(Arguments... arguments) {
    if (!failsNow()) return real(arguments...);
    if (error != ERROR_SUCCESS) SetLastError(error);
    return failure;
  }
};

struct Fault {
  const char* import;
  // The import's own function, or null when the library does not import it.
  void (*put)(ImportTable& imports, bool& there);
};

template <int tag, auto function, auto failure, DWORD error = ERROR_SUCCESS>
Fault fault(const char* import) {
  using Here = Stand<tag, std::remove_const_t<decltype(function)>>;
  static const char* name;
  name = import;
  return {import, [](ImportTable& imports, bool& there) {
            Here::error = error;
            using Result = std::remove_cvref_t<decltype(Here::failure)>;
            if constexpr (std::is_pointer_v<Result>)
              Here::failure = nullptr;
            else
              Here::failure = static_cast<Result>(failure);
            void* original = imports.replace(name, reinterpret_cast<void*>(&Here::call));
            there = original != nullptr;
            if (there) Here::real = reinterpret_cast<typename Here::Function>(original);
          }};
}

using BeginThread = std::uintptr_t(WINAPI*)(void*, unsigned, unsigned(WINAPI*)(void*), void*,
                                            unsigned, unsigned*);
constexpr BeginThread beginThread = nullptr;

// SetEvent is not among them: the locks of the C++ library itself wake their waiters by it.
std::vector<Fault> faults() {
  constexpr DWORD denied = ERROR_ACCESS_DENIED;
  return {
      fault<0, &RegOpenKeyExW, ERROR_ACCESS_DENIED>("RegOpenKeyExW"),
      fault<1, &RegQueryValueExW, ERROR_ACCESS_DENIED>("RegQueryValueExW"),
      fault<3, &CreateEventW, 0, denied>("CreateEventW"),
      fault<4, &OpenEventW, 0, denied>("OpenEventW"),
      fault<5, &OpenMutexW, 0, denied>("OpenMutexW"),
      fault<6, &OpenFileMappingW, 0, denied>("OpenFileMappingW"),
      fault<7, &OpenSemaphoreW, 0, denied>("OpenSemaphoreW"),
      fault<8, &MapViewOfFile, 0, denied>("MapViewOfFile"),
      fault<9, &DuplicateHandle, FALSE, denied>("DuplicateHandle"),
      fault<11, &AllocateAndInitializeSid, FALSE, denied>("AllocateAndInitializeSid"),
      fault<12, &InitializeSecurityDescriptor, FALSE, denied>("InitializeSecurityDescriptor"),
      fault<13, &SetSecurityDescriptorDacl, FALSE, denied>("SetSecurityDescriptorDacl"),
      fault<14, &SetEntriesInAclW, ERROR_NOT_ENOUGH_MEMORY>("SetEntriesInAclW"),
      fault<15, &LocalAlloc, 0, denied>("LocalAlloc"),
      fault<16, &WaitForMultipleObjects, WAIT_FAILED, denied>("WaitForMultipleObjects"),
      fault<17, &CoCreateInstance, REGDB_E_CLASSNOTREG>("CoCreateInstance"),
      fault<18, &CoCreateGuid, E_FAIL>("CoCreateGuid"),
      fault<19, &CLSIDFromString, CO_E_CLASSSTRING>("CLSIDFromString"),
      fault<20, &StringFromGUID2, 0>("StringFromGUID2"),
      fault<21, &CoIncrementMTAUsage, E_OUTOFMEMORY>("CoIncrementMTAUsage"),
      fault<22, &CoTaskMemAlloc, 0>("CoTaskMemAlloc"),
      fault<23, beginThread, 0>("_beginthreadex"),
  };
}

class Faults : public ApoWorld {
 protected:
  struct Results {
    HRESULT initialize, lock;
    bool answers;  // the worker, to a ping after the reload
    bool operator==(const Results&) const = default;
  };
  Results life(DWORD patienceMs = 20000) {
    const OpenObjects before = calls.openObjects();
    const Results results = wholeLife(patienceMs);
    EXPECT_EQ(calls.openObjects(), before);
    return results;
  }
  SystemCalls calls{library(), SystemCalls::Keeps::openObjects};

 private:
  Results wholeLife(DWORD patienceMs) {
    CaptureObject object(mfx.id);
    if (!object.object) return {E_NOINTERFACE, E_NOINTERFACE, false};
    Results results{initialize(object, blob(mode::speech)), E_UNEXPECTED, false};
    MediaType format = MediaType::extensible(4, 0);
    results.lock = object.lock(format);
    std::array<float, 480 * 4> samples{};
    for (int call = 0; call < 3; ++call) object.process(samples.data(), 480);
    // The effect told no name when a failure took it.
    const StatusBlock told = service.block();
    if (const KernelHandle event{OpenEventW(EVENT_MODIFY_STATE, FALSE, told.propertyEvent.data())})
      SetEvent(event.get());
    // Reloads come first.
    results.answers = results.lock == S_OK && service.pingIsAnswered(patienceMs);
    const KernelHandle changed(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    GUID* ids = nullptr;
    UINT count = 0;
    if (object.effects) object.effects->GetEffectsList(&ids, &count, changed.get());
    CoTaskMemFree(ids);
    for (int call = 0; call < 3; ++call) object.process(samples.data(), 480);
    object.configuration->UnlockForProcess();
    object = CaptureObject();
    EXPECT_EQ(format.references, 0U);
    return results;
  }
  const ServiceObjects service;
};

TEST_F(Faults, EachCallToTheSystemFailsOnceInTurn) {
  writeFactorySettings();
  system.defaultRender = &speaker;
  const Results sound{S_OK, S_OK, true};
  for (int n = 0; n < 5; ++n) ASSERT_EQ(life(), sound);
  std::string neverFailed;
  for (const Fault& fault : faults()) {
    SCOPED_TRACE(fault.import);
    ImportTable imports(library());
    bool there = false;
    fault.put(imports, there);
    ASSERT_TRUE(there);
    int lives = 0, refused = 0;
    const int handles = openHandles();
    const std::string_view import = fault.import;
    const bool reading = import == "RegQueryValueExW";  // 1365 calls alike for each setting
    for (int turn = 1;; turn += reading ? 1 + turn / 10 : 1) {
      callsLeft = turn;
      const Results results = life(1000);  // the failure may take the board or the worker
      const bool reached = callsLeft.exchange(0) <= 0;
      if (!reached) break;
      ++lives;
      for (const HRESULT result : {results.initialize, results.lock}) {
        const bool audioEngines = static_cast<unsigned>(result) >> 16U == 0x887DU;
        EXPECT_TRUE(result == S_OK || result == E_FAIL || result == E_OUTOFMEMORY || audioEngines ||
                    result == E_NOINTERFACE || result == REGDB_E_CLASSNOTREG)
            << std::hex << result << " at call " << std::dec << turn;
      }
      refused += results.initialize == S_OK && results.lock == S_OK ? 0 : 1;
      EXPECT_EQ(life(), sound) << "after call " << turn;
      ASSERT_LT(turn, 100000);
    }
    if (lives == 0) neverFailed += std::string(import) + ' ';
    // Registry, named objects and identifiers are done without; devices and threads are not.
    const bool needed = import == "CoCreateInstance" || import == "_beginthreadex";
    EXPECT_EQ(refused > 0, needed);
    EXPECT_LE(openHandles(), handles + 4);
    std::printf("%-30s %3d lives with a failure, %d refused\n", fault.import, lives, refused);
  }
  EXPECT_EQ(neverFailed, "");
  EXPECT_EQ(exported<HRESULT WINAPI()>("DllCanUnloadNow")(), S_OK);
}

}  // namespace
}  // namespace vellumic::test
