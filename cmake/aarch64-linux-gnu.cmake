# Builds for an arm64 device with Debian's cross compiler, g++-aarch64-linux-gnu:
#   cmake --preset release -B build/arm64 --toolchain cmake/aarch64-linux-gnu.cmake -D QVCD_TESTS=OFF
# Headers and libraries of the device come from the folder QVCD_SYSROOT, a root file system of it (scripts/cross_build.sh
# makes one); without it from this machine, where Debian's multiarch puts packages such as libssl-dev:arm64.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(triplet aarch64-linux-gnu)

set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)

list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES QVCD_SYSROOT)
if(QVCD_SYSROOT)
  set(CMAKE_SYSROOT ${QVCD_SYSROOT})
  set(ENV{PKG_CONFIG_SYSROOT_DIR} ${QVCD_SYSROOT})
else()
  set(CMAKE_FIND_ROOT_PATH /usr/${triplet} /usr)
endif()
set(ENV{PKG_CONFIG_LIBDIR} ${QVCD_SYSROOT}/usr/lib/${triplet}/pkgconfig:${QVCD_SYSROOT}/usr/share/pkgconfig)
