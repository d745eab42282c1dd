# Run after a test program is built: asks it for its suites and writes the file that tells ctest of them, a test for
# each suite, named as the suite.
#
#   cmake -D PROGRAM=... -D LAUNCH=... -D PROPERTIES=... -D OUTPUT=... -P AddSuites.cmake
#
# LAUNCH goes before the program: an emulator, or nothing. PROPERTIES are those of every test.
cmake_minimum_required(VERSION 3.25)

execute_process(
  COMMAND ${LAUNCH} ${PROGRAM} --gtest_list_tests
  OUTPUT_VARIABLE list
  TIMEOUT 120 COMMAND_ERROR_IS_FATAL ANY)

# A suite stands alone in its line, with a dot at its end; a remark may follow.
string(REGEX MATCHALL "(^|\n)[^ \n][^ \n]*\\." suites "${list}")
if(NOT suites)
  message(FATAL_ERROR "${PROGRAM} has no tests.")
endif()

set(tests "")
foreach(suite IN LISTS suites)
  string(REGEX REPLACE "^\n?(.*)\\.$" "\\1" name "${suite}")
  set(command "")
  foreach(word IN LISTS LAUNCH PROGRAM)
    string(APPEND command " [==[${word}]==]")
  endforeach()
  string(APPEND tests "add_test([==[${name}]==]${command} [==[--gtest_filter=${name}.*]==])\n"
         "set_tests_properties([==[${name}]==] PROPERTIES ${PROPERTIES})\n")
endforeach()
file(WRITE ${OUTPUT} "${tests}")
