# `cpack -G DEB` in a build directory: tracemill_<version>_<architecture>.deb and, for other projects,
# libtracemill-dev_<version>_<architecture>.deb.
set(CPACK_GENERATOR DEB)
# As in share/debian/changelog.
set(CPACK_PACKAGE_CONTACT "The tracemill developers <developers@tracemill.example>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL program development)

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
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SHLIBDEPS ON) # libelf1, libdw1, zlib1g, liblzma5, libzstd1, libarchive13 with the companions
# It calls nm for every file that is not in its cache; it does without where the cache is frozen.
set(CPACK_DEBIAN_PROGRAM_PACKAGE_RECOMMENDS binutils)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SUGGESTS
    "linux-perf, libdebuginfod1, python3, python3-matplotlib, python3-pandas, gnuplot-nox | gnuplot, jq, sqlite3")
set(CPACK_COMPONENT_PROGRAM_DESCRIPTION
    "Reads a file that perf record wrote and writes one JSON document: every sample
with its time, CPU, thread and back trace, and the tables that it refers to:
memory maps, functions, processes and source files.")
if(TRACEMILL_COMPANIONS)
  string(APPEND CPACK_COMPONENT_PROGRAM_DESCRIPTION
         " tracemill-prepare makes any
recording ready for that, and finds the names of all functions.")
endif()

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libtracemill-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS libboost-dev)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "The libraries that tracemill is made of, static, with headers and CMake package
files for C++ programs of your own: find_package(tracemill).")

include(CPack)
