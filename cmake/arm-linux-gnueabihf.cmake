# Debian's cross compiler for 32-bit ARM, with the armhf packages beside the native ones and the
# programs run by qemu-arm. For testing only: a device passes floats in core registers, this
# compiler in VFP registers, so what comes out here is not call-compatible with a device.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7-a)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
# -Wno-psabi: the notes speak of compilers before GCC 7, none of which is mixed in here.
set(CMAKE_C_FLAGS_INIT "-march=armv7-a -mfpu=neon -mfloat-abi=hard -Wno-psabi")
if(BINAURAL_SANITIZE)
  # A function's address is odd in Thumb code, which the alignment check takes for a fault.
  string(APPEND CMAKE_C_FLAGS_INIT " -marm")
endif()
set(CMAKE_CXX_FLAGS_INIT "${CMAKE_C_FLAGS_INIT}")

find_program(BINAURAL_QEMU_ARM qemu-arm REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${BINAURAL_QEMU_ARM})

# Libraries and package files of the native architecture must not be taken by mistake.
set(CMAKE_SYSTEM_LIBRARY_PATH /usr/lib/arm-linux-gnueabihf)
set(CMAKE_IGNORE_PATH /usr/lib/x86_64-linux-gnu /usr/lib/x86_64-linux-gnu/android
  /usr/lib/x86_64-linux-gnu/cmake)
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/arm-linux-gnueabihf/pkgconfig:/usr/share/pkgconfig)
