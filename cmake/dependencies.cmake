# SPDX-License-Identifier: MIT
# Everything that is not ours, each a Debian package (docs/architecture.md gives the reasons).

find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
pkg_check_modules(INIH REQUIRED IMPORTED_TARGET inih)

# The interface of the DNS-SD library has a header of our own. An installed one, with the same names and values, does as
# well.
option(MDNSPROXY_INSTALLED_DNS_SD_H "Compile with the dns_sd.h that is installed, not with our own" OFF)
add_library(dns_sd_header INTERFACE)
if(MDNSPROXY_INSTALLED_DNS_SD_H)
  find_path(DNS_SD_INCLUDE_DIR dns_sd.h PATH_SUFFIXES avahi-compat-libdns_sd REQUIRED)
  target_include_directories(dns_sd_header SYSTEM INTERFACE ${DNS_SD_INCLUDE_DIR})
  target_compile_definitions(dns_sd_header INTERFACE MDNSPROXY_INSTALLED_DNS_SD_H)
else()
  target_include_directories(dns_sd_header INTERFACE ${CMAKE_SOURCE_DIR}/src/dnssd/include)
endif()
# What our library has beyond that interface.
target_include_directories(dns_sd_header INTERFACE ${CMAKE_SOURCE_DIR}/src/dnssd/extension)

find_path(UTHASH_INCLUDE_DIR uthash.h REQUIRED)

if(BUILD_TESTING)
  find_package(GTest REQUIRED)
endif()
