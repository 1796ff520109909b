# Builds for AArch64 with Debian's cross compiler; libraries are those of Debian's arm64 packages,
# which packaging/prepare-aarch64 installs. What has been built runs in the user emulator.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

# The folder of the machine's own packages must not answer in place of the arm64 ones.
set(CMAKE_IGNORE_PATH /usr/lib/x86_64-linux-gnu /lib/x86_64-linux-gnu
    /usr/lib/x86_64-linux-gnu/cmake /usr/lib/x86_64-linux-gnu/pkgconfig)
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)

# The test preset sets QEMU_LD_PREFIX=/. With any other folder, its own default too, the emulator looks
# up each path under a lock, which the child of a fork inherits held and then waits for without end.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64)
