// Marks of the real-time thread's code.
//
// VELLUMIC_NONBLOCKING stands after the parameter list (and noexcept) of every entry of the frame
// path: no allocation, no lock, no system call below it. RealtimeSanitizer checks it at run time
// in the builds whose compiler knows the attribute; elsewhere it is nothing.
#pragma once

#if defined(__has_cpp_attribute)
#if __has_cpp_attribute(clang::nonblocking)
#define VELLUMIC_NONBLOCKING [[clang::nonblocking]]
#endif
#endif
#ifndef VELLUMIC_NONBLOCKING
#define VELLUMIC_NONBLOCKING
#endif
