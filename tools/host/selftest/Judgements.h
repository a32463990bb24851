// What the self-test makes of what its stages saw: facts in, an outcome out. Nothing is touched.
#pragma once

#include <windows.h>

#include <optional>
#include <string>

#include "tools/ctl/AudioServices.h"
#include "tools/host/selftest/Steps.h"

namespace vellumic::tools {

// The first unexpected answer of `asked`; empty: none.
Outcome judgeFormats(int asked, const std::string& wrong);

// What a sine gained, against what it should.
Outcome judgeGain(double decibels, double wantedDb);
inline constexpr double gainToleranceDb = 0.1;

// told: the event for changed effects was signalled; the lists before and after.
Outcome judgeEffects(bool told, const std::string& before, const std::string& after);

// How much less of an echo was left. ownSettings: with the test's, not the machine's.
Outcome judgeEcho(double lessDb, bool ownSettings);

struct SoundFacts {
  bool finite = true;
  int failedPeriods = 0;
  float peakIn = 0.0F, peakOut = 0.0F;
  int gaps = 0, lateWakeUps = 0;
  double longestWaitMs = 0.0;
};
Outcome judgeSound(const SoundFacts& facts);

// The worst call's own processor time, where the system counts it.
Outcome judgeOwnTime(std::optional<double> microseconds, double periodMicroseconds);

// named: it is our library that was loaded; busy: what DllCanUnloadNow said while objects lived.
Outcome judgeUnload(bool named, HRESULT busy, bool gone);

// ended: OnNotify had ended when the call that ends the registration came back.
Outcome judgeUnregister(bool wasRunning, bool ended);
Outcome judgeNotification(bool came);

Outcome judgeLoopback(int packets, const std::string& text);
Outcome judgeService(ServiceState state);
Outcome judgeSignature(LONG result);

// Opening a key that lets nobody in: as everybody does, and by the right to restore.
Outcome judgeClosedKey(LSTATUS plain, LSTATUS restoring);

}  // namespace vellumic::tools
