#include "tools/host/selftest/Judgements.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "tools/host/selftest/Sounds.h"

namespace vellumic::tools {
namespace {

constexpr double leastEchoDb = 10.0;
constexpr float silence = 1e-6F;
constexpr const char* sendIt = "; send the report";

std::string inDecibels(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f dB", value);
  return text;
}

}  // namespace

Outcome judgeFormats(int asked, const std::string& wrong) {
  return wrong.empty() ? good(std::to_string(asked) + " answers as expected") : bad(wrong + sendIt);
}

Outcome judgeGain(double decibels, double wantedDb) {
  const std::string text = inDecibels(decibels);
  return std::abs(decibels - wantedDb) <= gainToleranceDb
             ? good(text)
             : bad(text + " instead of " + inDecibels(wantedDb) + sendIt);
}

Outcome judgeEffects(bool told, const std::string& before, const std::string& after) {
  if (!told) return bad(std::string("its event is not signalled") + sendIt);
  return after != before ? good("from " + before + " to " + after)
                         : bad("reports " + after + " as before" + sendIt);
}

Outcome judgeEcho(double lessDb, bool ownSettings) {
  const std::string text = inDecibels(lessDb) + " less in the last two of six seconds";
  if (lessDb >= leastEchoDb) return good(text);
  return ownSettings ? bad(text + sendIt) : untold("with this machine's settings " + text);
}

Outcome judgeSound(const SoundFacts& facts) {
  if (!facts.finite) return bad(std::string("it holds values that are no numbers") + sendIt);
  if (facts.failedPeriods > 0)
    return bad(std::to_string(facts.failedPeriods) + " periods not processed" + sendIt);
  if (facts.peakIn < silence)
    return untold("the microphone gave silence; speak, check its switch, run again");
  char text[160];
  std::snprintf(text, sizeof text,
                "peak %.1f dB in, %.1f dB out; %d gaps, %d late wake-ups, longest wait %.1f ms",
                decibelsOf(facts.peakIn), decibelsOf(std::max(facts.peakOut, silence)), facts.gaps,
                facts.lateWakeUps, facts.longestWaitMs);
  return good(text);
}

Outcome judgeOwnTime(std::optional<double> microseconds, double periodMicroseconds) {
  if (!microseconds) return untold("this system does not count it");
  char text[80];
  std::snprintf(text, sizeof text, "worst call of all three effects: %.0f us of %.0f us",
                *microseconds, periodMicroseconds);
  return *microseconds <= periodMicroseconds
             ? good(text)
             : bad(std::string(text) + "; lower pipeline.block_size" + sendIt);
}

Outcome judgeUnload(bool named, HRESULT busy, bool gone) {
  if (!named) return bad("another library than VellumicAPO64c.dll is registered; register ours");
  if (busy != S_FALSE)
    return bad(std::string("the library would go while its objects live") + sendIt, busy);
  return gone ? good("the library goes with its last object")
              : bad(std::string("the library stays loaded") + sendIt);
}

Outcome judgeNotification(bool came) {
  return came ? good() : bad(std::string("no call came after a change of volume") + sendIt);
}

Outcome judgeUnregister(bool wasRunning, bool ended) {
  if (!wasRunning) return untold("no call was running");
  return ended ? good() : bad(std::string("it comes back while OnNotify still runs") + sendIt);
}

Outcome judgeLoopback(int packets, const std::string& text) {
  return packets > 0 ? good(text)
                     : bad(std::string("none came while the loudspeaker played") + sendIt);
}

Outcome judgeService(ServiceState state) {
  switch (state) {
    case ServiceState::running:
      return good("running; vellumic-ctl attach --restart restarts it");
    case ServiceState::missing:
      return untold("does not exist");
    case ServiceState::unknown:
      return untold("cannot be asked");
    case ServiceState::stopped:
    case ServiceState::changing:
      break;
  }
  return bad("not running; run net start Audiosrv as administrator");
}

Outcome judgeSignature(LONG result) {
  switch (static_cast<DWORD>(result)) {
    case 0:
      return good("trusted");
    case static_cast<DWORD>(TRUST_E_NOSIGNATURE):
      return {Verdict::ok, "no signature", result};
    case static_cast<DWORD>(CERT_E_UNTRUSTEDROOT):
    case static_cast<DWORD>(CERT_E_CHAINING):
      return {Verdict::ok, "signed by a certificate not trusted here", result};
    case static_cast<DWORD>(TRUST_E_BAD_DIGEST):
      return bad("the file was changed after it was signed; unpack it anew", result);
    default:
      return explained(result, "the signature");
  }
}

Outcome judgeClosedKey(LSTATUS plain, LSTATUS restoring) {
  if (restoring != ERROR_SUCCESS)
    return bad("the right to restore does not open it (error " + std::to_string(restoring) +
                   "); vellumic-ctl attach cannot write here" + sendIt,
               HRESULT_FROM_WIN32(restoring));
  return plain == ERROR_ACCESS_DENIED ? good("written past its permissions")
                                      : untold("the key was not closed");
}

}  // namespace vellumic::tools
