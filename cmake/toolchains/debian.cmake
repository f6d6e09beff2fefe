# SPDX-License-Identifier: MIT
# A build for another Debian architecture on a Debian machine, with the packages g++-${triplet} and qemu-user-static.
# Included by the file of each architecture, which says:
#
#   architecture   Debian's name for it
#   triplet        the prefix of its compiler
#   processor      CMake's name for it
#   emulator       the program of qemu-user-static that runs its programs
#
# `tools/dev/foreign-root ${architecture}` has to have run before: it makes the folder with the libraries beside those
# of the compiler.
set(root /var/cache/mdnsproxy-dev/root-${architecture})
if(NOT IS_DIRECTORY ${root})
  message(FATAL_ERROR "${root} is missing: run tools/dev/foreign-root ${architecture}")
endif()

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${processor})
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})
set(CMAKE_CROSSCOMPILING_EMULATOR ${emulator} -L /usr/${triplet})

# Libraries of that architecture only. Headers that are the same for all of them (uthash, CLI11) may be this machine's.
set(CMAKE_FIND_ROOT_PATH ${root})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
set(ENV{PKG_CONFIG_LIBDIR} ${root}/usr/lib/${triplet}/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${root})
