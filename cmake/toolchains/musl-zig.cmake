# SPDX-License-Identifier: MIT
# A static daemon for musl, by the clang, libc++ and musl of a Zig compiler: MDNSPROXY_ZIG names it. MDNSPROXY_ROOT is
# the folder with what the daemon needs beside them (include/ut*.h, include/ini.h, lib/libinih.a and
# lib/pkgconfig/inih.pc), since nothing of this machine's own may be found. tests/portability/long_musl.py makes both.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES MDNSPROXY_ZIG MDNSPROXY_ROOT)

foreach(variable MDNSPROXY_ZIG MDNSPROXY_ROOT)
  if(NOT DEFINED ${variable})
    message(FATAL_ERROR "musl-zig.cmake wants -D ${variable}=...")
  endif()
endforeach()
set(CMAKE_C_COMPILER ${MDNSPROXY_ZIG} cc)
set(CMAKE_CXX_COMPILER ${MDNSPROXY_ZIG} c++)
set(CMAKE_C_COMPILER_TARGET x86_64-linux-musl)
set(CMAKE_CXX_COMPILER_TARGET x86_64-linux-musl)
set(CMAKE_C_FLAGS_INIT -isystem${MDNSPROXY_ROOT}/include)
set(CMAKE_CXX_FLAGS_INIT -isystem${MDNSPROXY_ROOT}/include)
set(CMAKE_FIND_ROOT_PATH ${MDNSPROXY_ROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} ${MDNSPROXY_ROOT}/lib/pkgconfig)
