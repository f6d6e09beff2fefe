# SPDX-License-Identifier: MIT
set(architecture armhf)
set(triplet arm-linux-gnueabihf)
set(processor arm)
set(emulator qemu-arm-static)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
