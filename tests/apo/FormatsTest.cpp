// Every pair of formats, against the accepted pairs written down once more.
#include <algorithm>
#include <memory>
#include <vector>

#include "tests/apo/ApoWorld.h"

namespace vellumic::test {
namespace {

constexpr HRESULT notSupported = static_cast<HRESULT>(0x887D0003);
constexpr HRESULT invalidConnectionFormat = static_cast<HRESULT>(0x887D0009);
constexpr long noMask = -1;  // a plain format

struct Shape {
  unsigned channels;
  long mask;
  bool operator==(const Shape&) const = default;
};
struct Pair {
  Shape input, output;
  bool operator==(const Pair&) const = default;
};
constexpr Shape p1{1, noMask}, p2{2, noMask}, p4{4, noMask}, p8{8, noMask};
constexpr Shape x1{1, 4}, x2{2, 3}, x4{4, 0}, x8{8, 0};
const std::vector<Pair> acceptedByAll{{p1, p1}, {x1, x1}, {p2, p2}, {x2, x2},
                                      {p4, p4}, {x4, x4}, {p8, p8}, {x8, x8}};
const std::vector<Pair> acceptedByEndpointEffects{{p1, p2}, {x1, x2}};
constexpr std::array<unsigned, 3> acceptedRates{16000, 44100, 48000};

const std::vector<Shape> shapes{
    p1,         p2,          p4,           p8,          x1,          x2,          x4,
    x8,         {0, noMask}, {3, noMask},  {5, noMask}, {6, noMask}, {7, noMask}, {16, noMask},
    {1, 0},     {1, 1},      {1, 3},       {2, 0},      {2, 4},      {3, 0xb},    {3, 7},
    {4, 0x33},  {4, 0xf},    {4, 0x4000b}, {5, 0x607},  {6, 0x60f},  {7, 0x637},  {8, 0xff},
    {8, 0x63f}, {6, 0x3f},   {4, 0x107},   {8, 4}};
constexpr std::array<unsigned, 10> rates{16000, 22050, 32000,  44100, 48000,
                                         88200, 96000, 192000, 8000,  11025};

MediaType typeOf(Shape shape, unsigned rate) {
  return shape.mask == noMask
             ? MediaType::plain(shape.channels, rate)
             : MediaType::extensible(shape.channels, static_cast<DWORD>(shape.mask), rate);
}

bool accepts(const ClassCase& which, const Pair& pair, unsigned rateIn, unsigned rateOut) {
  const auto in = [&](const std::vector<Pair>& list) {
    return std::ranges::find(list, pair) != list.end();
  };
  return rateIn == rateOut && std::ranges::find(acceptedRates, rateIn) != acceptedRates.end() &&
         (in(acceptedByAll) || (which.endpointEffect && in(acceptedByEndpointEffects)));
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

TEST_F(Formats, TheWholeMatrix) {
  for (const ClassCase& which : classCases) {
    for (const GUID& processingMode : {mode::standard, mode::raw, mode::speech}) {
      MediaType in, out;  // outlive the object, which keeps the last supported pair
      CaptureObject object = initialized(which, processingMode);
      for (const unsigned rateIn : rates)
        for (const unsigned rateOut : rates)
          for (const Shape& input : shapes)
            for (const Shape& output : shapes) {
              in.wave = typeOf(input, rateIn).wave;
              out.wave = typeOf(output, rateOut).wave;
              const bool expected = accepts(which, {input, output}, rateIn, rateOut);
              ASSERT_EQ(supported(object, &in, &out), expected)
                  << which.name << ' ' << input.channels << '/' << input.mask << " at " << rateIn
                  << " to " << output.channels << '/' << output.mask << " at " << rateOut;
            }
    }
    for (const GUID& refusing :
         {mode::communications, mode::media, mode::movie, mode::notification}) {
      CaptureObject object = initialized(which, refusing);
      for (const Shape& shape : shapes) {
        MediaType format = typeOf(shape, 48000);
        EXPECT_FALSE(supported(object, &format, &format));
      }
      MediaType stereo = MediaType::plain(2);
      EXPECT_EQ(object.lock(stereo), invalidConnectionFormat);
    }
  }
}

TEST_F(Formats, AMissingOppositeMeansAny) {
  for (const ClassCase& which : classCases) {
    MediaType format;
    CaptureObject object = initialized(which);
    for (const Shape& shape : shapes)
      for (const unsigned rate : rates) {
        format.wave = typeOf(shape, rate).wave;
        bool asInput = false, asOutput = false;
        for (const Shape& opposite : shapes) {
          asInput |= accepts(which, {shape, opposite}, rate, rate);
          asOutput |= accepts(which, {opposite, shape}, rate, rate);
        }
        EXPECT_EQ(supported(object, &format, nullptr), asInput);
        EXPECT_EQ(supported(object, nullptr, &format), asOutput);
      }
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
  absent.absent = true;
  EXPECT_FALSE(supported(object, &absent, &absent));
  EXPECT_EQ(object.object->IsInputFormatSupported(&absent, nullptr, nullptr), E_POINTER);
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
