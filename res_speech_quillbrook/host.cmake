# Which PBX the build is for: its headers and their series, its folders of modules and of configuration. What host.h is
# to the code, this is to the build: the one place that knows where a PBX keeps its things.
#
# Takes ASTERISK_PREFIX, ASTERISK_INCLUDE_DIR, QUILLBROOK_MODULE_DIR and QUILLBROOK_CONFIG_DIR, all of which may be
# empty, and fills in the last three. Gives besides:
#   ASTERISK_SERIES    the major version of the headers, such as 16; empty when nothing tells it
#   quillbrook_host    the target to link for the headers
# Prints all of them, and ends the configuration with a sentence when there are no headers.

set(ASTERISK_PREFIX "" CACHE PATH "Prefix of a PBX that was compiled from source, such as /opt/asterisk")
set(ASTERISK_INCLUDE_DIR "" CACHE PATH "Folder of the PBX's asterisk.h, or the folder asterisk beside that file")
set(QUILLBROOK_MODULE_DIR "" CACHE PATH "The PBX's folder of modules, in place of the one that is found")
set(QUILLBROOK_CONFIG_DIR "" CACHE PATH "The PBX's folder of configuration, in place of the one that is found")

function(quillbrook_find_headers result)
  if(ASTERISK_INCLUDE_DIR)
    get_filename_component(above "${ASTERISK_INCLUDE_DIR}" DIRECTORY)
    set(candidates "${ASTERISK_INCLUDE_DIR}" "${above}")
    set(complaint "in ASTERISK_INCLUDE_DIR, which is ${ASTERISK_INCLUDE_DIR}")
  elseif(ASTERISK_PREFIX)
    set(candidates "${ASTERISK_PREFIX}/include")
    set(complaint "below ASTERISK_PREFIX, in ${ASTERISK_PREFIX}/include")
  else()
    set(candidates /usr/include /usr/local/include)
    set(complaint "in /usr/include and /usr/local/include")
  endif()
  foreach(folder IN LISTS candidates)
    if(EXISTS "${folder}/asterisk.h" AND EXISTS "${folder}/asterisk/speech.h")
      set(${result} "${folder}" PARENT_SCOPE)
      return()
    endif()
  endforeach()
  message(FATAL_ERROR "The headers asterisk.h and asterisk/speech.h of the PBX are not ${complaint}. Install asterisk-dev, "
    "or set ASTERISK_PREFIX to the prefix of your PBX, or ASTERISK_INCLUDE_DIR to the folder that holds asterisk.h.")
endfunction()

# The prefix of the PBX that the module will be loaded by: the one of the headers, when a program is there too.
function(quillbrook_find_prefix result)
  get_filename_component(beside_headers "${ASTERISK_INCLUDE_DIR}" DIRECTORY)
  if(ASTERISK_PREFIX)
    set(${result} "${ASTERISK_PREFIX}" PARENT_SCOPE)
  elseif(EXISTS "${beside_headers}/sbin/asterisk")
    set(${result} "${beside_headers}" PARENT_SCOPE)
  else()
    set(${result} /usr PARENT_SCOPE)
  endif()
endfunction()

function(quillbrook_match result file expression)
  set(${result} "" PARENT_SCOPE)
  if(EXISTS "${file}")
    file(STRINGS "${file}" lines REGEX "${expression}" LIMIT_COUNT 1)
    if(lines MATCHES "${expression}")
      set(${result} "${CMAKE_MATCH_1}" PARENT_SCOPE)
    endif()
  endif()
endfunction()

# The major version that a program of the PBX states, or nothing.
function(quillbrook_ask_program result program)
  set(${result} "" PARENT_SCOPE)
  if(EXISTS "${program}")
    execute_process(COMMAND "${program}" -V OUTPUT_VARIABLE answer ERROR_QUIET)
    if(answer MATCHES "^Asterisk (certified[/-])?([0-9]+)\\.")
      set(${result} "${CMAKE_MATCH_2}" PARENT_SCOPE)
    endif()
  endif()
endfunction()

