// What every operation answers, in the order in which it tests its arguments.
#include <cmath>
#include <cstring>
#include <functional>
#include <utility>

#include "apo/CaptureApo.h"
#include "apo/ComObject.h"
#include "apo/EffectSlots.h"
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
  for (std::size_t place = 0; place < classCases.size(); ++place) {
    SCOPED_TRACE(classCases[place].name);
    CaptureObject object(classCases[place].id);
    LONGLONG latency = 77;
    APO_REG_PROPERTIES* properties = nullptr;
    UINT32 channels = 77;
    auto* const apo = object.object.get();
    EXPECT_EQ(apo->Reset(), S_OK);
    EXPECT_EQ(apo->GetLatency(nullptr), E_POINTER);
    EXPECT_EQ(apo->GetLatency(&latency), S_OK);
    EXPECT_EQ(apo->GetRegistrationProperties(nullptr), E_POINTER);
    EXPECT_EQ(apo->GetRegistrationProperties(&properties), S_OK);
    EXPECT_EQ(apo->GetInputChannelCount(nullptr), E_POINTER);
    EXPECT_EQ(apo->GetInputChannelCount(&channels), notInitialized);
    EXPECT_EQ(latency, 0);
    EXPECT_EQ(channels, 77U);
    ASSERT_NE(properties, nullptr);
    EXPECT_EQ(std::memcmp(properties, effectSlots[place].record, sizeof *properties), 0);
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
    EXPECT_EQ(object.object->Initialize(0, nullptr), E_POINTER);
    for (const UINT32 size : {0U, 55U, 80U, 0xffffffffU})
      EXPECT_EQ(initialize(object, blob(), size), E_INVALIDARG);
    EXPECT_EQ(with([](auto& d) { d.pDeviceCollection = nullptr; }), E_INVALIDARG);
    EXPECT_EQ(with([](auto& d) { d.pAPOEndpointProperties = nullptr; }), E_INVALIDARG);
    EXPECT_EQ(with([](auto& d) { d.pAPOSystemEffectsProperties = nullptr; }), E_INVALIDARG);
    EXPECT_EQ(with([](auto& d) { d.nSoftwareIoDeviceInCollection = 3; }), E_FAIL);
    FakeCollection none;
    EXPECT_EQ(with([&](auto& d) { d.pDeviceCollection = &none; }), E_FAIL);
    EXPECT_EQ(initialize(object, blob()), S_OK);
    EXPECT_EQ(initialize(object, blob(), 7), alreadyInitialized);
    UINT32 channels = 77;
    EXPECT_EQ(object.object->GetInputChannelCount(&channels), S_OK);
    EXPECT_EQ(channels, 0U);  // until the first lock
  }
}

