# SPDX-License-Identifier: MIT
set(architecture s390x)
set(triplet s390x-linux-gnu)
set(processor s390x)
set(emulator qemu-s390x-static)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
