# 32-bit ARM, hard float. The C and C++ runtimes are those of Debian's cross compiler; every other
# library comes from a folder into which `./dev arm` unpacks armhf packages, so that they cannot
# collide with those of this machine.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

get_filename_component(sysroot "${CMAKE_CURRENT_LIST_DIR}/../build/armhf-sysroot" ABSOLUTE)
set(libraries "${sysroot}/usr/lib/arm-linux-gnueabihf")
set(runtimes /usr/arm-linux-gnueabihf)

set(CMAKE_FIND_ROOT_PATH "${sysroot}" ${runtimes})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

set(ENV{PKG_CONFIG_LIBDIR} "${libraries}/pkgconfig:${sysroot}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${sysroot}")

# No notes on calls whose convention changed with GCC 7: nothing that old is linked.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)

# Where the linker finds what those libraries need themselves.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,-rpath-link,${libraries}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-Wl,-rpath-link,${libraries}")

# Programs for the target run here under qemu.
set(CMAKE_CROSSCOMPILING_EMULATOR
    qemu-arm-static -L ${runtimes} -E "LD_LIBRARY_PATH=${libraries}")
