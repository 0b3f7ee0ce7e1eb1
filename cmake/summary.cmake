# Tells at the end of a build what was built, and for whom.
#
# Included, it offers add_summary(), which writes a script. The script sets what is to be told and
# includes this file again.

cmake_minimum_required(VERSION 3.25)

# Sets `result` in the caller's scope to all targets of `folder` and of its subfolders.
function(list_targets folder result)
  get_property(targets DIRECTORY "${folder}" PROPERTY BUILDSYSTEM_TARGETS)
  get_property(subfolders DIRECTORY "${folder}" PROPERTY SUBDIRECTORIES)
  foreach(subfolder IN LISTS subfolders)
    list_targets("${subfolder}" more)
    list(APPEND targets ${more})
  endforeach()
  set(${result} "${targets}" PARENT_SCOPE)
endfunction()

# Adds the target `summary` for the files `products` and the deployment that the caller has written.
# To be called when all other targets are there.
function(add_summary products)
  get_property(is_multi_config GLOBAL PROPERTY GENERATOR_IS_MULTI_CONFIG)
  set(script "${PROJECT_BINARY_DIR}/$<$<BOOL:${is_multi_config}>:$<CONFIG>/>summary.cmake")
  file(GENERATE OUTPUT "${script}" CONTENT "set(PRODUCTS [[${products}]])
set(BUILD_TYPE [[$<CONFIG>]])
set(DEPLOYMENT_DIR [[${ORVIX_DEPLOYMENT_DIR}]])
set(DEPLOYMENT_HOSTS [[${DEPLOYMENT_HOSTS}]])
set(DEPLOYMENT_ANCHORS [[${DEPLOYMENT_ANCHORS}]])
set(CHECKS_HOST_NAME [[${ORVIX_CHECK_HOST_NAME}]])
include([[${CMAKE_CURRENT_FUNCTION_LIST_FILE}]])
")
  list_targets("${PROJECT_SOURCE_DIR}" targets)
  add_custom_target(summary ALL
    COMMAND "${CMAKE_COMMAND}" -P "${script}" COMMENT "What was built" VERBATIM)
  # Nothing is to be printed behind it.
  add_dependencies(summary ${targets})
endfunction()

# Sets `result` in the caller's scope to the day, as YYYYMMDD, at `seconds` after 1970 began.
function(to_day seconds result)
  set(ENV{SOURCE_DATE_EPOCH} "${seconds}")
  string(TIMESTAMP day "%Y%m%d" UTC)
  set(${result} "${day}" PARENT_SCOPE)
endfunction()

# Prints the summary, as of the time NOW (in seconds after 1970 began), or else of the clock's.
function(print_summary)
  if(NOT DEFINED NOW)
    # A build that can be repeated claims the time of its sources; anchors expire all the same.
    unset(ENV{SOURCE_DATE_EPOCH})
    string(TIMESTAMP NOW "%s" UTC)
  endif()
  to_day(${NOW} today)
  math(EXPR soon "${NOW} + 90 * 24 * 3600")
  to_day(${soon} soon)

  set(notes "")
  set(first "all have expired")
  list(SORT DEPLOYMENT_ANCHORS ORDER DESCENDING)
  foreach(anchor IN LISTS DEPLOYMENT_ANCHORS)
    string(REGEX MATCH "^([0-9]+) ([0-9]+) (.*)$" anchor "${anchor}")
    set(until "${CMAKE_MATCH_1}")
    set(from "${CMAKE_MATCH_2}")
    set(name "${CMAKE_MATCH_3}")
    string(REGEX REPLACE "(..)(..)$" "-\\1-\\2" last_day "${until}")
    string(REGEX REPLACE "(..)(..)$" "-\\1-\\2" first_day "${from}")
    if(until LESS today)
      list(PREPEND notes "expired on ${last_day}: ${name}")
      continue()
    endif()
    set(first "the first to expire is ${name}, on ${last_day}")
    if(until LESS_EQUAL soon)
      list(PREPEND notes "expires within 90 days, on ${last_day}: ${name}")
    endif()
    if(from GREATER today)
      list(PREPEND notes "not valid before ${first_day}: ${name}")
    endif()
  endforeach()

  set(text "${BUILD_TYPE} build of the deployment in ${DEPLOYMENT_DIR}")
  foreach(product IN LISTS PRODUCTS)
    string(APPEND text "\n  ${product}")
  endforeach()
  set(environments development homologation production test)
  set(unreachable "")
  foreach(environment host IN ZIP_LISTS environments DEPLOYMENT_HOSTS)
    string(APPEND text "\n  ${environment}: ${host}")
    if(host MATCHES "[.]invalid:")
      list(APPEND unreachable ${environment})
    endif()
  endforeach()
  list(LENGTH DEPLOYMENT_ANCHORS count)
  string(APPEND text "\n  trust anchors: ${count}; ${first}")
  foreach(note IN LISTS notes)
    string(APPEND text "\n    ${note}")
  endforeach()
  if(NOT CHECKS_HOST_NAME)
    string(APPEND text
           "\n  The host name is not checked (ORVIX_CHECK_HOST_NAME is off): whoever holds any certificate of"
           "\n  these anchors, and can redirect the connection, is taken for the service.")
  endif()
  if(unreachable)
    list(JOIN unreachable ", " unreachable)
    string(APPEND text
           "\n  Placeholder hosts: nothing can be signed in ${unreachable}.")
  endif()
  # A message would go to the standard error.
  execute_process(COMMAND "${CMAKE_COMMAND}" -E echo "${text}")
endfunction()

if(CMAKE_SCRIPT_MODE_FILE)
  print_summary()
endif()
