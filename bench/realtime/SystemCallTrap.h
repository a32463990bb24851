// Counts the system calls of the present thread, those inside the C library too: the kernel hands
// them back as signals while the trap is closed (Linux 5.11, syscall user dispatch).
#pragma once

namespace vellumic::bench {

class SystemCallTrap {
 public:
  // False where the kernel offers no such trap; nothing is counted then.
  static bool arm();
  static void close() noexcept;        // from here on each system call is counted, not made
  static int open() noexcept;          // the count since close()
  static long firstNumber() noexcept;  // of the first call counted
};

}  // namespace vellumic::bench
