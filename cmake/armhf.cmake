# 32-bit ARM, hard float. Libraries of the target come from a folder into which `./dev arm` unpacks
# Debian's armhf packages, so that they cannot collide with those of this machine.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

set(VSCCAM_ARMHF_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../build/armhf-sysroot"
    CACHE PATH "Folder with the unpacked armhf packages")
get_filename_component(sysroot "${VSCCAM_ARMHF_SYSROOT}" ABSOLUTE)
set(CMAKE_FIND_ROOT_PATH "${sysroot}" /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

set(ENV{PKG_CONFIG_LIBDIR} "${sysroot}/usr/lib/arm-linux-gnueabihf/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${sysroot}")

# Programs for the target run here under qemu.
set(CMAKE_CROSSCOMPILING_EMULATOR
    qemu-arm-static -L /usr/arm-linux-gnueabihf
    -E "LD_LIBRARY_PATH=${sysroot}/usr/lib/arm-linux-gnueabihf:/usr/arm-linux-gnueabihf/lib")