# No header states the version as such. The newer series name themselves in autoconfig.h, where the older ones have a
# word; a source tree has the file .version; 13 is told by the call id that is an object. For the others the program of
# the same prefix is asked. Without it: 16 was the first whose module record names what it requires.
function(quillbrook_read_series result)
  set(headers "${ASTERISK_INCLUDE_DIR}/asterisk")
  quillbrook_match(series "${headers}/autoconfig.h" "^#define PACKAGE_VERSION \"([0-9]+)[.\"]")
  if(NOT series)
    quillbrook_match(series "${ASTERISK_INCLUDE_DIR}/../.version" "^([0-9]+)\\.")
  endif()
  if(NOT series)
    quillbrook_match(counted "${headers}/logger.h" "^struct (ast_callid)")
    if(counted)
      set(series 13)
    endif()
  endif()
  if(NOT series)
    quillbrook_ask_program(series "${ASTERISK_INCLUDE_DIR}/../sbin/asterisk")
  endif()
  if(NOT series AND NOT EXISTS "${headers}/res_prometheus.h")
    quillbrook_match(requires "${headers}/module.h" "const char \\*(requires)")
    if(requires)
      set(series 16)
    endif()
  endif()
  set(${result} "${series}" PARENT_SCOPE)
endfunction()

# The folder that the PBX's own configuration names, which stands there as a comment too when it is what was compiled in;
# else the one that exists, and rather one with modules than an empty one.
function(quillbrook_find_modules result prefix config)
  execute_process(COMMAND sed -nE "s/^ *astmoddir *=>? *([^ ;]+).*/\\1/p" "${config}/asterisk.conf"
    OUTPUT_VARIABLE named OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  set(default "${prefix}/lib/asterisk/modules")
  set(candidates "${default}" "${prefix}/lib/${CMAKE_LIBRARY_ARCHITECTURE}/asterisk/modules"
    "${prefix}/lib64/asterisk/modules")
  if(named)
    set(default "${named}")
    list(PREPEND candidates "${named}")
  endif()
  foreach(proof res_speech.so .)
    foreach(folder IN LISTS candidates)
      if(EXISTS "${folder}/${proof}")
        set(${result} "${folder}" PARENT_SCOPE)
        return()
      endif()
    endforeach()
  endforeach()
  set(${result} "${default}" PARENT_SCOPE)
endfunction()

quillbrook_find_headers(ASTERISK_INCLUDE_DIR)
quillbrook_find_prefix(asterisk_prefix)
quillbrook_read_series(ASTERISK_SERIES)
quillbrook_ask_program(asterisk_installed "${asterisk_prefix}/sbin/asterisk")
if(NOT QUILLBROOK_CONFIG_DIR)
  # A PBX below /usr has its configuration beside that folder.
  string(REGEX REPLACE "/usr$" "" above_etc "${asterisk_prefix}")
  set(QUILLBROOK_CONFIG_DIR "${above_etc}/etc/asterisk")
endif()
if(NOT QUILLBROOK_MODULE_DIR)
  quillbrook_find_modules(QUILLBROOK_MODULE_DIR "${asterisk_prefix}" "${QUILLBROOK_CONFIG_DIR}")
endif()

set(asterisk_series_shown "${ASTERISK_SERIES}")
if(NOT ASTERISK_SERIES)
  set(asterisk_series_shown "not told by the headers")
elseif(asterisk_installed AND NOT asterisk_installed STREQUAL ASTERISK_SERIES)
  string(APPEND asterisk_series_shown
    " (the PBX in ${asterisk_prefix} is ${asterisk_installed}: it must not load what is built here)")
endif()
message(STATUS "Asterisk headers: ${ASTERISK_INCLUDE_DIR}")
message(STATUS "Asterisk version: ${asterisk_series_shown}")
message(STATUS "Asterisk modules: ${QUILLBROOK_MODULE_DIR}")
message(STATUS "Asterisk configuration: ${QUILLBROOK_CONFIG_DIR}")

add_library(quillbrook_host INTERFACE)
target_include_directories(quillbrook_host SYSTEM INTERFACE "${ASTERISK_INCLUDE_DIR}")
