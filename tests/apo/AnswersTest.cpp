// What every operation answers, in the order in which it tests its arguments.
#include <cmath>
#include <cstring>
#include <limits>

#include "apo/CaptureApo.h"
#include "apo/ComObject.h"
#include "tests/apo/ApoWorld.h"

namespace vellumic::test {
namespace {

constexpr HRESULT alreadyInitialized = static_cast<HRESULT>(0x887D0001),
                  notInitialized = static_cast<HRESULT>(0x887D0002),
                  alreadyUnlocked = static_cast<HRESULT>(0x887D0006),
                  invalidFormat = static_cast<HRESULT>(0x887D0009),
                  isLockedAlready = static_cast<HRESULT>(0x887D000A),
                  badHandle = static_cast<HRESULT>(0x80070006),
                  insufficientBuffer = static_cast<HRESULT>(0x8007007A);

class Answers : public ApoWorld {};

TEST_F(Answers, AboutItself) {
  for (const ClassCase& which : classCases) {
    SCOPED_TRACE(which.name);
    CaptureObject object(which.id);
    LONGLONG latency = 77;
    APO_REG_PROPERTIES* properties = nullptr;
    UINT32 channels = 77;
    auto* const apo = object.object.get();
    expectAnswers({
        {"reset", S_OK, [&] { return apo->Reset(); }},
        {"no latency", E_POINTER, [&] { return apo->GetLatency(nullptr); }},
        {"latency", S_OK, [&] { return apo->GetLatency(&latency); }},
        {"no record", E_POINTER, [&] { return apo->GetRegistrationProperties(nullptr); }},
        {"record", S_OK, [&] { return apo->GetRegistrationProperties(&properties); }},
        {"no count", E_POINTER, [&] { return apo->GetInputChannelCount(nullptr); }},
        {"count", notInitialized, [&] { return apo->GetInputChannelCount(&channels); }},
    });
    EXPECT_EQ(latency, 0);
    EXPECT_EQ(channels, 77U);
    ASSERT_NE(properties, nullptr);
    EXPECT_TRUE(IsEqualGUID(properties->clsid, which.id));
    EXPECT_TRUE(IsEqualGUID(properties->iidAPOInterfaceList[0], which.own));
    EXPECT_EQ(properties->Flags, which.flags);
    EXPECT_EQ(std::wstring(properties->szFriendlyName),
              L"CVellumicAPOCapture" + std::filesystem::path(which.name).wstring());
    const UINT32 numbers[] = {3, 18, 1, 1, 1, 1, 0xffffffff, 1};
    EXPECT_EQ(std::memcmp(&properties->u32MajorVersion, numbers, sizeof numbers), 0);
    CoTaskMemFree(properties);
    EXPECT_EQ(object.realTime->CalcInputFrames(441), 441U);
    EXPECT_EQ(object.realTime->CalcOutputFrames(0xffffffff), 0xffffffff);
  }
}

TEST_F(Answers, Initialize) {
  for (const ClassCase& which : classCases) {
    SCOPED_TRACE(which.name);
    CaptureObject object(which.id);
    const auto with = [&](auto change) {
      auto data = blob();
      change(data);
      return initialize(object, data);
    };
    expectAnswers({
        {"null", E_POINTER, [&] { return object.object->Initialize(0, nullptr); }},
        {"size 0", E_INVALIDARG, [&] { return initialize(object, blob(), 0); }},
        {"size 55", E_INVALIDARG, [&] { return initialize(object, blob(), 55); }},
        {"size 80", E_INVALIDARG, [&] { return initialize(object, blob(), 80); }},
        {"size huge", E_INVALIDARG, [&] { return initialize(object, blob(), 0xffffffff); }},
        {"no devices", E_INVALIDARG,
         [&] { return with([](auto& d) { d.pDeviceCollection = nullptr; }); }},
        {"no endpoint store", E_INVALIDARG,
         [&] { return with([](auto& d) { d.pAPOEndpointProperties = nullptr; }); }},
        {"no effect store", E_INVALIDARG,
         [&] { return with([](auto& d) { d.pAPOSystemEffectsProperties = nullptr; }); }},
        {"no such device", E_FAIL,
         [&] { return with([](auto& d) { d.nSoftwareIoDeviceInCollection = 3; }); }},
        {"empty collection", E_FAIL,
         [&] {
           FakeCollection none;
           return with([&](auto& d) { d.pDeviceCollection = &none; });
         }},
        {"no enumerator", E_FAIL,
         [&] {
           system.available = false;
           const HRESULT result = initialize(object, blob());
           system.available = true;
           return result;
         }},
        {"good after all these", S_OK, [&] { return initialize(object, blob()); }},
        {"null again", E_POINTER, [&] { return object.object->Initialize(0, nullptr); }},
        {"size 0 again", E_INVALIDARG, [&] { return initialize(object, blob(), 0); }},
        {"bad size again", alreadyInitialized, [&] { return initialize(object, blob(), 7); }},
        {"twice", alreadyInitialized, [&] { return initialize(object, blob()); }},
    });
    UINT32 channels = 77;
    EXPECT_EQ(object.object->GetInputChannelCount(&channels), S_OK);
    EXPECT_EQ(channels, 0U);  // until the first lock
  }
}

// The mode that counts shows in the formats that are accepted.
TEST_F(Answers, UnknownModesAndTheShortBlobMeanDefault) {
  MediaType format = MediaType::plain(2);
  const auto locks = [&](const GUID& wanted, UINT32 size) {
    CaptureObject object(efx.id);
    EXPECT_EQ(initialize(object, blob(wanted), size), S_OK);
    return object.lock(format);
  };
  EXPECT_EQ(locks(GUID{}, 88), S_OK);
  EXPECT_EQ(locks(mode::farFieldSpeech, 88), S_OK);
  EXPECT_EQ(locks(mode::communications, 88), invalidFormat);
  EXPECT_EQ(locks(mode::communications, 56), S_OK);
}

// The short blob ends where the page does.
TEST_F(Answers, NothingBehindTheBlobIsRead) {
  const auto page =
      reinterpret_cast<BYTE*>(VirtualAlloc(nullptr, 2 * 0x1000, MEM_RESERVE, PAGE_NOACCESS));
  ASSERT_NE(VirtualAlloc(page, 0x1000, MEM_COMMIT, PAGE_READWRITE), nullptr);
  for (const UINT32 size : {56U, 88U}) {
    const auto data = blob();
    std::memcpy(page + 0x1000 - size, &data, size);
    CaptureObject object(mfx.id);
    EXPECT_EQ(object.object->Initialize(size, page + 0x1000 - size), S_OK);
  }
  VirtualFree(page, 0, MEM_RELEASE);
}

TEST_F(Answers, LockAndUnlock) {
  for (const ClassCase& which : classCases) {
    SCOPED_TRACE(which.name);
    MediaType format = MediaType::plain(2, 16000), wrong = MediaType::plain(3);
    APO_CONNECTION_DESCRIPTOR good{APO_CONNECTION_BUFFER_TYPE_ALLOCATED, 0, 480, &format, 0};
    APO_CONNECTION_DESCRIPTOR formatless = good;
    formatless.pFormat = nullptr;
    APO_CONNECTION_DESCRIPTOR *connection = &good, *null = nullptr, *bare = &formatless;
    CaptureObject object(which.id);
    auto* const configuration = object.configuration.get();
    const auto lockWith = [&](UINT32 inputs, APO_CONNECTION_DESCRIPTOR** input, UINT32 outputs,
                              APO_CONNECTION_DESCRIPTOR** output) {
      return [=] { return configuration->LockForProcess(inputs, input, outputs, output); };
    };
    const auto badConnections = [&] {
      expectAnswers({
          {"no connection", E_UNEXPECTED, lockWith(0, &connection, 0, &connection)},
          {"two", E_UNEXPECTED, lockWith(2, &connection, 2, &connection)},
          {"unequal", E_UNEXPECTED, lockWith(1, &connection, 0, &connection)},
          {"no inputs", E_UNEXPECTED, lockWith(1, nullptr, 1, &connection)},
          {"no outputs", E_UNEXPECTED, lockWith(1, &connection, 1, nullptr)},
          {"null input", E_UNEXPECTED, lockWith(1, &null, 1, &connection)},
          {"null output", E_UNEXPECTED, lockWith(1, &connection, 1, &null)},
      });
    };
    badConnections();
    expectAnswers({
        {"not initialized", notInitialized, lockWith(1, &connection, 1, &connection)},
        {"unlock at first", alreadyUnlocked, [&] { return configuration->UnlockForProcess(); }},
    });
    ASSERT_EQ(initialize(object, blob()), S_OK);
    expectAnswers({
        {"no input format", E_UNEXPECTED, lockWith(1, &bare, 1, &connection)},
        {"no output format", E_UNEXPECTED, lockWith(1, &connection, 1, &bare)},
        {"unsupported", invalidFormat, [&] { return object.lock(wrong); }},
        {"unlock", alreadyUnlocked, [&] { return configuration->UnlockForProcess(); }},
        {"lock", S_OK, lockWith(1, &connection, 1, &connection)},
        {"twice", isLockedAlready, lockWith(1, &connection, 1, &connection)},
        {"twice, unsupported", isLockedAlready, [&] { return object.lock(wrong); }},
    });
    badConnections();
    EXPECT_EQ(wrong.references, 0U);   // replaced
    EXPECT_EQ(format.references, 2U);  // held while locked
    EXPECT_EQ(configuration->UnlockForProcess(), S_OK);
    EXPECT_EQ(format.references, 0U);
    EXPECT_EQ(configuration->UnlockForProcess(), alreadyUnlocked);
    UINT32 channels = 0;
    EXPECT_EQ(object.object->GetInputChannelCount(&channels), S_OK);
    EXPECT_EQ(channels, 2U);
    EXPECT_EQ(object.lock(format), S_OK);  // destroyed locked
  }
}

TEST_F(Answers, EffectsList) {
  constexpr GUID order[] = {
      {0x6F64ADC1, 0x8211, 0x11E2, {0x8C, 0x70, 0x2C, 0x27, 0xD7, 0xF0, 0x01, 0xFA}},
      {0x6F64ADBE, 0x8211, 0x11E2, {0x8C, 0x70, 0x2C, 0x27, 0xD7, 0xF0, 0x01, 0xFA}},
      {0x6F64ADBF, 0x8211, 0x11E2, {0x8C, 0x70, 0x2C, 0x27, 0xD7, 0xF0, 0x01, 0xFA}},
      {0x6F64ADC0, 0x8211, 0x11E2, {0x8C, 0x70, 0x2C, 0x27, 0xD7, 0xF0, 0x01, 0xFA}}};
  writeFactorySettings();
  for (const ClassCase& which : classCases) {
    SCOPED_TRACE(which.name);
    CaptureObject object(which.id);
    GUID* ids = nullptr;
    UINT count = 77;
    auto* const list = object.effects.get();
    EXPECT_EQ(list->GetEffectsList(&ids, &count, nullptr), E_POINTER);  // no image yet
    ASSERT_EQ(initialize(object, blob()), S_OK);
    MediaType format = MediaType::extensible(4, 0);
    ASSERT_EQ(object.lock(format), S_OK);
    const KernelHandle event(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    HANDLE const nonsense = reinterpret_cast<HANDLE>(std::intptr_t{0x7654});
    expectAnswers({
        {"no ids", E_POINTER, [&] { return list->GetEffectsList(nullptr, &count, nullptr); }},
        {"no count", E_POINTER, [&] { return list->GetEffectsList(&ids, nullptr, nullptr); }},
        {"event", S_OK, [&] { return list->GetEffectsList(&ids, &count, event.get()); }},
    });
    ASSERT_EQ(count, which.endpointEffect ? 0U : 4U);
    if (count != 0) {
      EXPECT_EQ(std::memcmp(ids, order, sizeof order), 0);
    } else {
      EXPECT_EQ(ids, nullptr);
    }
    CoTaskMemFree(ids);
    EXPECT_EQ(list->GetEffectsList(&ids, &count, nonsense), badHandle);
    ids = reinterpret_cast<GUID*>(std::uintptr_t{1});
    MediaType unprocessed = MediaType::plain(4);
    ASSERT_EQ(object.configuration->UnlockForProcess(), S_OK);
    ASSERT_EQ(object.lock(unprocessed), S_OK);
  }
}

// With the effect off there is nothing to list, and its change is told to who asked for it.
TEST_F(Answers, EffectsFollowASetting) {
  const ServiceObjects service;
  writeFactorySettings();
  CaptureObject object = initialized(mfx);
  MediaType format = MediaType::extensible(4, 0);
  ASSERT_EQ(object.lock(format), S_OK);
  const KernelHandle changed(CreateEventW(nullptr, FALSE, FALSE, nullptr));
  GUID* ids = nullptr;
  UINT count = 0;
  ASSERT_EQ(object.effects->GetEffectsList(&ids, &count, changed.get()), S_OK);
  CoTaskMemFree(ids);
  ASSERT_EQ(count, 4U);
  registry.select(L"none");
  registry.writeSetting(L"none", 1, rawCount, [](unsigned) { return 0.0F; });
  service.signalReload();
  ASSERT_EQ(WaitForSingleObject(changed.get(), 5000), WAIT_OBJECT_0);
  std::array<float, 4 * 480> samples{};
  for (int call = 0; call < 100 && count != 0; ++call) {  // adopted once the worker lets go
    object.process(samples.data(), 480);
    ASSERT_EQ(object.effects->GetEffectsList(&ids, &count, nullptr), S_OK);
    CoTaskMemFree(ids);
    if (count != 0) Sleep(1);
  }
  EXPECT_EQ(count, 0U);
  EXPECT_EQ(ids, nullptr);
}

TEST_F(Answers, OtherInterfaces) {
  for (const ClassCase& which : classCases) {
    SCOPED_TRACE(which.name);
    CaptureObject object(which.id);
    const auto formats = as<IAudioSystemEffectsCustomFormats>(object.object.get());
    const auto client = as<IMMNotificationClient>(object.object.get());
    const auto own = as<ICaptureState>(object.object.get(), which.own);
    ASSERT_TRUE(formats && client && own);
    UINT count = 77;
    VARIANT_BOOL state = 1;
    CActionResult<float>* result = nullptr;
    const auto perform = [&](int action) {
      return [&, action] {
        result = reinterpret_cast<CActionResult<float>*>(std::uintptr_t{1});
        return own->PerformAction(action, &result);
      };
    };
    expectAnswers({
        {"no count", E_POINTER, [&] { return formats->GetFormatCount(nullptr); }},
        {"count", S_OK, [&] { return formats->GetFormatCount(&count); }},
        {"format", E_INVALIDARG, [&] { return formats->GetFormat(0, nullptr); }},
        {"text", E_INVALIDARG, [&] { return formats->GetFormatRepresentation(0, nullptr); }},
        {"state", S_OK, [&] { return client->OnDeviceStateChanged(nullptr, 0); }},
        {"added", S_OK, [&] { return client->OnDeviceAdded(nullptr); }},
        {"removed", S_OK, [&] { return client->OnDeviceRemoved(nullptr); }},
        {"default", S_OK, [&] { return client->OnDefaultDeviceChanged(eAll, eConsole, nullptr); }},
        {"property", S_OK, [&] { return client->OnPropertyValueChanged(nullptr, {}); }},
        {"no state", E_POINTER, [&] { return own->GetState(nullptr); }},
        {"own state", S_OK, [&] { return own->GetState(&state); }},
        {"no result", E_POINTER, [&] { return own->PerformAction(99, nullptr); }},
        {"action 0", E_FAIL, perform(0)},
        {"action 4", E_FAIL, perform(4)},
        {"volume without image", E_FAIL, perform(3)},
        {"action 1", S_OK, perform(1)},
        {"action 2", S_OK, perform(2)},
    });
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(state, VARIANT_FALSE);
    EXPECT_EQ(result, nullptr);

    ASSERT_EQ(initialize(object, blob()), S_OK);
    microphone.volume.masterDb = -20.0F;
    MediaType format = MediaType::plain(2);
    ASSERT_EQ(object.lock(format), S_OK);
    EXPECT_EQ(own->GetState(&state), S_OK);
    EXPECT_EQ(state, VARIANT_TRUE);
    ASSERT_EQ(perform(3)(), S_OK);
    EXPECT_FLOAT_EQ(result->value, which.endpointEffect ? 1.0F : 0.1F);
    const auto held = ComPtr<IUnknown>::attach(reinterpret_cast<IUnknown*>(result));
    EXPECT_EQ(as<IUnknown>(held.get(), IID_IUnknown).get(), held.get());
    EXPECT_FALSE(as<IClassFactory>(held.get()));
    EXPECT_EQ(held->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
  }
}

// The operations behind the last slot that COM sees, on an object of the same code in this program.
TEST_F(Answers, OperationsBehindTheInterfaces) {
  ComPtr<IAudioProcessingObject> made;
  ASSERT_EQ((ComObject<CVellumicAPOCaptureMFX>::create(nullptr, __uuidof(IAudioProcessingObject),
                                                       made.putVoid())),
            S_OK);
  auto& base = static_cast<CBaseAudioProcessingObject&>(*made.get());
  MediaType format = MediaType::plain(2, 44100), failing = format;
  failing.uncompressed = E_ACCESSDENIED;
  APO_CONNECTION_DESCRIPTOR good{APO_CONNECTION_BUFFER_TYPE_ALLOCATED, 0, 480, &format, 0};
  APO_CONNECTION_DESCRIPTOR bad = good, bare = good;
  bad.pFormat = &failing;
  bare.pFormat = nullptr;
  APO_CONNECTION_DESCRIPTOR *connection = &good, *broken = &bad, *formatless = &bare;
  const auto validate = [&](UINT32 n, APO_CONNECTION_DESCRIPTOR** in, UINT32 m,
                            APO_CONNECTION_DESCRIPTOR** out) {
    return [=, &base] { return base.ValidateAndCacheConnectionInfo(n, in, m, out); };
  };
  std::array<std::byte, 0x48> buffer{};
  UINT32 written = 0;
  const auto represent = [&](void* target, UINT32 size, UINT32* count) {
    return [=, &base] { return base.GetDefaultFormatRepresentation(target, size, count); };
  };
  expectAnswers({
      {"no inputs", E_UNEXPECTED, validate(0, nullptr, 1, nullptr)},
      {"no outputs", E_UNEXPECTED, validate(1, nullptr, 0, nullptr)},
      {"null inputs", E_POINTER, validate(1, nullptr, 1, &connection)},
      {"null outputs", E_POINTER, validate(1, &connection, 1, nullptr)},
      {"no format", E_POINTER, validate(1, &formatless, 1, &connection)},
      {"input fails", E_ACCESSDENIED, validate(1, &broken, 1, &connection)},
      {"output fails", E_ACCESSDENIED, validate(1, &connection, 1, &broken)},
      {"before the images", S_OK, validate(1, &connection, 1, &connection)},
      {"nowhere to count", E_POINTER, represent(buffer.data(), 72, nullptr)},
      {"too small", insufficientBuffer, represent(nullptr, 71, &written)},
      {"no buffer", E_POINTER, represent(nullptr, 72, &written)},
      {"fits", S_OK, represent(buffer.data(), 72, &written)},
  });
  EXPECT_EQ(written, 0x48U);

  UNCOMPRESSEDAUDIOFORMAT standard{};
  std::memcpy(&standard, buffer.data(), sizeof standard);
  EXPECT_EQ(base.ValidateDefaultAPOFormat(standard), 0U);
  struct Rate {
    float given, forced;
  };
  for (const Rate rate :
       {Rate{9.9F, 10.0F}, Rate{1e9F, 384000.0F}, Rate{NAN, 10.0F}, Rate{-INFINITY, 10.0F}}) {
    UNCOMPRESSEDAUDIOFORMAT changed = standard;
    changed.fFramesPerSecond = rate.given;
    EXPECT_EQ(base.ValidateDefaultAPOFormat(changed), 1U);
    EXPECT_EQ(changed.fFramesPerSecond, rate.forced);
  }
  UNCOMPRESSEDAUDIOFORMAT odd{{}, 5000, 2, 16, 48000.0F, 0};
  EXPECT_EQ(base.ValidateDefaultAPOFormat(odd), 1U);
  EXPECT_EQ(odd.dwSamplesPerFrame, 4096U);
  EXPECT_EQ(odd.dwBytesPerSampleContainer, 4U);
  EXPECT_EQ(odd.dwValidBitsPerSample, 32U);
}

}  // namespace
}  // namespace vellumic::test
