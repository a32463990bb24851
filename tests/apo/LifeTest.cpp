// How long the library stays loaded, and whole lives with hostile arguments.
#include <windows.h>

#include <array>
#include <bit>

#include "apo/OwnInterfaces.h"
#include "tests/apo/ApoWorld.h"
#include "tests/support/RandomRounds.h"

namespace vellumic::test {
namespace {

class Life : public ApoWorld {};

// To the end of an object's teardown; and the audio service may hold a volume callback, and be
// inside it, longer than the object lives.
TEST_F(Life, TheLibraryStaysWhileAnybodyIsInItOrHoldsWhatItGave) {
  MediaType format = MediaType::plain(2);
  HRESULT whenReleased = E_FAIL;
  format.onRelease = [&] { whenReleased = canUnload(); };
  locked(mfx, format);
  EXPECT_EQ(whenReleased, S_FALSE);  // the destructor's own releases
  EXPECT_EQ(canUnload(), S_OK);

  CaptureObject object = locked(mfx, format);
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

// Blobs, formats and connections from a random generator: every answer is a result, and whatever
// happened the object is destroyed cleanly.
TEST_F(Life, RandomArguments) {
  RandomRounds lives(60);
  std::mt19937& random = lives.random;
  const auto below = [&](unsigned limit) { return random() % limit; };
  const auto once = [&](unsigned in) { return below(in) == 0; };
  const auto expectKnown = [&](HRESULT result) {
    const auto code = static_cast<unsigned>(result);
    EXPECT_TRUE(result == S_OK || (code >> 16) == 0x887D || result == E_POINTER ||
                result == E_INVALIDARG || result == E_UNEXPECTED || result == E_FAIL)
        << lives.done() << ": " << std::hex << code;
    return result;
  };
  std::array<float, 480 * 16> samples{};
  int locked = 0;
  std::size_t memory = 0;
  while (lives.next() && !HasFailure()) {
    if (lives.done() == 20) memory = residentBytes();
    MediaType formats[2];
    CaptureObject object(classCases[below(3)].id);
    const auto format = [&](unsigned i) { return once(20) ? nullptr : &formats[i]; };
    for (int step = 0; step < 40; ++step) {
      for (MediaType& drawn : formats) {
        const unsigned channels[] = {1, 2, 4, 8, below(65536)}, c = channels[below(5)];
        const unsigned rates[] = {16000, 44100, 48000, random()}, rate = rates[below(4)];
        const DWORD masks[] = {0, 3, 4, random()};
        drawn.answers = once(40) ? 0 : 1000;
        drawn.wave =
            (once(2) ? MediaType::plain(c, rate) : MediaType::extensible(c, masks[below(4)], rate))
                .wave;
        if (once(8))  // any bytes
          reinterpret_cast<BYTE*>(&drawn.wave)[below(sizeof drawn.wave)] =
              static_cast<BYTE>(random());
      }
      if (once(2)) formats[1].wave = formats[0].wave;
      if (once(6)) {
        APOInitSystemEffects2 data = blob();
        data.APOInit.cbSize = random();
        if (once(3)) data.APOInit.clsid.Data1 = random();
        data.nSoftwareIoDeviceInCollection = below(5);
        if (once(3)) data.AudioProcessingMode.Data1 = random();
        if (once(10)) data.pDeviceCollection = nullptr;
        const UINT32 sizes[] = {88, 88, 56, below(120), random()};
        microphone.store.texts[4].assign(below(300), static_cast<wchar_t>(below(65536)));
        expectKnown(initialize(object, data, sizes[below(5)]));
      }
      if (once(6)) {
        APO_CONNECTION_DESCRIPTOR in{{}, random(), random(), format(0), random()}, out = in;
        if (once(2)) out.pFormat = format(1);
        APO_CONNECTION_DESCRIPTOR* list[] = {&in, &out, nullptr};
        const HRESULT result = expectKnown(object.configuration->LockForProcess(
            once(3) ? random() : 1, &list[once(20) ? 2 : 0], once(9) ? below(3) : 1,
            once(20) ? nullptr : &list[1]));
        locked += result == S_OK ? 1 : 0;
      }
      if (once(6)) expectKnown(object.configuration->UnlockForProcess());
      IAudioMediaType* answers[2]{};
      if (once(3))
        expectKnown(object.object->IsInputFormatSupported(format(0), &formats[1], &answers[0]));
      if (once(3))
        expectKnown(object.object->IsOutputFormatSupported(format(0), &formats[1], &answers[1]));
      for (IAudioMediaType* answer : answers)
        if (answer != nullptr) answer->Release();
      for (float& sample : samples) sample = std::bit_cast<float>(random());
      APO_CONNECTION_PROPERTY in{reinterpret_cast<UINT_PTR>(samples.data()), below(481),
                                 static_cast<APO_BUFFER_FLAGS>(below(4)), random()};
      APO_CONNECTION_PROPERTY out = in;
      APO_CONNECTION_PROPERTY *inputs = &in, *outputs = &out;
      const UINT32 connections = once(5) ? below(3) * 2 : 1;
      object.realTime->APOProcess(connections, &inputs, connections, &outputs);
    }
    object = CaptureObject();
    EXPECT_EQ(formats[0].references + formats[1].references, 0U) << lives.done();
  }
  EXPECT_GT(locked, 8);
  EXPECT_LT(residentBytes(), memory + (8U << 20));
}

}  // namespace
}  // namespace vellumic::test