// The mode that counts shows in the formats that are accepted.
TEST_F(Answers, UnknownModesAndTheShortBlobMeanDefault) {
  // The blob ends where the page does: nothing behind it is read.
  auto* const page =
      static_cast<BYTE*>(VirtualAlloc(nullptr, 2 * 0x1000, MEM_RESERVE, PAGE_NOACCESS));
  ASSERT_NE(VirtualAlloc(page, 0x1000, MEM_COMMIT, PAGE_READWRITE), nullptr);
  MediaType format = MediaType::plain(2);
  const auto locks = [&](const GUID& wanted, UINT32 size) {
    const auto data = blob(wanted);
    std::memcpy(page + 0x1000 - size, &data, size);
    CaptureObject object(efx.id);
    EXPECT_EQ(object.object->Initialize(size, page + 0x1000 - size), S_OK);
    return object.lock(format);
  };
  EXPECT_EQ(locks(GUID{}, 88), S_OK);
  EXPECT_EQ(locks(mode::farFieldSpeech, 88), S_OK);
  EXPECT_EQ(locks(mode::communications, 88), invalidFormat);
  EXPECT_EQ(locks(mode::communications, 56), S_OK);
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
    MediaType onlyOnce = format;  // told to the table, not to the lock
    CaptureObject object(which.id);
    auto* const configuration = object.configuration.get();
    const auto lockWith = std::bind_front(&IAudioProcessingObjectConfiguration::LockForProcess,
                                          std::ref(*configuration));
    const auto badConnections = [&] {
      for (const auto& [inputs, outputs] : {std::pair(0U, 0U), {2U, 1U}, {1U, 2U}, {1U, 0U}})
        EXPECT_EQ(lockWith(inputs, &connection, outputs, &connection), E_UNEXPECTED);
      EXPECT_EQ(lockWith(1, nullptr, 1, &connection), E_UNEXPECTED);
      EXPECT_EQ(lockWith(1, &connection, 1, nullptr), E_UNEXPECTED);
      EXPECT_EQ(lockWith(1, &null, 1, &connection), E_UNEXPECTED);
      EXPECT_EQ(lockWith(1, &connection, 1, &null), E_UNEXPECTED);
    };
    badConnections();
    EXPECT_EQ(lockWith(1, &connection, 1, &connection), notInitialized);
    EXPECT_EQ(configuration->UnlockForProcess(), alreadyUnlocked);
    ASSERT_EQ(initialize(object, blob()), S_OK);
    EXPECT_EQ(lockWith(1, &bare, 1, &connection), E_UNEXPECTED);
    EXPECT_EQ(lockWith(1, &connection, 1, &bare), E_UNEXPECTED);
    onlyOnce.answers = 1;
    EXPECT_EQ(object.lock(onlyOnce, format), invalidFormat);
    onlyOnce.answers = 1;
    EXPECT_EQ(object.lock(format, onlyOnce), invalidFormat);
    EXPECT_EQ(object.lock(wrong), invalidFormat);
    EXPECT_EQ(configuration->UnlockForProcess(), alreadyUnlocked);
    EXPECT_EQ(lockWith(1, &connection, 1, &connection), S_OK);
    EXPECT_EQ(lockWith(1, &connection, 1, &connection), isLockedAlready);
    EXPECT_EQ(object.lock(wrong), isLockedAlready);
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

using Ids = std::vector<unsigned long>;  // by their first parts

// What is listed of these effects with these entries of the mask.
Ids listed(std::span<const ReportedEffect> effects, const std::vector<std::size_t>& entries,
           float enable = 1.0F) {
  std::vector<float> image(imageSize);
  std::vector<std::uint8_t> mask(imageSize);
  image[0] = enable;
  for (const std::size_t entry : entries) mask[entry] = 1;
  GUID* ids = reinterpret_cast<GUID*>(std::uintptr_t{1});
  UINT count = 77;
  EXPECT_EQ(listEffects(effects, ImageView(image.data()), MaskView(mask.data()), &ids, &count),
            S_OK);
  EXPECT_EQ(ids == nullptr, count == 0);
  Ids firstParts;
  for (const GUID& id : std::span(ids, count)) {
    firstParts.push_back(id.Data1);
    const GUID whole{id.Data1, 0x8211, 0x11E2, {0x8C, 0x70, 0x2C, 0x27, 0xD7, 0xF0, 1, 0xFA}};
    EXPECT_TRUE(IsEqualGUID(id, whole));
  }
  CoTaskMemFree(ids);
  return firstParts;
}

// In the order of the list; nothing while the effect is off.
TEST_F(Answers, EffectsByTheirMasks) {
  constexpr auto array = ModeEffectTraits::effects, endpoint = EndpointEffectTraits::effects;
  const std::vector<std::size_t> all{2140, 2141, 2142, 2143};
  EXPECT_EQ(listed(array, all), (Ids{0x6F64ADC1, 0x6F64ADBE, 0x6F64ADBF, 0x6F64ADC0}));
  EXPECT_EQ(listed(array, all, 0.0F), Ids{});
  EXPECT_EQ(listed(array, {2141}), Ids{0x6F64ADC1});
  EXPECT_EQ(listed(array, {2140}, 0.5F), Ids{0x6F64ADBE});
  EXPECT_EQ(listed(array, {634, 2139, 2142}), Ids{0x6F64ADBF});
  EXPECT_EQ(listed(endpoint, {634}), Ids{0x6F64ADC3});
  EXPECT_EQ(listed(endpoint, {634}, 0.0F), Ids{});
  EXPECT_EQ(listed(endpoint, all), Ids{});
}

// What tells the three classes apart beside their records; the ledger and the answers show the
// rest.
TEST_F(Answers, TheClassesDiffer) {
  // Format type, mode of locks and of reloads; equaliser's entry renewed, pending effects told,
  // volume followed, output path read, worker started inside the lock.
  using Row = std::array<int, 8>;
  const auto rowOf = []<class Traits>() {
    return Row{int(Traits::formatType),       int(Traits::lockMode),
               int(Traits::worker.mode),      Traits::worker.copiesEqualizerEffect,
               Traits::reportsPendingEffects, Traits::followsVolume,
               Traits::readsOutputPath,       Traits::startsWorkerInsideLock};
  };
  EXPECT_EQ(rowOf.operator()<EndpointEffectTraits>(), (Row{13, 10, 10, 1, 1, 0, 1, 1}));
  EXPECT_EQ(rowOf.operator()<ModeEffectTraits>(), (Row{12, 9, 9, 0, 0, 1, 0, 1}));
  EXPECT_EQ(rowOf.operator()<KeywordDetectorTraits>(), (Row{14, 12, 9, 0, 0, 1, 0, 0}));
  EXPECT_EQ(effectSlots[2].chain, 17U);  // attaching shows the other places
}

TEST_F(Answers, OtherInterfaces) {
  for (const ClassCase& which : classCases) {
    SCOPED_TRACE(which.name);
    CaptureObject object(which.id);
    const auto formats = as<IAudioSystemEffectsCustomFormats>(object.object.get());
    const auto client = as<IMMNotificationClient>(object.object.get());
    const auto own = as<ICaptureState>(object.object.get(), which.own);
    ASSERT_TRUE(formats && client && own);
    auto* const list = object.effects.get();
    GUID* ids = nullptr;
    UINT count = 77;
    EXPECT_EQ(list->GetEffectsList(&ids, &count, nullptr), E_POINTER);  // no image yet
    VARIANT_BOOL state = 1;
    CActionResult<float>* result = nullptr;
    const auto perform = [&](int action) {
      result = reinterpret_cast<CActionResult<float>*>(std::uintptr_t{1});
      return own->PerformAction(action, &result);
    };
    EXPECT_EQ(formats->GetFormatCount(nullptr), E_POINTER);
    EXPECT_EQ(formats->GetFormatCount(&count), S_OK);
    EXPECT_EQ(formats->GetFormat(0, nullptr), E_INVALIDARG);
    EXPECT_EQ(formats->GetFormatRepresentation(0, nullptr), E_INVALIDARG);
    EXPECT_EQ(client->OnDefaultDeviceChanged(eAll, eConsole, nullptr), S_OK);
    EXPECT_EQ(own->GetState(nullptr), E_POINTER);
    EXPECT_EQ(own->GetState(&state), S_OK);
    EXPECT_EQ(own->PerformAction(99, nullptr), E_POINTER);
    for (const int action : {0, 1, 2, 3, 4})
      EXPECT_EQ(perform(action), action == 1 || action == 2 ? S_OK : E_FAIL);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(state, VARIANT_FALSE);
    EXPECT_EQ(result, nullptr);

    ASSERT_EQ(initialize(object, blob()), S_OK);
    EXPECT_EQ(list->GetEffectsList(nullptr, &count, nullptr), E_POINTER);
    EXPECT_EQ(list->GetEffectsList(&ids, nullptr, nullptr), E_POINTER);
    const auto nonsense = reinterpret_cast<HANDLE>(std::intptr_t{0x7654});
    EXPECT_EQ(list->GetEffectsList(&ids, &count, nonsense), badHandle);
    microphone.volume.masterDb = -20.0F;
    MediaType format = MediaType::plain(2);
    ASSERT_EQ(object.lock(format), S_OK);
    EXPECT_EQ(own->GetState(&state), S_OK);
    EXPECT_EQ(state, VARIANT_TRUE);
    ASSERT_EQ(perform(3), S_OK);
    EXPECT_FLOAT_EQ(result->value, which.endpointEffect ? 1.0F : 0.1F);
    const auto held = ComPtr<IUnknown>::attach(reinterpret_cast<IUnknown*>(result));
    EXPECT_EQ(as<IUnknown>(held.get(), IID_IUnknown).get(), held.get());
    EXPECT_FALSE(as<IClassFactory>(held.get()));
    EXPECT_EQ(held->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
  }
}

TEST_F(Answers, ABoardWithoutItsEventIsLeftAlone) {
  const ServiceObjects service(L"OfNobody");
  const CaptureObject object = initialized(mfx);
  EXPECT_TRUE(IsEqualGUID(service.block().classId, GUID{}));
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
  const auto validate =
      std::bind_front(&CBaseAudioProcessingObject::ValidateAndCacheConnectionInfo, std::ref(base));
  EXPECT_EQ(validate(0, nullptr, 1, nullptr), E_UNEXPECTED);
  EXPECT_EQ(validate(1, nullptr, 0, nullptr), E_UNEXPECTED);
  EXPECT_EQ(validate(1, nullptr, 1, &connection), E_POINTER);
  EXPECT_EQ(validate(1, &formatless, 1, &connection), E_POINTER);
  EXPECT_EQ(validate(1, &broken, 1, &connection), E_ACCESSDENIED);
  EXPECT_EQ(validate(1, &connection, 1, &broken), E_ACCESSDENIED);
  EXPECT_EQ(validate(1, &connection, 1, &connection), S_OK);
  std::array<std::byte, 0x48> buffer{};
  UINT32 written = 0;
  EXPECT_EQ(base.GetDefaultFormatRepresentation(buffer.data(), 72, nullptr), E_POINTER);
  EXPECT_EQ(base.GetDefaultFormatRepresentation(nullptr, 71, &written), insufficientBuffer);
  EXPECT_EQ(base.GetDefaultFormatRepresentation(nullptr, 72, &written), E_POINTER);
  EXPECT_EQ(base.GetDefaultFormatRepresentation(buffer.data(), 72, &written), S_OK);
  EXPECT_EQ(written, 0x48U);

  UNCOMPRESSEDAUDIOFORMAT standard{};
  std::memcpy(&standard, buffer.data(), sizeof standard);
  EXPECT_EQ(base.ValidateDefaultAPOFormat(standard), 0U);
  for (const auto& [given, forced] : {std::pair(9.9F, 10.0F), {1e9F, 384000.0F}, {NAN, 10.0F}}) {
    UNCOMPRESSEDAUDIOFORMAT odd{standard.guidFormatType, 5000, 2, 16, given, 0};
    EXPECT_EQ(base.ValidateDefaultAPOFormat(odd), 1U);
    const UNCOMPRESSEDAUDIOFORMAT mended{standard.guidFormatType, 4096, 4, 32, forced, 0};
    EXPECT_EQ(std::memcmp(&odd, &mended, sizeof odd), 0);
    odd = standard;
    odd.fFramesPerSecond = given;
    EXPECT_EQ(base.ValidateDefaultAPOFormat(odd), 1U);
  }
}

}  // namespace
}  // namespace vellumic::test
