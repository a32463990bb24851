// Marks of the real-time thread's code.
//
// VELLUMIC_NONBLOCKING stands after the parameter list (and noexcept) of every function of the
// frame path that other sources call, of virtual functions and of pointers to functions: no
// allocation, no lock, no system call below it. clang follows the calls of each source
// (-Wfunction-effects, an error in the `rtsan` build) and infers the unmarked functions whose
// bodies it sees there; RealtimeSanitizer checks the same at run time. Other compilers see nothing.
//
// vouchedFor(work) calls work() from marked code where the compiler cannot know that nothing of it
// blocks, because that depends on a size or lies in a library. The place says why. The run-time
// check still covers it, except for the try-lock.
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

namespace vellumic {

#if __has_cpp_attribute(clang::nonblocking)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wfunction-effects"
#endif
template <class Work>
decltype(auto) vouchedFor(Work&& work) noexcept VELLUMIC_NONBLOCKING {
  return work();
}
#if __has_cpp_attribute(clang::nonblocking)
#pragma clang diagnostic pop
#endif

}  // namespace vellumic

#if defined(_WIN32) && defined(_MSC_VER)
#define VELLUMIC_RT_CODE __declspec(code_seg("RT_CODE"))
#elif defined(_WIN32) && defined(__GNUC__)
#define VELLUMIC_RT_CODE [[gnu::section("RT_CODE")]]
#else
#define VELLUMIC_RT_CODE
#endif
