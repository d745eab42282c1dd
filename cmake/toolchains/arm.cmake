# 32-bit Arm with floating point in hardware (Debian's armhf). See debian-cross.cmake.
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(triplet arm-linux-gnueabihf)
set(qemu qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
