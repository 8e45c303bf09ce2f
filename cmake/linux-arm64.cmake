# Toolchain file for 64-bit Arm on another Linux machine, as Debian and its like lay things out: the
# compiler of g++-aarch64-linux-gnu, the libraries as packages of the architecture arm64. Tests run
# under the user-mode emulation of qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
find_program(FRAMEWELL_QEMU_AARCH64 NAMES qemu-aarch64 qemu-aarch64-static)
if(FRAMEWELL_QEMU_AARCH64)
    set(CMAKE_CROSSCOMPILING_EMULATOR "${FRAMEWELL_QEMU_AARCH64}")
endif()
# Not the folders of this machine's own libraries.
set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig")
