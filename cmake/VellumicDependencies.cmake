# Libraries that are called, never rebuilt by hand: all from Debian packages.
find_package(Threads REQUIRED)

# Header-only; the cross build takes the same folder, never /usr/include itself.
add_library(vellumic_eigen INTERFACE)
target_include_directories(vellumic_eigen SYSTEM INTERFACE /usr/include/eigen3)

if(WIN32)
  add_subdirectory(/usr/src/googletest "${CMAKE_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL SYSTEM)
else()
  find_package(GTest REQUIRED)
endif()

# CLI11, toml++ and xsimd are header-only and lie directly in /usr/include, which a cross build must not
# search: link the folders into the build tree and search that.
set(header_only "${CMAKE_BINARY_DIR}/header-only")
file(MAKE_DIRECTORY "${header_only}")
foreach(folder CLI toml++ xsimd)
  if(NOT EXISTS "${header_only}/${folder}")
    file(CREATE_LINK "/usr/include/${folder}" "${header_only}/${folder}" SYMBOLIC)
  endif()
endforeach()
add_library(vellumic_header_only INTERFACE)
target_include_directories(vellumic_header_only SYSTEM INTERFACE "${header_only}")
add_library(vellumic_xsimd ALIAS vellumic_header_only)

if(NOT WIN32 AND (VELLUMIC_TOOLS OR VELLUMIC_FUZZ))
  find_package(PkgConfig REQUIRED)
  pkg_check_modules(SNDFILE REQUIRED IMPORTED_TARGET sndfile)
endif()
if(VELLUMIC_BENCH)
  find_package(benchmark REQUIRED)
endif()
