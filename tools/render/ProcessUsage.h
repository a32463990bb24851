// What this process has used so far.
#pragma once

namespace vellumic::tools {

double cpuSeconds();     // user and system time of all threads
double peakMegabytes();  // largest resident memory, 1 MB = 1e6 bytes

}  // namespace vellumic::tools
