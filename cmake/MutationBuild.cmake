# For scripts/mutate alone (CMAKE_PROJECT_INCLUDE): a fault in a header compiles many tests anew, and
# most of that is the reading of headers that never change.
function(vellumic_precompile_tests)
  get_property(folders DIRECTORY "${CMAKE_SOURCE_DIR}/tests" PROPERTY SUBDIRECTORIES)
  foreach(folder ${folders})
    get_property(targets DIRECTORY "${folder}" PROPERTY BUILDSYSTEM_TARGETS)
    foreach(target ${targets})
      if(target MATCHES "^test_")
        target_include_directories(${target} SYSTEM PRIVATE /usr/include/eigen3)
        target_precompile_headers(${target} PRIVATE <gtest/gtest.h> <Eigen/Core> <algorithm>
          <array> <cmath> <complex> <memory> <random> <span> <thread> <vector>)
        target_compile_options(${target} PRIVATE -O1)
      endif()
    endforeach()
  endforeach()
endfunction()
cmake_language(DEFER DIRECTORY "${CMAKE_SOURCE_DIR}" CALL vellumic_precompile_tests)
