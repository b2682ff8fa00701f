# The hardening Debian builds its own packages with (dpkg-buildflags, hardening=+all): stack
# protector, fortified libc calls, format checks, read-only relocations bound at start. The
# appliance build and the Debian packages use it; development builds do not need it.
# Usable on its own as a toolchain file for a native build (-DCMAKE_TOOLCHAIN_FILE=...).
set(TESSERA_HARDENING_FLAGS "-fstack-protector-strong -D_FORTIFY_SOURCE=2 -Wformat -Werror=format-security")
set(CMAKE_C_FLAGS_INIT "${TESSERA_HARDENING_FLAGS}")
set(CMAKE_CXX_FLAGS_INIT "${TESSERA_HARDENING_FLAGS}")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,-z,relro -Wl,-z,now")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-Wl,-z,relro -Wl,-z,now")
