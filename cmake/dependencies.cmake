# SPDX-License-Identifier: MIT
# Everything that is not ours, each a Debian package (docs/architecture.md gives the reasons).

find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
pkg_check_modules(INIH REQUIRED IMPORTED_TARGET inih)

# Only the header dns_sd.h comes from the compatibility package; the library behind it is our own.
find_path(DNS_SD_INCLUDE_DIR dns_sd.h PATH_SUFFIXES avahi-compat-libdns_sd REQUIRED)
add_library(dns_sd_header INTERFACE)
target_include_directories(dns_sd_header SYSTEM INTERFACE ${DNS_SD_INCLUDE_DIR})

find_path(UTHASH_INCLUDE_DIR uthash.h REQUIRED)

if(BUILD_TESTING)
  find_package(GTest REQUIRED)
endif()
