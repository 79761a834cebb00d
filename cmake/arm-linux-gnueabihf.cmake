# Cross build for the recorder: 32-bit ARM, hard-float, with Debian's
# g++-arm-linux-gnueabihf. `long` and the default off_t are 32 bits there, so
# this build is where a 64-bit offset that slipped through a 32-bit type
# shows up.
#
#   cmake -S . -B build/arm -DCMAKE_TOOLCHAIN_FILE=cmake/arm-linux-gnueabihf.cmake
#
# Test binaries run under qemu-arm with the cross sysroot (the
# CROSSCOMPILING_EMULATOR of every executable, used by ctest and by test
# discovery).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(TRELLIS_TARGET_TRIPLE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER ${TRELLIS_TARGET_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${TRELLIS_TARGET_TRIPLE}-g++)

# Debian's cross compiler already searches its own sysroot; CMake's find_*
# calls are pointed there too, so no host library is picked up by mistake.
set(TRELLIS_TARGET_SYSROOT /usr/${TRELLIS_TARGET_TRIPLE})
set(CMAKE_FIND_ROOT_PATH ${TRELLIS_TARGET_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

find_program(TRELLIS_QEMU_ARM qemu-arm)
if(TRELLIS_QEMU_ARM)
  set(CMAKE_CROSSCOMPILING_EMULATOR
      ${TRELLIS_QEMU_ARM} -L ${TRELLIS_TARGET_SYSROOT})
endif()
# e_machine of the target's ELF files (EM_ARM): the test wrapper runs exactly
# these under the emulator and everything else natively.
set(TRELLIS_TARGET_ELF_MACHINE 40)

# The recorder's console stays small: it is optimised for size (its work
# waits on the card, not on the processor), and functions and data the
# program never reaches are left out of it. The tests run this same code.
set(CMAKE_CXX_FLAGS_INIT "-ffunction-sections -fdata-sections -Wno-psabi")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,--gc-sections")
set(TRELLIS_OPTIMISE_FOR_SIZE ON)
