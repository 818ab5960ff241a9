# Run by cpack on the staged files, before they become the package: what differs from an installation by hand.
set(root ${CPACK_TEMPORARY_INSTALL_DIRECTORY})
set(documents ${root}/usr/share/doc/quillbrook)

# The sample serves as the configuration: the module loads from the first start of the PBX on. Without the file it would
# not, and a module that fails to load ends the start of the PBX. All in it is commented out, but the package recognises.
file(RENAME ${root}/etc/asterisk/quillbrook.conf.sample ${root}/etc/asterisk/quillbrook.conf)
if(CPACK_QUILLBROOK_PLUGIN)
  set(chosen "; As the package is installed: recognition on this machine, in English.\\nplugin = ${CPACK_QUILLBROOK_PLUGIN}")
  execute_process(COMMAND sed -i "0,/^;plugin = .*/s//${chosen}/" ${root}/etc/asterisk/quillbrook.conf
    COMMAND_ERROR_IS_FATAL ANY)
endif()

configure_file(${CPACK_QUILLBROOK_COPYRIGHT} ${documents}/copyright COPYONLY)
find_program(GZIP gzip REQUIRED)
file(RENAME ${documents}/CHANGELOG.md ${documents}/changelog)
execute_process(COMMAND ${GZIP} -9n ${documents}/changelog COMMAND_ERROR_IS_FATAL ANY)
