# `cpack -G DEB` in a build directory: tracemill_<version>_<architecture>.deb and, for other projects,
# libtracemill-dev_<version>_<architecture>.deb.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "The tracemill developers")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL program development)
if(TRACEMILL_REPORT AND TRACEMILL_COMPANIONS)
  list(APPEND CPACK_COMPONENTS_ALL companions)
endif()

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# Of the processor that the program is built for, which need not be this one's.
if(CMAKE_CXX_LIBRARY_ARCHITECTURE STREQUAL arm-linux-gnueabihf)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
elseif(CMAKE_CXX_LIBRARY_ARCHITECTURE STREQUAL aarch64-linux-gnu)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
endif()
# Folders of a fixed mode, whatever the umask of who packs.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_PROGRAM_PACKAGE_NAME tracemill)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SHLIBDEPS ON)
# It calls nm for every file that is not in its cache; it does without where the cache is frozen.
set(CPACK_DEBIAN_PROGRAM_PACKAGE_RECOMMENDS binutils)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SUGGESTS
    "linux-perf, python3, python3-matplotlib, python3-pandas, gnuplot-nox | gnuplot, jq, sqlite3")
set(CPACK_COMPONENT_PROGRAM_DESCRIPTION
    "Reads a file that perf record wrote and writes one JSON document: every sample
with its time, CPU, thread and back trace, and the tables that it refers to:
memory maps, functions, processes and source files.")

set(CPACK_DEBIAN_COMPANIONS_PACKAGE_NAME tracemill-companions)
set(CPACK_DEBIAN_COMPANIONS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_COMPANIONS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_COMPANIONS_PACKAGE_DEPENDS tracemill)
set(CPACK_DEBIAN_COMPANIONS_PACKAGE_RECOMMENDS linux-perf)
set(CPACK_COMPONENT_COMPANIONS_DESCRIPTION
    "From a recording of perf to a page that anyone can open: tracemill-prepare makes
any recording ready for tracemill and names its functions, tracemill-report does
every step and writes the page, or a file for other tools.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libtracemill-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS libboost-dev)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "The libraries that tracemill is made of, static, with headers and CMake package
files for C++ programs of your own: find_package(tracemill).")

include(CPack)
