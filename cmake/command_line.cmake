# Finds what was defined on the command line, or by a preset, in vain: a mistyped name would leave a
# default in force without a word.

# Sets `result` in the caller's scope to the variables defined there whose names match `pattern` and
# that nothing has declared so far. Left out is what CMake may use later, and what tells where to
# find a library that only an optional part of the build needs.
function(list_undeclared pattern result)
  set(spared "^(CMAKE|CPACK|FETCHCONTENT|GTEST|GTest|P11_KIT|SHARED|benchmark)_")
  set(undeclared "")
  get_cmake_property(names CACHE_VARIABLES)
  foreach(name IN LISTS names)
    get_property(help CACHE "${name}" PROPERTY HELPSTRING)
    if(help STREQUAL "No help, variable specified on the command line."
       AND name MATCHES "${pattern}" AND NOT name MATCHES "${spared}")
      list(APPEND undeclared "${name}")
    endif()
  endforeach()
  set(${result} "${undeclared}" PARENT_SCOPE)
endfunction()

function(note_use name)
  set_property(GLOBAL APPEND PROPERTY USED_DEFINITIONS "${name}")
endfunction()

# Begins to note which variables are used. To be called before anything can use them.
function(watch_definitions)
  list_undeclared("" names)
  foreach(name IN LISTS names)
    variable_watch("${name}" note_use)
  endforeach()
endfunction()

# Sets `result` in the caller's scope to a sentence about those that match `pattern` and were not
# used, empty without any, and forgets these: the next run need not take them back.
function(find_unused_definitions pattern result)
  list_undeclared("${pattern}" names)
  get_property(used GLOBAL PROPERTY USED_DEFINITIONS)
  set(unused "")
  foreach(name IN LISTS names)
    if(NOT name IN_LIST used)
      unset("${name}" CACHE)
      list(APPEND unused "-D${name}")
    endif()
  endforeach()
  set(sentence "")
  if(unused)
    list(JOIN unused ", " unused)
    get_cmake_property(options CACHE_VARIABLES)
    list(FILTER options INCLUDE REGEX "^ORVIX_")
    list(JOIN options ", " options)
    set(sentence "${unused}: unknown to this build, whose own options are ${options}")
  endif()
  set(${result} "${sentence}" PARENT_SCOPE)
endfunction()
