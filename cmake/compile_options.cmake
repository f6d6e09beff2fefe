# SPDX-License-Identifier: MIT
# One place for the language level, the warnings and the sanitizers.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE RelWithDebInfo)
endif()

option(MDNSPROXY_WERROR "Treat warnings as errors" ON)
set(MDNSPROXY_SANITIZE "" CACHE STRING "Sanitizers for every target, as -fsanitize= takes them (address,undefined)")

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion)
# Optimising, g++ 12 takes std::string's own copies for overlapping ones (its bug 105651; gone in 13).
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wno-restrict>)
endif()
if(MDNSPROXY_WERROR)
  add_compile_options(-Werror)
endif()
if(MDNSPROXY_SANITIZE)
  add_compile_options(-fsanitize=${MDNSPROXY_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${MDNSPROXY_SANITIZE})
  # As the address sanitizer fills what malloc gives: what was never set is not zero by chance.
  add_compile_options(-ftrivial-auto-var-init=pattern)
endif()
if(MDNSPROXY_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link -UNDEBUG)  # coverage to steer by, and assertions, in everything
endif()

# The programs use neither exceptions nor RTTI: every error is a return code (see docs/architecture.md).
add_library(mdnsproxy_code_options INTERFACE)
target_compile_options(mdnsproxy_code_options INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti>)
target_include_directories(mdnsproxy_code_options INTERFACE ${CMAKE_SOURCE_DIR}/src)
