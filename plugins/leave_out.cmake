# For plugins whose libraries may be missing.

# Sets the result to the packages of what was not found, "" when all was. Each need is VARIABLE:PACKAGE; the variable is
# true when it was found.
function(quillbrook_missing_packages result)
  set(missing "")
  foreach(need IN LISTS ARGN)
    string(REPLACE ":" ";" need ${need})
    list(GET need 0 found)
    if(NOT ${found})
      list(GET need 1 package)
      list(APPEND missing ${package})
    endif()
  endforeach()
  list(JOIN missing ", " missing)
  set(${result} "${missing}" PARENT_SCOPE)
endfunction()

# A build without the plugin is of use, unless it was asked for by name, or is all there is to build.
function(quillbrook_leave_out plugin packages)
  set(sentence "The plugin ${plugin} is left out: it needs ${packages}")
  if(plugin IN_LIST QUILLBROOK_PLUGINS OR CMAKE_SOURCE_DIR STREQUAL CMAKE_CURRENT_SOURCE_DIR)
    message(FATAL_ERROR "${sentence}")
  endif()
  message(STATUS "${sentence}")
endfunction()
