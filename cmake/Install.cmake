# What `cmake --install` puts where, in components: "program" (the program and what its users read), "companions"
# (the programs beside it, which need more libraries) and
# "development" (libraries, headers and package files for find_package(tracemill); see tracemill_layer).
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(TRACEMILL_CONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/tracemill)

# The program NAME with its manual page and completion, where share/ has them.
function(tracemill_install_executable name component)
  install(TARGETS ${name} RUNTIME COMPONENT ${component})

  # Manual pages stand compressed where man looks for them; configure_file keeps the compressed one up to date.
  if(EXISTS ${PROJECT_SOURCE_DIR}/share/${name}.1)
    set(page ${PROJECT_BINARY_DIR}/share/${name}.1)
    configure_file(${PROJECT_SOURCE_DIR}/share/${name}.1 ${page} COPYONLY)
    find_program(TRACEMILL_GZIP gzip REQUIRED)
    execute_process(COMMAND ${TRACEMILL_GZIP} -9nc ${page} OUTPUT_FILE ${page}.gz COMMAND_ERROR_IS_FATAL ANY)
    install(FILES ${page}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT ${component})
  endif()
  if(EXISTS ${PROJECT_SOURCE_DIR}/share/${name}.bash-completion)
    install(
      FILES ${PROJECT_SOURCE_DIR}/share/${name}.bash-completion
      DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
      RENAME ${name}
      COMPONENT ${component})
  endif()
endfunction()

function(tracemill_install_program target)
  tracemill_install_executable(${target} program)
  install(FILES ${PROJECT_SOURCE_DIR}/share/tracemill.schema.json DESTINATION ${CMAKE_INSTALL_DATADIR}/tracemill
          COMPONENT program)
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
