// How long the library stays loaded, and whole lives with arguments from a random generator.
#include <windows.h>

#include <psapi.h>

#include <array>
#include <cstring>

#include "apo/OwnInterfaces.h"
#include "tests/apo/ApoWorld.h"
#include "tests/support/RandomRounds.h"

namespace vellumic::test {
namespace {

HRESULT canUnload() { return exported<HRESULT WINAPI()>("DllCanUnloadNow")(); }

// A format that asks, whenever it is released, whether the library may go.
class AskingFormat : public MediaType {
 public:
  ULONG STDMETHODCALLTYPE Release() override {
    answer = canUnload();
    return MediaType::Release();
  }
  HRESULT answer = E_FAIL;
};

class Life : public ApoWorld {};

// To the end of an object's teardown; and the audio service may hold a volume callback, and be
// inside it, longer than the object lives.
TEST_F(Life, TheLibraryStaysWhileAnybodyIsInItOrHoldsWhatItGave) {
  AskingFormat format;
  format.wave = MediaType::plain(2).wave;
  CaptureObject object = initialized(mfx);
  ASSERT_EQ(object.lock(format), S_OK);
  object = CaptureObject();
  EXPECT_EQ(format.answer, S_FALSE);  // the destructor's own releases
  EXPECT_EQ(canUnload(), S_OK);

  object = initialized(mfx);
  ASSERT_EQ(object.lock(format), S_OK);
  auto callback = ComPtr<IAudioEndpointVolumeCallback>::share(microphone.volume.callbacks.at(0));
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

std::size_t residentBytes() {
  PROCESS_MEMORY_COUNTERS counters{};
  GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
  return counters.WorkingSetSize;
}

// Arguments that may be anything, for one object.
class Fuzzer {
 public:
  explicit Fuzzer(std::mt19937& random) : random_(random) {}
  unsigned below(unsigned limit) { return random_() % limit; }
  bool once(unsigned in) { return below(in) == 0; }
  unsigned any() { return random_(); }

  void drawFormats() {
    for (MediaType& format : formats) {
      const unsigned channels[] = {1, 2, 4, 8, below(65536)};
      const unsigned rates[] = {16000, 44100, 48000, below(200000), any()};
      const DWORD masks[] = {0, 3, 4, any()};
      format.absent = once(40);
      format.uncompressed = once(4) ? E_FAIL : S_OK;
      format.wave =
          once(2)
              ? MediaType::plain(channels[below(5)], rates[below(5)]).wave
              : MediaType::extensible(channels[below(5)], masks[below(4)], rates[below(5)]).wave;
      if (once(8))  // any bytes
        reinterpret_cast<unsigned char*>(&format.wave)[below(sizeof format.wave)] =
            static_cast<unsigned char>(any());
    }
    if (once(2)) formats[1].wave = formats[0].wave;
  }
  HRESULT lock(CaptureObject& object) {
    APO_CONNECTION_DESCRIPTOR in{};
    in.pBuffer = any();
    in.u32MaxFrameCount = any();
    in.pFormat = once(20) ? nullptr : &formats[0];
    APO_CONNECTION_DESCRIPTOR out = in;
    if (once(2)) out.pFormat = &formats[1];
    APO_CONNECTION_DESCRIPTOR* list[] = {&in, &out, nullptr};
    return object.configuration->LockForProcess(once(3) ? any() : 1, &list[once(20) ? 2 : 0],
                                                once(9) ? below(3) : 1,
                                                once(20) ? nullptr : &list[1]);
  }
  HRESULT ask(CaptureObject& object, decltype(&IAudioProcessingObject::IsInputFormatSupported) is) {
    IAudioMediaType* answer = nullptr;
    const HRESULT result =
        (object.object.get()->*is)(once(3) ? nullptr : &formats[0], &formats[1], &answer);
    if (answer != nullptr) answer->Release();
    return result;
  }
  void process(CaptureObject& object) {
    for (float& sample : samples_) {
      const std::uint32_t bits = any();
      std::memcpy(&sample, &bits, sizeof sample);
    }
    APO_CONNECTION_PROPERTY in{};
    in.pBuffer = reinterpret_cast<UINT_PTR>(samples_.data());
    in.u32ValidFrameCount = below(481);
    in.u32BufferFlags = static_cast<APO_BUFFER_FLAGS>(below(4));
    APO_CONNECTION_PROPERTY out = in;
    APO_CONNECTION_PROPERTY *inputs = &in, *outputs = &out;
    const UINT32 connections = once(5) ? below(3) * 2 : 1;
    object.realTime->APOProcess(connections, &inputs, connections, &outputs);
  }
  MediaType formats[2];

 private:
  std::mt19937& random_;
  std::array<float, 480 * 16> samples_{};
};

// Every answer is a result, and whatever happened the object is destroyed cleanly.
TEST_F(Life, RandomArguments) {
  RandomRounds lives(60);
  int locked = 0;
  std::size_t memory = 0;
  while (lives.next()) {
    if (lives.done() == 20) memory = residentBytes();
    Fuzzer fuzzer(lives.random);
    CaptureObject object(classCases[fuzzer.below(3)].id);
    const auto initializeSomehow = [&] {
      APOInitSystemEffects2 data = blob();
      data.APOInit.cbSize = fuzzer.any();
      data.nSoftwareIoDeviceInCollection = fuzzer.below(5);
      for (auto& part : {&data.AudioProcessingMode.Data1, &data.APOInit.clsid.Data1})
        if (fuzzer.once(3)) *part = fuzzer.any();
      if (fuzzer.once(10)) data.pDeviceCollection = nullptr;
      const UINT32 sizes[] = {88, 88, 56, fuzzer.below(120), fuzzer.any()};
      return initialize(object, data, sizes[fuzzer.below(5)]);
    };
    for (int step = 0; step < 40; ++step) {
      fuzzer.drawFormats();
      microphone.store.texts[4].assign(fuzzer.below(300),
                                       static_cast<wchar_t>(fuzzer.below(65536)));
      HRESULT result = S_OK;
      switch (fuzzer.below(6)) {
        case 0:
          result = initializeSomehow();
          break;
        case 1:
          result = fuzzer.lock(object);
          locked += result == S_OK ? 1 : 0;
          break;
        case 2:
          result = object.configuration->UnlockForProcess();
          break;
        case 3:
          result = fuzzer.ask(object, &IAudioProcessingObject::IsInputFormatSupported);
          break;
        case 4:
          result = fuzzer.ask(object, &IAudioProcessingObject::IsOutputFormatSupported);
          break;
        default:
          fuzzer.process(object);
      }
      const auto code = static_cast<unsigned>(result);
      const bool known = result == S_OK || (code >> 16) == 0x887D || result == E_POINTER ||
                         result == E_INVALIDARG || result == E_UNEXPECTED || result == E_FAIL;
      ASSERT_TRUE(known) << lives.done() << ", step " << step << ": " << std::hex << code;
    }
    object = CaptureObject();
    ASSERT_EQ(fuzzer.formats[0].references + fuzzer.formats[1].references, 0U) << lives.done();
  }
  EXPECT_GT(locked, 8);
  EXPECT_LT(residentBytes(), memory + (8U << 20));
}

}  // namespace
}  // namespace vellumic::test
