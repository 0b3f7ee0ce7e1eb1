# Writes the linker's export list from the one list of functions: what is not in it cannot be
# exported, and what is in it cannot be forgotten.

# Reads the function names that match the regular expression `names` from `header` and writes `file`
# in the form of this platform's linker.
function(write_export_list header names file)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${header}")
  file(STRINGS "${header}" entries REGEX "^CK_FUNCTION_ENTRY\\(${names},")
  list(TRANSFORM entries REPLACE "^CK_FUNCTION_ENTRY\\((C_[A-Za-z]+),.*$" "\\1"
       OUTPUT_VARIABLE names)
  if(APPLE)
    list(TRANSFORM names PREPEND "_")
    list(JOIN names "\n" text)
    string(APPEND text "\n")
  else()
    # Anonymous, because a named version would be one more exported symbol.
    list(TRANSFORM names APPEND "\\;")
    list(JOIN names "\n    " text)
    set(text "{\n  global:\n    ${text}\n  local:\n    *;\n};\n")
  endif()
  file(CONFIGURE OUTPUT "${file}" CONTENT "${text}")
endfunction()
