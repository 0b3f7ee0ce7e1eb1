# Tells the code which commit it is built from.
#
# Included, it makes the target `commit`, which calls it as a script in every build: git alone knows
# whether something has changed since. The header is written anew only when it would differ.

if(NOT CMAKE_SCRIPT_MODE_FILE STREQUAL CMAKE_CURRENT_LIST_FILE)
  set(COMMIT_HEADER "${PROJECT_BINARY_DIR}/generated/commit.h")
  add_custom_target(commit
    COMMAND "${CMAKE_COMMAND}" "-DSOURCE_DIR=${PROJECT_SOURCE_DIR}"
            "-DCOMMIT_HEADER=${COMMIT_HEADER}" -P "${CMAKE_CURRENT_LIST_FILE}"
    BYPRODUCTS "${COMMIT_HEADER}"
    VERBATIM)
  return()
endif()

# A copy of the sources in somebody else's repository must not take that one's commit.
get_filename_component(parent "${SOURCE_DIR}" DIRECTORY)
set(ENV{GIT_CEILING_DIRECTORIES} "${parent}")
# The clone may belong to another user, which git would refuse.
execute_process(
  COMMAND git -c safe.directory=* describe --always --dirty --abbrev=40 --exclude=*
  WORKING_DIRECTORY "${SOURCE_DIR}"
  OUTPUT_VARIABLE commit
  OUTPUT_STRIP_TRAILING_WHITESPACE
  ERROR_QUIET
  RESULT_VARIABLE failure)
if(failure)
  set(commit unknown)
endif()
file(CONFIGURE OUTPUT "${COMMIT_HEADER}" CONTENT "#define ORVIX_COMMIT \"${commit}\"\n")
