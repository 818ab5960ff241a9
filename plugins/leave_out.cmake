# For plugins whose libraries may be missing. A build without them is of use, unless the plugin was asked for by name, or
# is all there is to build.
function(quillbrook_leave_out plugin packages)
  set(sentence "The plugin ${plugin} is left out: it needs ${packages}")
  if(plugin IN_LIST QUILLBROOK_PLUGINS OR CMAKE_SOURCE_DIR STREQUAL CMAKE_CURRENT_SOURCE_DIR)
    message(FATAL_ERROR "${sentence}")
  endif()
  message(STATUS "${sentence}")
endfunction()
