// One capture object on a stream with loudspeakers, called every 10 ms under watch: the states that
// a stream passes through, one function each, with what their calls cost.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bench/realtime/CallLog.h"
#include "bench/realtime/PaintedStack.h"
#include "engine/CaptureCore.h"
#include "parameters/Catalogue.h"
#include "tests/support/PlayingSpeakers.h"

namespace vellumic::bench {

struct Configuration {
  const char* name;  // of the class
  EffectMode lockMode, reloadMode;
  std::uint32_t rate, channels;
};

class LiveObject {
 public:
  // To be made and used on the painted thread.
  LiveObject(const Configuration& configuration, PaintedStack& stack);
  LiveObject(const LiveObject&) = delete;
  LiveObject& operator=(const LiveObject&) = delete;

  // By state, in the order in which the stream meets them.
  using Logs = std::vector<std::pair<std::string, CallLog>>;
  // `seconds` for the states that last.
  Logs run(double seconds);

 private:
  enum class Change { values, byFade, sizes };

  void reload(Change change);
  void calls(const std::string& state, double seconds);
  void play(double seconds);  // unwatched by the logs
  void call(CallLog& log, const std::string& state);

  Configuration configuration_;
  PaintedStack& stack_;
  PlayingSpeakers speakers_;
  std::unique_ptr<CaptureCore> core_;
  std::vector<float> input_, output_;
  bool odd_ = false;
  Logs logs_;
};

}  // namespace vellumic::bench
