# cmake -DSOURCE=... -DOUTPUT=... -DVERSION=3.18 -P WriteVersion.cmake: writes the header that names
# the version and commit, when they have changed.
execute_process(COMMAND git -C "${SOURCE}" rev-parse --short=12 HEAD
  OUTPUT_VARIABLE commit OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE failed ERROR_QUIET)
if(failed)
  set(commit "unknown")
else()
  execute_process(COMMAND git -C "${SOURCE}" status --porcelain --untracked-files=no
    OUTPUT_VARIABLE changes ERROR_QUIET)
  if(changes)
    string(APPEND commit " and changes")
  endif()
endif()
string(REPLACE "." "," numbers "${VERSION}")
file(CONFIGURE OUTPUT "${OUTPUT}" @ONLY CONTENT [[
// Made by the build: the version, and the commit that it was built from.
#pragma once
#define VELLUMIC_VERSION "@VERSION@"
#define VELLUMIC_VERSION_NUMBERS @numbers@,0,0
#define VELLUMIC_VERSION_TEXT "@VERSION@ (commit @commit@)"
]])
