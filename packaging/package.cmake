# What `cmake --install` puts where besides the targets, and the Debian package of `--target package`.

set(QUILLBROOK_LOG_DIR /var/log/quillbrook)
set(QUILLBROOK_DOC_DIR /usr/share/doc/quillbrook)

# The host and the module look in absolute folders, so that there is nothing to choose.
set(CMAKE_INSTALL_PREFIX /usr)

install(FILES ${PROJECT_SOURCE_DIR}/quillbrook/include/quillbrook.h DESTINATION /usr/include)
install(PROGRAMS ${PROJECT_SOURCE_DIR}/timeline/quillbrook-timeline DESTINATION /usr/bin)
install(FILES ${PROJECT_SOURCE_DIR}/configs/quillbrook.conf.sample DESTINATION ${QUILLBROOK_CONFIG_DIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/configs/grammars DESTINATION /usr/share/quillbrook
  FILES_MATCHING PATTERN *.jsgf)
install(FILES ${PROJECT_SOURCE_DIR}/configs/extensions.conf.sample DESTINATION /usr/share/quillbrook
  RENAME extensions.conf)
configure_file(${CMAKE_CURRENT_LIST_DIR}/quillbrook.pc.in ${PROJECT_BINARY_DIR}/quillbrook.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/quillbrook.pc DESTINATION /usr/share/pkgconfig)
# Documents, and what they link to, lie to each other as they do in the tree.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/ DESTINATION ${QUILLBROOK_DOC_DIR}/docs)
foreach(file README.md CHANGELOG.md CONTRIBUTING.md bench/README.md configs/quillbrook.conf.sample
    configs/extensions.conf.sample packaging/asterisk.service.d/quillbrook.conf plugins/example/example.c
    plugins/pocketsphinx/confidence.h quillbrook/include/quillbrook.h)
  get_filename_component(folder ${file} DIRECTORY)
  install(FILES ${PROJECT_SOURCE_DIR}/${file} DESTINATION ${QUILLBROOK_DOC_DIR}/${folder})
endforeach()
foreach(plugin dummy pocketsphinx transcription websocket)
  install(FILES ${PROJECT_SOURCE_DIR}/plugins/${plugin}/README.md DESTINATION ${QUILLBROOK_DOC_DIR}/plugins/${plugin})
endforeach()
# The folder of `logfile=yes` holds what callers said.
install(DIRECTORY DESTINATION ${QUILLBROOK_LOG_DIR}
  DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE)
install(CODE [[
  if("$ENV{DESTDIR}" STREQUAL "")
    # On a machine whose PBX runs as another user, or as root, that is for the operator to do.
    execute_process(COMMAND chown asterisk:asterisk /var/log/quillbrook OUTPUT_QUIET ERROR_QUIET)
  endif()
]])

# No package without a word: whoever asks for one is told why there is none.
function(quillbrook_no_package reason)
  message(STATUS "No package can be made: ${reason}")
  add_custom_target(package COMMAND ${CMAKE_COMMAND} -E echo "No package can be made: ${reason}"
    COMMAND ${CMAKE_COMMAND} -E false VERBATIM)
endfunction()

# The sum of build options that the host compares tells neither 16 from 13 nor from 22, and a module built for one of
# them crashes in another: the package has to know its series. It is for Debian's PBX, so it is made only where the
# headers are those of its package.
find_program(DPKG_QUERY dpkg-query)
set(asterisk_version "")
if(DPKG_QUERY)
  execute_process(COMMAND ${DPKG_QUERY} -W -f=\${Version} asterisk-dev
    OUTPUT_VARIABLE asterisk_version ERROR_QUIET)
endif()
if(NOT asterisk_version MATCHES "^(([0-9]+:)?)([0-9]+)\\.")
  quillbrook_no_package("it is for Debian's Asterisk, and the package asterisk-dev is not installed")
  return()
endif()
set(asterisk_epoch "${CMAKE_MATCH_1}")
if(NOT CMAKE_MATCH_3 STREQUAL ASTERISK_SERIES)
  quillbrook_no_package(
    "the headers in ${ASTERISK_INCLUDE_DIR} are of Asterisk ${ASTERISK_SERIES}, the installed asterisk-dev is ${CMAKE_MATCH_3}")
  return()
elseif(NOT asterisk_prefix STREQUAL "/usr")
  quillbrook_no_package("it is for Debian's Asterisk, not for the one in ${asterisk_prefix}")
  return()
endif()
math(EXPR asterisk_next "${ASTERISK_SERIES} + 1")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quillbrook)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION}+asterisk${ASTERISK_SERIES})
set(CPACK_PACKAGE_CONTACT "The Quillbrook developers <developers@quillbrook.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "speech recognition engines for the Asterisk PBX")
set(CPACK_PACKAGE_DESCRIPTION
  "A module that gives the speech API of Asterisk ${ASTERISK_SERIES} engines whose plugins recognise speech: offline on
this machine, by a server that speaks a common WebSocket protocol, or by one that transcribes audio files over HTTP, as
those of the Whisper family do. With endpointing, JSGF grammars, results as text, JSON and NLSML, console commands,
Prometheus metrics, and the header for plugins of one's own.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_SET_DESTDIR ON) # the host's folders are absolute
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION comm)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS python3) # of quillbrook-srgs and quillbrook-timeline
set(CPACK_DEBIAN_PACKAGE_DEPENDS
  "asterisk (>= ${asterisk_epoch}${ASTERISK_SERIES}~), asterisk (<< ${asterisk_epoch}${asterisk_next}~)")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${QUILLBROOK_PLUGIN_OUTPUT_DIR})
if(TARGET plugin_pocketsphinx)
  # What the package's configuration uses.
  string(APPEND CPACK_DEBIAN_PACKAGE_DEPENDS ", pocketsphinx-en-us")
  set(CPACK_QUILLBROOK_PLUGIN plugin_pocketsphinx.so)
endif()
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
  ${CMAKE_CURRENT_LIST_DIR}/conffiles ${CMAKE_CURRENT_LIST_DIR}/postinst ${CMAKE_CURRENT_LIST_DIR}/postrm)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/stage.cmake)
# Variables of our own that stage.cmake sees have to begin with CPACK_.
set(CPACK_QUILLBROOK_COPYRIGHT ${CMAKE_CURRENT_LIST_DIR}/copyright)
include(CPack)
