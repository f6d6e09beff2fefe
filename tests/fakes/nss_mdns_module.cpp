// SPDX-License-Identifier: MIT
// libnss_mdns.so.2 that knows a few hosts by heart: loaded in place of the real one through gNssMdnsLibrary.
//
//   printer.local    192.0.2.7, and fe80::7, 2001:db8::7
//   twohomes.local   169.254.1.2, 192.0.2.9
//   linklocal.local  169.254.1.2, and fe80::7
//   roomy.local      192.0.2.8, and 2001:db8::8; wants a buffer of exactly 1024 bytes
//   misfit.local     192.0.2.6, and 2001:db8::6, said to be as long as an address of the other family
//   big.local        does not fit the buffer
//
// Every other name is not found.
#include <arpa/inet.h>
#include <netdb.h>
#include <nss.h>

#include <cerrno>
#include <cstring>

extern "C" {
nss_status _nss_mdns_gethostbyname_r(const char* name, hostent* result, char* buffer, size_t size, int* errnop,
                                     int* h_errnop);
nss_status _nss_mdns_gethostbyname2_r(const char* name, int family, hostent* result, char* buffer, size_t size,
                                      int* errnop, int* h_errnop);
}

namespace {

constexpr size_t kRoomyBuffer = 1024;

struct Host {
  const char* name;
  int family;
  const char* addresses[2];  // null: none
};

constexpr Host kHosts[] = {
    {"printer.local", AF_INET, {"192.0.2.7", nullptr}},        {"printer.local", AF_INET6, {"fe80::7", "2001:db8::7"}},
    {"twohomes.local", AF_INET, {"169.254.1.2", "192.0.2.9"}}, {"linklocal.local", AF_INET, {"169.254.1.2", nullptr}},
    {"linklocal.local", AF_INET6, {"fe80::7", nullptr}},       {"roomy.local", AF_INET, {"192.0.2.8", nullptr}},
    {"roomy.local", AF_INET6, {"2001:db8::8", nullptr}},       {"misfit.local", AF_INET, {"192.0.2.6", nullptr}},
    {"misfit.local", AF_INET6, {"2001:db8::6", nullptr}},
};

// Laid out in the caller's buffer, as the real one does.
struct Answer {
  char* aliases[1];
  char* addresses[3];
  unsigned char bytes[2][16];
};

void fill(const Host& host, hostent* result, Answer* answer) {
  int count = 0;
  for (const char* address : host.addresses) {
    if (address != nullptr) {
      inet_pton(host.family, address, answer->bytes[count]);
      answer->addresses[count] = reinterpret_cast<char*>(answer->bytes[count]);
      ++count;
    }
  }
  answer->addresses[count] = nullptr;
  answer->aliases[0] = nullptr;
  result->h_name = const_cast<char*>(host.name);
  result->h_aliases = answer->aliases;
  result->h_addrtype = host.family;
  const bool misfit = std::strcmp(host.name, "misfit.local") == 0;
  result->h_length = (host.family == AF_INET) != misfit ? 4 : 16;
  result->h_addr_list = answer->addresses;
}

bool fits(const char* name, size_t size) {
  if (std::strcmp(name, "roomy.local") == 0) {
    return size == kRoomyBuffer;
  }
  return size >= sizeof(Answer) && std::strcmp(name, "big.local") != 0;
}

}  // namespace

nss_status _nss_mdns_gethostbyname2_r(const char* name, int family, hostent* result, char* buffer, size_t size,
                                      int* errnop, int* h_errnop) {
  if (!fits(name, size)) {
    *errnop = ERANGE;
    *h_errnop = NETDB_INTERNAL;
    return NSS_STATUS_TRYAGAIN;
  }
  for (const Host& host : kHosts) {
    if (host.family == family && std::strcmp(host.name, name) == 0) {
      fill(host, result, reinterpret_cast<Answer*>(buffer));
      return NSS_STATUS_SUCCESS;
    }
  }
  *errnop = ENOENT;
  *h_errnop = HOST_NOT_FOUND;
  return NSS_STATUS_NOTFOUND;
}

nss_status _nss_mdns_gethostbyname_r(const char* name, hostent* result, char* buffer, size_t size, int* errnop,
                                     int* h_errnop) {
  return _nss_mdns_gethostbyname2_r(name, AF_INET, result, buffer, size, errnop, h_errnop);
}
