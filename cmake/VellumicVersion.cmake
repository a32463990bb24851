# Version and commit, in what the tools print and in the properties of Windows files.
set(VELLUMIC_VERSION_FOLDER "${CMAKE_BINARY_DIR}/version")
set(version_header "${VELLUMIC_VERSION_FOLDER}/VellumicVersion.h")
set(write_version "${CMAKE_COMMAND}" "-DSOURCE=${PROJECT_SOURCE_DIR}" "-DOUTPUT=${version_header}"
  "-DVERSION=${PROJECT_VERSION}" -P "${CMAKE_CURRENT_LIST_DIR}/WriteVersion.cmake")
execute_process(COMMAND ${write_version})
# Looks at every build; what includes the header is built again only when the commit is another.
add_custom_target(vellumic_version_header BYPRODUCTS "${version_header}" COMMAND ${write_version}
  VERBATIM)

# The properties of a program, and a map of what it is linked of: vellumic_properties(vellumic-ctl "settings, ...")
function(vellumic_properties target description)
  if(NOT WIN32)
    return()
  endif()
  set(name "${target}")
  if(MINGW)
    target_link_options(${target} PRIVATE "-Wl,-Map=${CMAKE_BINARY_DIR}/${target}.map")
  endif()
  set(resource "${CMAKE_CURRENT_BINARY_DIR}/${target}.rc")
  configure_file("${PROJECT_SOURCE_DIR}/cmake/Program.rc.in" "${resource}" @ONLY)
  target_sources(${target} PRIVATE "${resource}")
  set_source_files_properties("${resource}" PROPERTIES
    OBJECT_DEPENDS "${version_header}" COMPILE_OPTIONS "-I${VELLUMIC_VERSION_FOLDER}")
endfunction()
