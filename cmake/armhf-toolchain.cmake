# Cross build for the reader appliance (32-bit ARM, hard float) on a Debian amd64 machine:
#   bash scripts/install-armhf-deps.sh
#   cmake -S . -B build-armhf -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/armhf-toolchain.cmake
# The compiler is Debian's arm-linux-gnueabihf-g++ with its own libc and libstdc++ under
# /usr/arm-linux-gnueabihf. libcurl, libmosquitto and GoogleTest are Debian's armhf packages, unpacked by the
# install script into build-armhf-sysroot/ (or TESSERA_ARMHF_SYSROOT). The programs are built
# with Debian's hardening flags, as the packages ship them, and run here through qemu-arm.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(TESSERA_ARMHF_TRIPLE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER ${TESSERA_ARMHF_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${TESSERA_ARMHF_TRIPLE}-g++)

if(NOT TESSERA_ARMHF_SYSROOT)
  if(DEFINED ENV{TESSERA_ARMHF_SYSROOT})
    set(TESSERA_ARMHF_SYSROOT $ENV{TESSERA_ARMHF_SYSROOT})
  else()
    get_filename_component(TESSERA_ARMHF_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build-armhf-sysroot ABSOLUTE)
  endif()
endif()
# try_compile projects see only what is listed here, not the cache.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TESSERA_ARMHF_SYSROOT)
if(NOT EXISTS ${TESSERA_ARMHF_SYSROOT}/usr/include/${TESSERA_ARMHF_TRIPLE}/curl/curl.h OR
   NOT EXISTS ${TESSERA_ARMHF_SYSROOT}/usr/include/mosquitto.h)
  message(FATAL_ERROR "no armhf libraries in ${TESSERA_ARMHF_SYSROOT}: run scripts/install-armhf-deps.sh")
endif()

# Libraries, headers and CMake package files come from the unpacked armhf packages only (never
# from the host's x86_64 folders); programs the build runs are the host's.
set(CMAKE_LIBRARY_ARCHITECTURE ${TESSERA_ARMHF_TRIPLE})
set(CMAKE_FIND_ROOT_PATH ${TESSERA_ARMHF_SYSROOT} /usr/${TESSERA_ARMHF_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# FindCURL and libmosquitto's pkg_check_modules ask pkg-config; point it at the armhf .pc files.
set(ENV{PKG_CONFIG_LIBDIR} ${TESSERA_ARMHF_SYSROOT}/usr/lib/${TESSERA_ARMHF_TRIPLE}/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${TESSERA_ARMHF_SYSROOT})
set(ENV{PKG_CONFIG_PATH} "")

# libcurl's and libmosquitto's own dependencies (TLS, Kerberos, ...) are resolved at link time from the sysroot.
set(tessera_armhf_rpath_link
  "-Wl,-rpath-link,${TESSERA_ARMHF_SYSROOT}/usr/lib/${TESSERA_ARMHF_TRIPLE}:${TESSERA_ARMHF_SYSROOT}/lib/${TESSERA_ARMHF_TRIPLE}")

# On the appliance libcurl comes from the system's own folders, and under qemu-arm -L the sysroot
# stands in for them: no RUNPATH into this build machine's sysroot.
set(CMAKE_SKIP_RPATH ON)

include(${CMAKE_CURRENT_LIST_DIR}/hardening.cmake)
# GCC notes on ARM that the passing of some arguments changed in GCC 7.1; everything here is
# built by one compiler, so the note says nothing.
string(APPEND CMAKE_CXX_FLAGS_INIT " -Wno-psabi")
string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " ${tessera_armhf_rpath_link}")
string(APPEND CMAKE_SHARED_LINKER_FLAGS_INIT " ${tessera_armhf_rpath_link}")

# ctest and GoogleTest's test discovery run the armhf programs through qemu-arm, which takes the
# dynamic loader and every library from the sysroot (it holds Debian's armhf libc and libstdc++).
find_program(TESSERA_QEMU_ARM NAMES qemu-arm qemu-arm-static)
if(TESSERA_QEMU_ARM)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${TESSERA_QEMU_ARM} -L ${TESSERA_ARMHF_SYSROOT})
endif()
