# Debian's cross compiler for `triplet`, and `qemu`, which runs what it builds. The packages are g++-TRIPLET and
# qemu-user; nothing is asked of the kernel (no binfmt_misc): CTest puts the emulator before each command, and what a
# test starts by itself is started by way of a launcher (cmake/Emulation.cmake).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)

set(CMAKE_FIND_ROOT_PATH /usr/${triplet})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# Headers and sources that Debian ships for every processor: cmake/cross/Find*.cmake.
list(PREPEND CMAKE_MODULE_PATH ${CMAKE_CURRENT_LIST_DIR}/../cross)

set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../cross/emulate ${qemu} /usr/${triplet})
