// Whole lives: hundreds of them, and many with arguments from a random generator.
#include <windows.h>

#include <psapi.h>

#include <array>
#include <cstring>

#include "apo/OwnInterfaces.h"
#include "tests/apo/ApoWorld.h"
#include "tests/support/OpenHandles.h"
#include "tests/support/RandomRounds.h"

namespace vellumic::test {
namespace {

std::size_t committedBytes() {
  PROCESS_MEMORY_COUNTERS counters{};
  GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
  return counters.WorkingSetSize;
}

class Life : public ApoWorld {};

TEST_F(Life, HundredsOfRoundsWithoutGrowth) {
  const ServiceObjects service;
  system.defaultRender = &speaker;
  std::array<float, 480 * 4> samples{};
  const auto round = [&](int number) {
    const ClassCase& which = classCases[static_cast<std::size_t>(number) % 3];
    CaptureObject object(which.id);
    ASSERT_EQ(initialize(object, blob(mode::speech)), S_OK);
    MediaType format = MediaType::extensible(4, 0);
    ASSERT_EQ(object.lock(format), S_OK);
    const auto done = object.process(samples.data(), 480);
    ASSERT_EQ(done.u32ValidFrameCount, 480U);
    ASSERT_EQ(object.configuration->UnlockForProcess(), S_OK);
    object = CaptureObject();
    ASSERT_EQ(format.references, 0U);
  };
  constexpr int warmUp = 60, rounds = 300;
  for (int i = 0; i < warmUp; ++i) round(i);
  const std::size_t memory = committedBytes();
  ASSERT_GT(memory, 0U);
  const int handles = openHandles();
  for (int i = warmUp; i < rounds; ++i) round(i);
  const std::size_t grown = committedBytes() - std::min(memory, committedBytes());
  EXPECT_LT(grown, 2U << 20);
  EXPECT_LE(openHandles(), handles + 4);  // of Wine's own threads
}

// A format that asks, whenever it is released, whether the library may go.
class AskingFormat : public MediaType {
 public:
  ULONG STDMETHODCALLTYPE Release() override {
    answer = exported<HRESULT WINAPI()>("DllCanUnloadNow")();
    return MediaType::Release();
  }
  HRESULT answer = E_FAIL;
};

TEST_F(Life, TheLibraryStaysUntilTheTeardownIsOver) {
  AskingFormat format;
  format.wave = MediaType::plain(2).wave;
  CaptureObject object = initialized(mfx);
  ASSERT_EQ(object.lock(format), S_OK);
  object = CaptureObject();
  EXPECT_EQ(format.answer, S_FALSE);  // the destructor's own releases
  EXPECT_EQ(exported<HRESULT WINAPI()>("DllCanUnloadNow")(), S_OK);
}

// The audio service may hold a volume callback, and be inside it, longer than the object lives.
TEST_F(Life, TheLibraryStaysWhileCallersHoldWhatItGave) {
  const auto canUnload = exported<HRESULT WINAPI()>("DllCanUnloadNow");
  CaptureObject object = initialized(mfx);
  MediaType format = MediaType::plain(2);
  ASSERT_EQ(object.lock(format), S_OK);
  ASSERT_EQ(microphone.volume.callbacks.size(), 1U);
  auto callback = ComPtr<IAudioEndpointVolumeCallback>::share(microphone.volume.callbacks[0]);
  ComPtr<IUnknown> result;
  ASSERT_EQ(as<ICaptureState>(object.object.get(), mfx.own)
                ->PerformAction(3, reinterpret_cast<CActionResult<float>**>(result.put())),
            S_OK);
  object = CaptureObject();
  EXPECT_EQ(canUnload(), S_FALSE);
  callback.reset();
  EXPECT_EQ(canUnload(), S_FALSE);
  result.reset();
  EXPECT_EQ(canUnload(), S_OK);
}

// Fuzzed blobs, formats and connections: every answer is a result, and whatever happened the
// object is destroyed cleanly.
TEST_F(Life, RandomArguments) {
  RandomRounds lives(60);
  std::mt19937& random = lives.random;
  const auto below = [&](unsigned limit) { return random() % limit; };
  std::array<float, 480 * 16> samples{};
  int locked = 0;
  std::size_t memory = 0;
  while (lives.next()) {
    const int life = lives.done();
    if (life == 20) memory = committedBytes();
    MediaType formats[2];
    CaptureObject object(classCases[below(3)].id);
    for (int step = 0; step < 40; ++step) {
      for (MediaType& format : formats) {
        const unsigned channels[] = {1, 2, 4, 8, below(65536)};
        const unsigned rates[] = {16000, 44100, 48000, below(200000), random()};
        const DWORD masks[] = {0, 3, 4, random()};
        format.absent = below(40) == 0;
        format.uncompressed = below(4) == 0 ? E_FAIL : S_OK;
        format.wave =
            below(2) == 0
                ? MediaType::plain(channels[below(5)], rates[below(5)]).wave
                : MediaType::extensible(channels[below(5)], masks[below(4)], rates[below(5)]).wave;
        if (below(8) == 0) {  // any bytes
          auto* const bytes = reinterpret_cast<unsigned char*>(&format.wave);
          bytes[below(sizeof format.wave)] = static_cast<unsigned char>(random());
        }
      }
      if (below(2) == 0) formats[1].wave = formats[0].wave;
      APOInitSystemEffects2 data = blob();
      data.APOInit.cbSize = random();
      data.nSoftwareIoDeviceInCollection = below(5);
      for (auto& part : {&data.AudioProcessingMode.Data1, &data.APOInit.clsid.Data1})
        if (below(3) == 0) *part = random();
      if (below(10) == 0) data.pDeviceCollection = nullptr;
      const UINT32 sizes[] = {88, 88, 56, below(120), random()};
      microphone.store.texts[4].assign(below(300), static_cast<wchar_t>(below(65536)));
      IAudioMediaType* answer = nullptr;
      HRESULT result = S_OK;
      switch (below(6)) {
        case 0:
          result = initialize(object, data, sizes[below(5)]);
          break;
        case 1: {
          APO_CONNECTION_DESCRIPTOR in{};
          in.pBuffer = random();
          in.u32MaxFrameCount = random();
          in.pFormat = below(20) == 0 ? nullptr : &formats[0];
          APO_CONNECTION_DESCRIPTOR out = in;
          if (below(2) == 0) out.pFormat = &formats[1];
          APO_CONNECTION_DESCRIPTOR* list[] = {&in, &out, nullptr};
          result = object.configuration->LockForProcess(
              below(3) == 0 ? random() : 1, &list[below(20) == 0 ? 2 : 0],
              below(9) == 0 ? below(3) : 1, below(20) == 0 ? nullptr : &list[1]);
          locked += result == S_OK ? 1 : 0;
          break;
        }
        case 2:
          result = object.configuration->UnlockForProcess();
          break;
        case 3:
          result = object.object->IsInputFormatSupported(below(3) == 0 ? nullptr : &formats[0],
                                                         &formats[1], &answer);
          break;
        case 4:
          result = object.object->IsOutputFormatSupported(below(3) == 0 ? nullptr : &formats[0],
                                                          &formats[1], &answer);
          break;
        default: {
          APO_CONNECTION_PROPERTY in{};
          in.pBuffer = reinterpret_cast<UINT_PTR>(samples.data());
          in.u32ValidFrameCount = below(481);
          in.u32BufferFlags = static_cast<APO_BUFFER_FLAGS>(below(4));
          APO_CONNECTION_PROPERTY out = in;
          APO_CONNECTION_PROPERTY *inputs = &in, *outputs = &out;
          for (float& sample : samples) {
            const std::uint32_t bits = random();
            std::memcpy(&sample, &bits, sizeof sample);
          }
          const UINT32 connections = below(5) == 0 ? below(3) * 2 : 1;
          object.realTime->APOProcess(connections, &inputs, connections, &outputs);
        }
      }
      if (answer != nullptr) answer->Release();
      const auto code = static_cast<unsigned>(result);
      const bool known = result == S_OK || (code >> 16) == 0x887D || result == E_POINTER ||
                         result == E_INVALIDARG || result == E_UNEXPECTED || result == E_FAIL;
      ASSERT_TRUE(known) << "life " << life << ", step " << step << ": " << std::hex << code;
    }
    object = CaptureObject();
    ASSERT_EQ(formats[0].references + formats[1].references, 0U) << "life " << life;
  }
  EXPECT_GT(locked, 8);
  EXPECT_LT(committedBytes(), memory + (8U << 20));
}

}  // namespace
}  // namespace vellumic::test
