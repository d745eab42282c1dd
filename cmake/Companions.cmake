# What the companions of the converter (libraries and programs beside it) need and it does not: elfutils, zlib, xz and
# zstd. tracemill_find_companions() looks for them and sets TRACEMILL_COMPANIONS; without them the converter is built
# alone, and the configuration says what is missing.
#
#   PkgConfig::TRACEMILL_ARCHIVE  libarchive, for bundles, where TRACEMILL_ARCHIVE_FOUND
#   tracemill_elf        imported libraries: libelf, libdw, zlib, xz, zstd
#   tracemill_demangler  libiberty where it is installed (TRACEMILL_LIBIBERTY), else the C++ library's own
macro(tracemill_find_companions)
  set(TRACEMILL_COMPANIONS OFF)
  # pkg-config would answer for this machine, and for shared libraries.
  if(NOT CMAKE_CROSSCOMPILING AND NOT CMAKE_EXE_LINKER_FLAGS MATCHES "-static")
    find_package(PkgConfig QUIET)
  endif()
  if(PkgConfig_FOUND)
    pkg_check_modules(TRACEMILL_ELF QUIET IMPORTED_TARGET libelf libdw zlib liblzma libzstd)
  endif()
  if(TRACEMILL_ELF_FOUND)
    set(TRACEMILL_COMPANIONS ON)
    add_library(tracemill_elf ALIAS PkgConfig::TRACEMILL_ELF)
    add_library(tracemill_demangler INTERFACE)
    find_library(TRACEMILL_LIBIBERTY iberty)
    find_path(TRACEMILL_LIBIBERTY_INCLUDE libiberty/demangle.h)
    if(TRACEMILL_LIBIBERTY AND TRACEMILL_LIBIBERTY_INCLUDE)
      target_link_libraries(tracemill_demangler INTERFACE ${TRACEMILL_LIBIBERTY})
      target_compile_definitions(tracemill_demangler INTERFACE TRACEMILL_LIBIBERTY)
    endif()
    pkg_check_modules(TRACEMILL_ARCHIVE QUIET IMPORTED_TARGET libarchive)
    if(NOT TRACEMILL_ARCHIVE_FOUND)
      message(STATUS "Building tracemill-prepare without bundles: the development files of libarchive are missing")
    endif()
  else()
    message(STATUS "Building the converter alone: the companions are built for this machine with shared libraries, and need pkg-config and the development files of libelf, libdw, zlib, xz and zstd")
  endif()
endmacro()

# What tracemill-report needs: simdjson, zlib and protobuf. Sets TRACEMILL_REPORT.
macro(tracemill_find_report)
  set(TRACEMILL_REPORT OFF)
  if(NOT CMAKE_CROSSCOMPILING)
    find_package(simdjson CONFIG QUIET)
    find_package(ZLIB QUIET)
    find_package(Protobuf QUIET)
  endif()
  if(simdjson_FOUND AND ZLIB_FOUND AND Protobuf_FOUND AND TARGET protobuf::protoc)
    set(TRACEMILL_REPORT ON)
  else()
    message(STATUS "Building without tracemill-report: it needs the development files of simdjson, zlib and protobuf, and protoc")
  endif()
endmacro()
