# Every target of the project links tracemill_flags (PRIVATE): the warnings, and the code generation that keeps the
# document's bytes the same on every processor.
add_library(tracemill_flags INTERFACE)
option(TRACEMILL_WERROR "Treat compiler warnings as errors" OFF)
target_compile_options(
  tracemill_flags
  INTERFACE -Wall
            -Wextra
            -Wpedantic
            -Wshadow
            -Wconversion
            -Wsign-conversion
            -Wformat=2
            -Wnon-virtual-dtor
            -Woverloaded-virtual
            $<$<CXX_COMPILER_ID:GNU>:-Wcast-align=strict>
            # installed libraries must link in projects that are not linked as one
            $<$<AND:$<CXX_COMPILER_ID:GNU>,$<BOOL:${CMAKE_INTERPROCEDURAL_OPTIMIZATION}>>:-ffat-lto-objects>
            # gcc 12, linking as one, sees overlaps and lengths in std::string that are none
            $<$<AND:$<CXX_COMPILER_ID:GNU>,$<BOOL:${CMAKE_INTERPROCEDURAL_OPTIMIZATION}>>:-Wno-restrict$<SEMICOLON>-Wno-stringop-overflow>
            -ffp-contract=off # fused operations would change digits between Arm and x86
            $<$<BOOL:${TRACEMILL_WERROR}>:-Werror>)
target_link_options(
  tracemill_flags
  INTERFACE
  $<$<AND:$<CXX_COMPILER_ID:GNU>,$<BOOL:${CMAKE_INTERPROCEDURAL_OPTIMIZATION}>>:-Wno-restrict$<SEMICOLON>-Wno-stringop-overflow>)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  target_compile_options(tracemill_flags INTERFACE -Wthread-safety)
endif()
# Archives list the symbols of the machine code. gcc-ar would list those of the code for linking as one, which has inline
# functions that the machine code lacks: a test program, linked without, looks for them in every member in vain, twice.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  set(CMAKE_CXX_ARCHIVE_CREATE_IPO "<CMAKE_AR> --plugin /dev/null cr <TARGET> <LINK_FLAGS> <OBJECTS>")
  set(CMAKE_CXX_ARCHIVE_FINISH_IPO "<CMAKE_RANLIB> --plugin /dev/null <TARGET>")
endif()
# Files over 2 GiB and times beyond 2038 on 32-bit boards.
target_compile_definitions(tracemill_flags INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)

# tracemill_layer(NAME SOURCES ... HEADERS ... LINKS ...): one static library whose headers are found from the root of
# the project and must each compile on their own. Other projects know it as tracemill::NAME; those that are OWN are not
# installed: they need libraries that the others do not, and only this project's programs use them.
function(tracemill_layer name)
  cmake_parse_arguments(arg "OWN" "" "SOURCES;HEADERS;LINKS" ${ARGN})
  add_library(${name} STATIC ${arg_SOURCES})
  target_sources(${name} PUBLIC FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR} FILES ${arg_HEADERS})
  target_include_directories(${name} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)
  target_link_libraries(${name} PUBLIC ${arg_LINKS} PRIVATE $<BUILD_INTERFACE:tracemill_flags>)
  target_compile_features(${name} PUBLIC cxx_std_20)
  set_target_properties(${name} PROPERTIES VERIFY_INTERFACE_HEADER_SETS ON)
  if(arg_OWN)
    return()
  endif()
  install(
    TARGETS ${name}
    EXPORT tracemill
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}/tracemill COMPONENT development
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tracemill COMPONENT development)
endfunction()
