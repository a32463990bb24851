// Marks of the real-time thread's code.
//
// VELLUMIC_NONBLOCKING stands after the parameter list (and noexcept) of every entry of the frame
// path: no allocation, no lock, no system call below it. RealtimeSanitizer checks it at run time
// in the builds whose compiler knows the attribute; elsewhere it is nothing.
//
// VELLUMIC_RT_CODE stands before the definition of a function (not of a template) that the Windows
// library keeps in section RT_CODE, so that the audio engine can hold those pages in memory.
#pragma once

#if defined(__has_cpp_attribute)
#if __has_cpp_attribute(clang::nonblocking)
#define VELLUMIC_NONBLOCKING [[clang::nonblocking]]
#endif
#endif
#ifndef VELLUMIC_NONBLOCKING
#define VELLUMIC_NONBLOCKING
#endif

#if defined(_WIN32) && defined(_MSC_VER)
#define VELLUMIC_RT_CODE __declspec(code_seg("RT_CODE"))
#elif defined(_WIN32) && defined(__GNUC__)
#define VELLUMIC_RT_CODE [[gnu::section("RT_CODE")]]
#else
#define VELLUMIC_RT_CODE
#endif
