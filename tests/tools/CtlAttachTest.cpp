// vellumic-ctl attach and detach on real keys of the machine, beside no audio service.
#include "tests/support/ImportTable.h"
#include "tests/support/RunProgram.h"
#include "tests/tools/AttachEndpoint.h"

namespace vellumic::tools {
namespace {

using CtlAttach = InOwnFolder;

// What stands there for other purposes.
RegistryValues withOthers(RegistryValues values) {
  values[L""] = textValue(L"x");
  values[L"odd \"name\"\\"] = {.type = REG_DWORD, .data = {std::byte{1}, {}, {}, {}}};
  return values;
}

TEST_F(CtlAttach, ComesAndGoesWithoutATrace) {
  constexpr struct {
    const char *before, *options, *attached;  // before: null is no key
  } roundTrips[] = {
      {nullptr, "", "0=null 6=mfx m6=all 7=efx m7=all"},
      {"", "--class kdmfx --mode speech", "0=null 9=kdmfx m9=speech"},
      {"0=other 6=driver m6=other", "--replace", "0=other 6=mfx m6=all 7=efx m7=all"},
      {"6=driver m6=other,default", "--keep --class mfx",
       "0=null 6=driver 14=driver,mfx m6=other,default,raw,speech"},
      {"14=driver", "--replace --class mfx", "0=null 14=mfx m6=all"},
      {"1=driver", "--replace", "0=null 1=driver 6=mfx m6=all 7=efx m7=all"},
      {"7=null", "--class efx", "0=null 7=efx m7=all"},
      {"6=# 7=driver m6=#", "--keep", "0=null 6=mfx m6=all 7=driver 15=driver,efx m7=all"},
  };
  for (const auto& [text, options, attached] : roundTrips) {
    SCOPED_TRACE(attached);
    const auto before = text == nullptr ? std::optional<RegistryValues>()
                                        : std::optional(withOthers(effectValues(text)));
    const auto whole =
        before ? withOthers(effectValues(attached)) : std::optional(effectValues(attached));
    const Endpoint endpoint(before);
    succeeded(endpoint.attach(options + std::string(" --dry-run")));
    EXPECT_EQ(endpoint.values(), before);

    succeeded(endpoint.attach(options));
    EXPECT_EQ(endpoint.values(), whole);
    // The registry editor alone can put everything back, but for an empty key.
    ASSERT_EQ(test::runProgram("regedit /S " + endpoint.backup), 0);
    EXPECT_EQ(endpoint.values(), before.value_or(RegistryValues{}));
    writeEffects(endpoint.guid, *whole);

    expectParts(endpoint.attach(options).printed, {"attached like this already"});
    succeeded(endpoint.attach("--class mfx --replace"));  // another one over it
    succeeded(endpoint.detach());
    EXPECT_EQ(endpoint.values(), before);
    expectParts(endpoint.detach().complained, {"nothing of Vellumic is attached"});
  }
}

TEST_F(CtlAttach, RefusalsLeaveEverythingAsItWas) {
  const auto expectRefused = [](const char* before, const char* options, const char* complaint,
                                const char* backup = "before.reg") {
    Endpoint endpoint(effectValues(before));
    endpoint.backup = backup;
    expectRefusal(endpoint.attach(options), complaint);
    EXPECT_EQ(endpoint.values(), effectValues(before));
    EXPECT_FALSE(readAttachment(endpoint.guid));
  };
  expectRefused("6=driver", "", "the driver's effect {AAAAAAAA-1111-2222-3333-444444444444} is");
  expectRefused("1=driver", "--keep", "cannot run beside it; add --replace");
  expectRefused("", "--class gfx", "gfx not in {efx,mfx,kdmfx}");
  expectRefused("", "--keep --replace", "excludes");
  expectRefused("", "", "folder.reg: cannot be written whole", "C:\\no\\such\\folder.reg");
  // Rights that nobody gave are no error of the function that asks for them.
  test::ImportTable imports(GetModuleHandleW(nullptr));
  imports.put(
      "AdjustTokenPrivileges",
      +[](HANDLE, BOOL, TOKEN_PRIVILEGES*, DWORD, TOKEN_PRIVILEGES*, DWORD*) -> BOOL {
        SetLastError(ERROR_NOT_ALL_ASSIGNED);
        return TRUE;
      });
  expectRefused("", "", "lacks the rights to back up and restore");
}

// Somebody writes after us: what is theirs stays, the modes of a place that they took with it; what
// is ours goes.
TEST_F(CtlAttach, ChangesOfOthersOutliveUs) {
  const struct {
    const char *before, *written, *left;
  } cases[] = {
      {"", "6=driver", "0=null 6=driver m6=all"},
      {"14=driver", "14=driver,mfx,other", "0=null 14=driver,other m6=all"},
      {"0=other", "0=driver", "0=driver"},
      {"", "33=driver", "33=driver"},
  };
  for (const auto& [before, written, left] : cases) {
    const Endpoint endpoint(effectValues(before));
    succeeded(endpoint.attach());
    writeEffects(endpoint.guid, effectValues(written));
    succeeded(endpoint.detach());
    EXPECT_EQ(endpoint.values(), effectValues(left)) << left;
  }
}

TEST_F(CtlAttach, TextsEndWithTheirData) {
  RegistryValue value = textsValue({L"one", L"other"});
  value.data.resize(value.data.size() - 5);  // neither terminator, and half a unit
  EXPECT_EQ(textsOf(value), (std::vector<std::wstring>{L"one", L"othe"}));
  EXPECT_TRUE(textsOf({.type = REG_BINARY, .data = value.data}).empty());
}

}  // namespace
}  // namespace vellumic::tools
