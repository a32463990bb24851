// Whether the effects accept the formats that they are said to, and refuse the others.
#include <algorithm>
#include <array>
#include <string_view>

#include "tools/host/selftest/Judgements.h"
#include "tools/host/selftest/Stages.h"
#include "tools/host/selftest/TestSite.h"

namespace vellumic::tools {
namespace {

struct Shape {
  bool extensible;
  unsigned channels;
  std::uint32_t mask;
  bool accepted;  // at an accepted rate, in an accepted mode, on both sides
};
constexpr std::array shapes{
    Shape{false, 1, 0, true},  Shape{false, 2, 0, true},     Shape{false, 3, 0, false},
    Shape{false, 4, 0, true},  Shape{false, 6, 0, false},    Shape{false, 8, 0, true},
    Shape{true, 1, 0x4, true}, Shape{true, 1, 0x1, false},   Shape{true, 2, 0x3, true},
    Shape{true, 2, 0, false},  Shape{true, 4, 0, true},      Shape{true, 4, 0x33, false},
    Shape{true, 8, 0, true},   Shape{true, 8, 0x63f, false},
};
struct Rate {
  unsigned hertz;
  bool accepted;
};
constexpr std::array rates{Rate{8000, false},  Rate{16000, true},  Rate{22050, false},
                           Rate{32000, false}, Rate{44100, true},  Rate{48000, true},
                           Rate{96000, false}, Rate{192000, false}};
struct Mode {
  const char* name;
  GUID id;
  bool accepted;
};
constexpr std::array modes{Mode{"default", modeDefault, true}, Mode{"raw", modeRaw, true},
                           Mode{"speech", modeSpeech, true},
                           Mode{"communications", modeCommunications, false}};

FormatShape at(const Shape& shape, unsigned hertz) {
  return {.extensible = shape.extensible,
          .channels = shape.channels,
          .sampleRate = hertz,
          .mask = shape.mask};
}

struct Tally {
  int asked = 0;
  std::string wrong;  // the first
  void take(bool answer, bool expected, const FormatShape& in, const FormatShape& out) {
    ++asked;
    if (answer == expected || !wrong.empty()) return;
    wrong = std::string(answer ? "accepts " : "refuses ") + in.text() + " to " + out.text() +
            " at " + std::to_string(in.sampleRate) + " and " + std::to_string(out.sampleRate) +
            " Hz";
  }
};

Outcome ask(CaptureEffect& effect, bool modeAccepted) {
  Tally tally;
  for (const Rate& rate : rates)
    for (const Shape& shape : shapes) {
      const FormatShape same = at(shape, rate.hertz);
      tally.take(effect.accepts(same), modeAccepted && rate.accepted && shape.accepted, same, same);
    }
  // One channel to two is for the endpoint effect; a rate is never converted.
  const bool widens = modeAccepted && std::string_view(effect.name()) == "efx";
  const std::array<std::pair<Shape, Shape>, 2> pairs{
      {{{false, 1, 0, true}, {false, 2, 0, true}}, {{true, 1, 0x4, true}, {true, 2, 0x3, true}}}};
  for (const auto& [one, two] : pairs) {
    tally.take(effect.accepts(at(one, 48000), at(two, 48000)), widens, at(one, 48000),
               at(two, 48000));
    tally.take(effect.accepts(at(two, 48000), at(one, 48000)), false, at(two, 48000),
               at(one, 48000));
    tally.take(effect.accepts(at(two, 48000), at(two, 44100)), false, at(two, 48000),
               at(two, 44100));
  }
  return judgeFormats(tally.asked, tally.wrong);
}

}  // namespace

void formatsStage(StageLog& log, const StageOptions& options) {
  const TestSite site(options.endpoint);
  for (const std::string name : classNames)
    for (const Mode& mode : modes)
      log.attempt(name + " in mode " + mode.name,
                  [&] { return ask(*site.effect(name, mode.id), mode.accepted); });
}

}  // namespace vellumic::tools
