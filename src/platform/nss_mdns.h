// SPDX-License-Identifier: MIT
// Host names over multicast DNS, answered by nss-mdns. Its library is loaded when one of these is first called; where
// it is not installed that is an error result of the call, and the next call tries again. Once loaded it stays.
#pragma once

#include <netdb.h>

#include <cstddef>

// The library. Tests point it elsewhere.
extern const char* gNssMdnsLibrary;

// Looks up `name`'s IPv4 addresses through the library's _nss_mdns_gethostbyname_r: *result and all that it points to
// are written, the latter into buffer[size]. 0; or non-zero with *errnop and *h_errnop telling why: the name has no
// such address, the buffer is too small (ERANGE), or the library or its function is missing (ENOENT, NO_RECOVERY).
// *result is then not valid.
int nss_mdns_gethostbyname(const char* name, hostent* result, char* buffer, std::size_t size, int* errnop,
                           int* h_errnop);

// The same for addresses of one family (AF_INET or AF_INET6) through _nss_mdns_gethostbyname2_r.
int nss_mdns_gethostbyname2(const char* name, int family, hostent* result, char* buffer, std::size_t size, int* errnop,
                            int* h_errnop);
