# GoogleTest and GoogleMock for the cross compiler: built here from the sources that Debian ships (package googletest).
set(GTest_SOURCE_DIR /usr/src/googletest CACHE PATH "Sources of GoogleTest and GoogleMock")
mark_as_advanced(GTest_SOURCE_DIR)
if(NOT EXISTS ${GTest_SOURCE_DIR}/googlemock/src/gmock-all.cc)
  message(FATAL_ERROR "No sources of GoogleTest in ${GTest_SOURCE_DIR}: install libgmock-dev.")
endif()

# cross_gtest_library(NAME FOLDER SOURCE): the target NAME, as GTest::NAME.
function(cross_gtest_library name folder source)
  set(from ${GTest_SOURCE_DIR}/${folder})
  add_library(${name} STATIC EXCLUDE_FROM_ALL ${from}/src/${source})
  target_include_directories(${name} PUBLIC ${from}/include PRIVATE ${from})
  target_link_libraries(${name} PUBLIC ${ARGN})
  set_target_properties(${name} PROPERTIES SYSTEM ON)
  add_library(GTest::${name} ALIAS ${name})
endfunction()

if(NOT TARGET GTest::gtest)
  cross_gtest_library(gtest googletest gtest-all.cc Threads::Threads)
  cross_gtest_library(gmock googlemock gmock-all.cc gtest)
  cross_gtest_library(gtest_main googletest gtest_main.cc gtest)
endif()
set(GTest_FOUND TRUE)
