# Programs that tests start by themselves, when they are built for another processor.
#
# tracemill_command(VARIABLE TARGET): the command by which a test starts the program TARGET; a single path, to be used
# where $<TARGET_FILE:TARGET> would be. Here that file; when it takes an emulator to run it, a script that does so: the
# launcher ${PROJECT_BINARY_DIR}/run/NAME.
function(tracemill_command variable target)
  if(NOT CMAKE_CROSSCOMPILING_EMULATOR)
    set(${variable} $<TARGET_FILE:${target}> PARENT_SCOPE)
    return()
  endif()
  set(launcher ${PROJECT_BINARY_DIR}/run/${target})
  set(${variable} ${launcher} PARENT_SCOPE)
  get_target_property(known ${target} TRACEMILL_LAUNCHER)
  if(known)
    return()
  endif()
  set_target_properties(${target} PROPERTIES TRACEMILL_LAUNCHER ${launcher})
  list(JOIN CMAKE_CROSSCOMPILING_EMULATOR "' '" emulator)
  file(
    GENERATE
    OUTPUT ${launcher}
    CONTENT "#!/bin/sh\nexec '${emulator}' '$<TARGET_FILE:${target}>' \"$@\"\n"
    FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
endfunction()

# What a test may take longer, as a factor.
set(TRACEMILL_PATIENCE 1)
if(CMAKE_CROSSCOMPILING_EMULATOR)
  set(TRACEMILL_PATIENCE 4)
endif()
