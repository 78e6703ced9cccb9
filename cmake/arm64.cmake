# Debian's cross compiler for 64-bit Arm; `scripts/setup arm64` installs it and the libraries.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_PATH /usr/lib/aarch64-linux-gnu)
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)
cmake_path(SET CMAKE_CROSSCOMPILING_EMULATOR NORMALIZE ${CMAKE_CURRENT_LIST_DIR}/../tests/emulator)
# The pages of the target are of 4 KiB: a segment aligned to 64 KiB would only be padding.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,-z,max-page-size=4096")
