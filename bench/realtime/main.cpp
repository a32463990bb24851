// vellumic-realtime: what the calls of the frame path cost in every class, rate, microphone count
// and state of a stream, as the tables of docs/realtime.md on the standard output.
//
//   vellumic-realtime [--check]   --check: short; only tells what breaks a promise, exit code 1
#include <array>
#include <cstdio>
#include <cstring>
#include <exception>
#include <stdexcept>

#include "bench/realtime/LiveObject.h"
#include "bench/realtime/SystemCallTrap.h"

namespace vellumic::bench {
namespace {

constexpr std::size_t mostStack = 32768;  // bytes; docs/realtime.md promises it
constexpr double period = 10e3;           // us

std::vector<Configuration> configurations() {
  constexpr auto array = EffectMode::array, equalizer = EffectMode::equalizer;
  std::vector<Configuration> all;
  for (const std::uint32_t rate : {16000U, 44100U, 48000U}) {
    for (const std::uint32_t channels : {1U, 2U, 4U, 8U})
      all.push_back({"EFX", equalizer, equalizer, rate, channels});
    for (const std::uint32_t channels : {1U, 2U, 4U, 8U})
      all.push_back({"MFX", array, array, rate, channels});
    all.push_back({"KDMFX", EffectMode::arrayFourChannel, array, rate, 4});
  }
  return all;
}

bool broken(const CallLog& log) { return log.forbidden > 0 || log.deepestStack > mostStack; }

void printFigures(const CallLog& log) {
  std::printf("%d | %.0f | %.0f | %.0f | %.1f | %.1f |", log.forbidden, log.percentile(0.5),
              log.percentile(0.99), log.worst.microseconds, 100.0 * log.worst.microseconds / period,
              static_cast<double>(log.deepestStack) / 1024.0);
}

// Without the kernel's trap, system calls that no wrapper makes are not among the forbidden ones.
void printTables(PaintedStack& stack, double seconds, bool trapped) {
  const char* const forbidden = trapped ? "forbidden" : "forbidden (wrappers only)";
  std::printf(
      "| class | rate, Hz | channels | %s | p50, us | p99, us | worst, us | of 10 ms, %% "
      "| stack, KB | the worst call |\n|---|---|---|---|---|---|---|---|---|---|\n",
      forbidden);
  LiveObject::Logs shown;
  for (const Configuration& one : configurations()) {
    CallLog all;
    const LiveObject::Logs logs = LiveObject(one, stack).run(seconds);
    for (const auto& [state, log] : logs) all.add(log);
    std::printf("| %s | %u | %u | ", one.name, one.rate, one.channels);
    printFigures(all);
    std::printf(" %s: %s |\n", all.worst.state.c_str(), all.worst.work.c_str());
    if (one.lockMode == EffectMode::array && one.rate == 48000 && one.channels == 4) shown = logs;
  }
  std::printf(
      "\nMFX, 48000 Hz, 4 microphones, state by state:\n\n| state | %s | p50, us | p99, us "
      "| worst, us | of 10 ms, %% | stack, KB | the worst call "
      "|\n|---|---|---|---|---|---|---|---|\n",
      forbidden);
  for (const auto& [state, log] : shown) {
    std::printf("| %s | ", state.c_str());
    printFigures(log);
    std::printf(" %s |\n", log.worst.work.c_str());
  }
}

// What breaks a promise, one line each.
int check(PaintedStack& stack) {
  int faults = 0;
  for (const Configuration& one : configurations())
    for (const auto& [state, log] : LiveObject(one, stack).run(0.3)) {
      if (!broken(log)) continue;
      ++faults;
      std::printf("%s at %u Hz, %u channels, %s: %d forbidden calls (%s), %zu bytes of stack\n",
                  one.name, one.rate, one.channels, state.c_str(), log.forbidden,
                  log.firstForbidden.c_str(), log.deepestStack);
    }
  return faults;
}

// The painter must see a frame of a known size.
void checkPaint(PaintedStack& stack) {
  constexpr std::size_t size = 5000;
  const std::size_t depth = stack.measure([] {
    volatile unsigned char frame[size];
    frame[0] = 1;
    frame[size - 1] = frame[0];
  });
  if (depth < size || depth > 2 * size) throw std::runtime_error("the painted stack shows nothing");
}

int run(bool checking) {
  int faults = 0;
  std::exception_ptr failure;
  PaintedStack painted;
  painted.run([&](PaintedStack& stack) {
    try {
      const bool trapped = SystemCallTrap::arm();
      if (!trapped)
        std::fputs(
            "vellumic-realtime: this kernel has no trap for system calls, only wrappers are "
            "counted\n",
            stderr);
      checkPaint(stack);
      if (checking)
        faults = check(stack);
      else
        printTables(stack, 2.0, trapped);
    } catch (...) {
      failure = std::current_exception();
    }
  });
  if (failure) std::rethrow_exception(failure);
  return faults > 0 ? 1 : 0;
}

}  // namespace
}  // namespace vellumic::bench

int main(int argc, char** argv) {
  try {
    return vellumic::bench::run(argc > 1 && std::strcmp(argv[1], "--check") == 0);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "vellumic-realtime: %s\n", error.what());
    return 1;
  }
}
