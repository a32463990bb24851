# Language, warnings and sanitizers; everything that all targets share.
option(VELLUMIC_TOOLS "Build the command-line tools" OFF)
option(VELLUMIC_BENCH "Build the benchmarks" OFF)
option(VELLUMIC_FUZZ "Build the fuzzers" OFF)
option(VELLUMIC_SHORT_TESTS "Run the short forms of long convergence tests" OFF)
set(VELLUMIC_SANITIZER "" CACHE STRING "address, thread, realtime or empty")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")

add_library(vellumic_options INTERFACE)
target_include_directories(vellumic_options INTERFACE "${PROJECT_SOURCE_DIR}")
target_compile_options(vellumic_options INTERFACE
  -Wall -Wextra -Wconversion -Wshadow
  # The stack of the frame path has a stated bound: no arrays of variable size.
  -Werror=vla
  # Float results follow the written order of operations on every build.
  -ffp-contract=off)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
  # Every x64 processor that Windows 10 supports in practice has SSE4.2.
  target_compile_options(vellumic_options INTERFACE -msse4.2)
endif()
if(VELLUMIC_SHORT_TESTS)
  target_compile_definitions(vellumic_options INTERFACE VELLUMIC_SHORT_TESTS=1)
endif()

if(VELLUMIC_SANITIZER STREQUAL "address")
  set(sanitizer_flags -fsanitize=address,undefined -fno-sanitize=alignment
    -fno-sanitize-recover=all -fno-omit-frame-pointer -D_GLIBCXX_ASSERTIONS)
elseif(VELLUMIC_SANITIZER STREQUAL "thread")
  set(sanitizer_flags -fsanitize=thread)
elseif(VELLUMIC_SANITIZER STREQUAL "realtime")
  set(sanitizer_flags -fsanitize=realtime)
elseif(VELLUMIC_SANITIZER)
  message(FATAL_ERROR "VELLUMIC_SANITIZER: unknown '${VELLUMIC_SANITIZER}'")
endif()
if(VELLUMIC_SANITIZER)
  target_compile_options(vellumic_options INTERFACE -O1 -g1 ${sanitizer_flags})
  target_link_options(vellumic_options INTERFACE ${sanitizer_flags})
endif()
# Without a sanitizer only a fuzzer brings the coverage counters: no other program can be linked.
set(VELLUMIC_FUZZERS_ONLY OFF)
if(VELLUMIC_FUZZ)
  if(VELLUMIC_SANITIZER)
    target_compile_options(vellumic_options INTERFACE -fsanitize=fuzzer-no-link)
  else()  # comparisons are not watched: that halves the speed
    set(VELLUMIC_FUZZERS_ONLY ON)
    target_compile_options(vellumic_options INTERFACE -O2 -g1 -D_GLIBCXX_ASSERTIONS
      -fsanitize-coverage=inline-8bit-counters,pc-table)
  endif()
endif()

if(WIN32)
  # The host process of an APO will not find MinGW's runtime DLLs.
  # No time of linking in the files: the same commit gives the same bytes.
  target_link_options(vellumic_options INTERFACE -static -fstack-protector-strong
    -Wl,--no-insert-timestamp)
  # Control-flow marks would protect nothing: the linker cannot tell the system of them.
  target_compile_options(vellumic_options INTERFACE -fstack-protector-strong)
  target_compile_definitions(vellumic_options INTERFACE UNICODE _UNICODE NOMINMAX
    WIN32_LEAN_AND_MEAN _WIN32_WINNT=0x0A00)
endif()
