// Every pair of formats, against the accepted pairs written down once more.
#include <vector>

#include "tests/apo/ApoWorld.h"

namespace vellumic::test {
namespace {

constexpr HRESULT notSupported = static_cast<HRESULT>(0x887D0003);
constexpr long noMask = -1;  // a plain format

struct Shape {
  unsigned channels;
  long mask;
};
// Of these the first eight are accepted, with the same on the other side; endpoint effects take
// one channel to two as well.
const std::vector<Shape> shapes{
    {1, noMask},  {2, noMask}, {4, noMask}, {8, noMask},  {1, 4},      {2, 3},      {4, 0},
    {8, 0},       {0, noMask}, {0, 0},      {3, noMask},  {5, noMask}, {6, noMask}, {7, noMask},
    {16, noMask}, {1, 0},      {1, 1},      {1, 3},       {2, 0},      {2, 4},      {3, 0xb},
    {3, 7},       {4, 0x33},   {4, 0xf},    {4, 0x4000b}, {5, 0x607},  {6, 0x60f},  {7, 0x637},
    {8, 0xff},    {8, 0x63f},  {6, 0x3f},   {4, 0x107},   {8, 4}};
constexpr std::size_t acceptedShapes = 8;
constexpr std::array<unsigned, 10> rates{16000, 44100, 48000,  22050, 32000,
                                         88200, 96000, 192000, 8000,  11025};
constexpr std::size_t acceptedRates = 3;

MediaType typeOf(Shape shape, unsigned rate) {
  return shape.mask == noMask
             ? MediaType::plain(shape.channels, rate)
             : MediaType::extensible(shape.channels, static_cast<DWORD>(shape.mask), rate);
}

bool accepts(const ClassCase& which, std::size_t input, std::size_t output) {
  const bool fromOneToTwo = output == input + 1 && input % 4 == 0;
  return input < acceptedShapes && (input == output || (which.endpointEffect && fromOneToTwo));
}

class Formats : public ApoWorld {
 protected:
  // Both questions, and what they leave behind.
  static bool supported(CaptureObject& object, MediaType* in, MediaType* out) {
    IAudioMediaType* const untouched = reinterpret_cast<IAudioMediaType*>(std::uintptr_t{1});
    bool both = true;
    for (const bool askInput : {true, false}) {
      MediaType* const asked = askInput ? in : out;
      if (asked == nullptr) continue;
      IAudioMediaType* answer = untouched;
      const ULONG before = asked->references;
      const HRESULT result = askInput ? object.object->IsInputFormatSupported(out, asked, &answer)
                                      : object.object->IsOutputFormatSupported(in, asked, &answer);
      if (result == S_OK) {
        EXPECT_EQ(answer, asked);
        EXPECT_GT(asked->references, before);
        answer->Release();
      } else {
        EXPECT_EQ(result, notSupported);
        EXPECT_EQ(answer, untouched);
        both = false;
      }
    }
    return both;
  }
};

// A missing opposite means any.
TEST_F(Formats, TheWholeMatrix) {
  for (const ClassCase& which : classCases) {
    for (const GUID& processingMode : {mode::standard, mode::raw, mode::speech}) {
      MediaType in, out;  // outlive the object, which keeps the last supported pair
      CaptureObject object = initialized(which, processingMode);
      for (std::size_t i = 0; i < rates.size() * shapes.size(); ++i)
        for (std::size_t o = 0; o < rates.size() * shapes.size(); ++o) {
          const std::size_t rate = i / shapes.size(), input = i % shapes.size();
          const std::size_t rateOut = o / shapes.size(), output = o % shapes.size();
          in.wave = typeOf(shapes[input], rates[rate]).wave;
          out.wave = typeOf(shapes[output], rates[rateOut]).wave;
          const bool known = rate < acceptedRates;
          ASSERT_EQ(supported(object, &in, &out),
                    known && rate == rateOut && accepts(which, input, output))
              << which.name << ' ' << input << " at " << rates[rate] << " to " << output << " at "
              << rates[rateOut];
          if (i != o) continue;
          ASSERT_EQ(supported(object, &in, nullptr), known && input < acceptedShapes) << input;
          ASSERT_EQ(supported(object, nullptr, &in), known && input < acceptedShapes) << input;
        }
    }
    for (const GUID& refusing :
         {mode::communications, mode::media, mode::movie, mode::notification}) {
      CaptureObject object = initialized(which, refusing);
      for (const Shape& shape : shapes) {
        MediaType format = typeOf(shape, 48000);
        EXPECT_FALSE(supported(object, &format, &format));
      }
    }
  }
}

// A fade equalises the front pair alone: without a mask the first two channels.
TEST_F(Formats, APlainOneBeginsWithTheFrontPair) {
  const ServiceObjects service;
  writeFactorySettings();
  for (const Raw slot : {Raw::equalizerMaster, Raw::fadeRequest})
    registry.writeSlot(L"1", slot, 1.0F);
  for (const auto& [side, gain] : {std::pair(0, 2.0F), {1, 3.0F}})
    for (const auto& [field, value] :
         {std::pair(BandField::enable, 1.0F), {BandField::type, 0.0F}, {BandField::gain, gain}})
      registry.writeSlot(L"1", bandSlot(side, 0, field), value);
  for (const unsigned channels : {4U, 8U}) {
    MediaType format = MediaType::plain(channels);
    CaptureObject object = locked(efx, format);
    service.signalReload();
    ASSERT_TRUE(service.pingIsAnswered());
    std::array frame{0.25F, 0.25F, 0.25F, 0.25F, 0.25F, 0.25F, 0.25F, 0.25F};
    object.process(frame.data(), 1);
    EXPECT_EQ(frame, (std::array{0.5F, 0.75F, 0.25F, 0.25F, 0.25F, 0.25F, 0.25F, 0.25F}));
  }
}

TEST_F(Formats, OddEncodingsAreRefused) {
  MediaType format = MediaType::extensible(2, 3), absent = format;
  CaptureObject object = initialized(efx);
  using Wave = WAVEFORMATEXTENSIBLE;
  for (void (*make)(Wave&) :
       {+[](Wave& w) { w.Format.wBitsPerSample = 16; },
        +[](Wave& w) { w.Format.wBitsPerSample = 64; }, +[](Wave& w) { w.Format.wFormatTag = 1; },
        +[](Wave& w) { w.SubFormat.Data1 = 1; }, +[](Wave& w) { w.SubFormat.Data4[7] ^= 1; },
        +[](Wave& w) { w.Format.cbSize = 21; }, +[](Wave& w) { w.Format.wFormatTag = 0x55; }}) {
    ASSERT_TRUE(supported(object, &format, &format));
    MediaType odd = format;
    make(odd.wave);
    EXPECT_FALSE(supported(object, &odd, &odd));
  }
  absent.answers = 0;
  EXPECT_FALSE(supported(object, &absent, &absent));
  IAudioMediaType* answer = nullptr;
  EXPECT_EQ(object.object->IsInputFormatSupported(&format, nullptr, &answer), E_POINTER);
  EXPECT_EQ(object.object->IsInputFormatSupported(&format, &format, nullptr), E_POINTER);
}

// A supported question replaces the table's pair, a refused one keeps it, a lock holds its own.
TEST_F(Formats, PairsAreHeldAndReplaced) {
  MediaType first = MediaType::plain(2), second = MediaType::plain(1), wrong = MediaType::plain(3);
  CaptureObject object = initialized(efx);
  ASSERT_TRUE(supported(object, &first, &first));
  EXPECT_EQ(first.references, 2U);
  EXPECT_FALSE(supported(object, &wrong, &wrong));
  EXPECT_EQ(first.references, 2U);
  ASSERT_EQ(object.lock(first), S_OK);
  EXPECT_EQ(first.references, 4U);
  ASSERT_TRUE(supported(object, &second, nullptr));
  EXPECT_EQ(first.references, 2U);
  EXPECT_EQ(second.references, 1U);
  object = CaptureObject();
  EXPECT_EQ(first.references + second.references, 0U);
}

}  // namespace
}  // namespace vellumic::test
