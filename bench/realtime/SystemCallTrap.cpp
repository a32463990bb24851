#include "bench/realtime/SystemCallTrap.h"

#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>

namespace vellumic::bench {
namespace {

constexpr int dispatchOption = 59, dispatchOn = 1;  // PR_SET_SYSCALL_USER_DISPATCH
constexpr char allow = 0, block = 1;

thread_local volatile char selector = allow;
thread_local volatile int count = 0;
thread_local volatile long first = -1;

// The call was not made. Opened here, so that the handler's own return is.
void onTrap(int, siginfo_t* info, void*) {
  selector = allow;
  count = count + 1;
  if (first < 0) first = info->si_syscall;
}

}  // namespace

bool SystemCallTrap::arm() {
  struct sigaction action {};
  action.sa_sigaction = onTrap;
  action.sa_flags = SA_SIGINFO;
  sigaction(SIGSYS, &action, nullptr);
  if (prctl(dispatchOption, dispatchOn, 0, 0, &selector) != 0) return false;
  close();
  syscall(SYS_getppid);  // a trap that catches nothing would pass everything
  const bool works = open() == 1;
  first = -1;
  return works;
}

void SystemCallTrap::close() noexcept {
  count = 0;
  selector = block;
}

int SystemCallTrap::open() noexcept {
  selector = allow;
  return count;
}

long SystemCallTrap::firstNumber() noexcept { return first; }

}  // namespace vellumic::bench
