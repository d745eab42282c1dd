# What `cmake --install` puts where, in two components: "program" (the programs and what their users read) and
# "development" (libraries, headers and package files for find_package(tracemill); see tracemill_layer).
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(TRACEMILL_CONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/tracemill)

# tracemill_install_compressed(FILE FOLDER COMPONENT): installs FILE, named from the root of the project, compressed in
# FOLDER. Without a time stamp, so that the same text gives the same bytes; configure_file keeps them up to date.
function(tracemill_install_compressed file folder component)
  set(copy ${PROJECT_BINARY_DIR}/${file})
  configure_file(${PROJECT_SOURCE_DIR}/${file} ${copy} COPYONLY)
  find_program(TRACEMILL_GZIP gzip REQUIRED)
  execute_process(COMMAND ${TRACEMILL_GZIP} -9nc ${copy} OUTPUT_FILE ${copy}.gz COMMAND_ERROR_IS_FATAL ANY)
  install(FILES ${copy}.gz DESTINATION ${folder} COMPONENT ${component})
endfunction()

# tracemill_install_package_texts(PACKAGE COMPONENT): the texts that every Debian package has to bring.
function(tracemill_install_package_texts package component)
  set(folder ${CMAKE_INSTALL_DATADIR}/doc/${package})
  tracemill_install_compressed(share/debian/changelog ${folder} ${component})
  install(FILES ${PROJECT_SOURCE_DIR}/share/debian/copyright DESTINATION ${folder} COMPONENT ${component})
endfunction()

# tracemill_install_program(TARGET [SCHEMA]): the program, its manual page and its completion, which are called after it,
# and the JSON Schema of what it writes; all from share/.
function(tracemill_install_program target)
  install(TARGETS ${target} RUNTIME COMPONENT program)
  tracemill_install_compressed(share/${target}.1 ${CMAKE_INSTALL_MANDIR}/man1 program)

  install(
    FILES ${PROJECT_SOURCE_DIR}/share/${target}.bash-completion
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    RENAME ${target}
    COMPONENT program)
  foreach(schema IN LISTS ARGN)
    install(FILES ${PROJECT_SOURCE_DIR}/share/${schema} DESTINATION ${CMAKE_INSTALL_DATADIR}/tracemill
            COMPONENT program)
  endforeach()
endfunction()

# What users of all programs read and copy.
function(tracemill_install_documents)
  tracemill_install_package_texts(tracemill program)
  install(
    FILES ${PROJECT_SOURCE_DIR}/README.md
    DESTINATION ${CMAKE_INSTALL_DOCDIR}
    COMPONENT program)
  install(
    DIRECTORY ${PROJECT_SOURCE_DIR}/docs
    DESTINATION ${CMAKE_INSTALL_DOCDIR}
    COMPONENT program)
  # The demo's recording stays in the source tree.
  install(
    DIRECTORY ${PROJECT_SOURCE_DIR}/examples
    DESTINATION ${CMAKE_INSTALL_DOCDIR}
    USE_SOURCE_PERMISSIONS
    COMPONENT program
    PATTERN demo EXCLUDE
    PATTERN __pycache__ EXCLUDE)
endfunction()

function(tracemill_install_package_files)
  tracemill_install_package_texts(libtracemill-dev development)
  install(
    EXPORT tracemill
    FILE tracemill-targets.cmake
    NAMESPACE tracemill::
    DESTINATION ${TRACEMILL_CONFIG_DIR}
    COMPONENT development)
  configure_package_config_file(
    ${PROJECT_SOURCE_DIR}/cmake/tracemill-config.cmake.in ${PROJECT_BINARY_DIR}/tracemill-config.cmake
    INSTALL_DESTINATION ${TRACEMILL_CONFIG_DIR} NO_SET_AND_CHECK_MACRO)
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/tracemill-config-version.cmake COMPATIBILITY SameMajorVersion)
  install(
    FILES ${PROJECT_BINARY_DIR}/tracemill-config.cmake ${PROJECT_BINARY_DIR}/tracemill-config-version.cmake
    DESTINATION ${TRACEMILL_CONFIG_DIR}
    COMPONENT development)
endfunction()
