// SPDX-License-Identifier: MIT
#include "platform/nss_mdns.h"

#include <dlfcn.h>
#if __has_include(<nss.h>)
#include <nss.h>
#endif

#include <cerrno>

const char* gNssMdnsLibrary = "libnss_mdns.so.2";

namespace {

// What a look-up of the library returns: the name service switch's status, whose header not every C library has.
#if __has_include(<nss.h>)
using Status = nss_status;
#else
using Status = int;
#endif

constexpr int kNssSuccess = 1;  // NSS_STATUS_SUCCESS: there is an answer

using GetHostByName = Status (*)(const char*, hostent*, char*, std::size_t, int*, int*);
using GetHostByName2 = Status (*)(const char*, int, hostent*, char*, std::size_t, int*, int*);

// A function of the library; null when the library or the function is missing. The library may hold state of its own,
// so it stays loaded (RTLD_NODELETE) although its handle is given back.
void* library_function(const char* name) {
  void* library = dlopen(gNssMdnsLibrary, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  if (library == nullptr) {
    return nullptr;
  }
  void* function = dlsym(library, name);
  dlclose(library);
  return function;
}

int missing(int* errnop, int* h_errnop) {
  *errnop = ENOENT;
  *h_errnop = NO_RECOVERY;
  return -1;
}

int result_of(Status status) { return static_cast<int>(status) == kNssSuccess ? 0 : -1; }

}  // namespace

int nss_mdns_gethostbyname(const char* name, hostent* result, char* buffer, std::size_t size, int* errnop,
                           int* h_errnop) {
  const auto look_up = reinterpret_cast<GetHostByName>(library_function("_nss_mdns_gethostbyname_r"));
  if (look_up == nullptr) {
    return missing(errnop, h_errnop);
  }
  return result_of(look_up(name, result, buffer, size, errnop, h_errnop));
}

int nss_mdns_gethostbyname2(const char* name, int family, hostent* result, char* buffer, std::size_t size, int* errnop,
                            int* h_errnop) {
  const auto look_up = reinterpret_cast<GetHostByName2>(library_function("_nss_mdns_gethostbyname2_r"));
  if (look_up == nullptr) {
    return missing(errnop, h_errnop);
  }
  return result_of(look_up(name, family, result, buffer, size, errnop, h_errnop));
}
