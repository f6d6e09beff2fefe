// SPDX-License-Identifier: MIT
// Host names over nss-mdns.

#include <arpa/inet.h>
#include <netdb.h>

#include <cstring>
#include <new>

#include "platform/nss_mdns.h"
#include "platform/zmk.h"
#include "proxy/host_addresses.h"
#include "runtime/runtime.h"

namespace {

// The work buffer that holds a host entry's names and addresses.
constexpr std::size_t kWorkBufferSize = 1024;

// One block for one look-up.
struct HostEntry {
  hostent entry;
  char buffer[kWorkBufferSize];
  int error;  // why there is no entry; not looked at
  int h_error;
};

HostEntry* new_host_entry() {
  void* const block = zmk_malloc(sizeof(HostEntry), __FILE__, __LINE__);
  if (block == nullptr) {
    fatal_error(MYSTATUS__NO_MEMORY, LOG_WARNING, "ERROR 1301171518: malloc failed, exiting.");
  }
  return new (block) HostEntry{};
}

// Whether `entry` holds addresses of the length that the caller will read.
bool has_addresses(const hostent& entry, std::size_t length) {
  return entry.h_addr_list != nullptr && entry.h_length == static_cast<int>(length);
}

void show_address(const char* function, int position, int family, const char* address) {
  char text[INET6_ADDRSTRLEN] = "";
  inet_ntop(family, address, text, sizeof text);
  log_message(LOG_DEBUG, "\n%s(): addr_list[%d]: %s", function, position, text);
}

int copy_first_ipv4(const hostent& entry, std::uint8_t* address_out) {
  for (int position = 0; entry.h_addr_list[position] != nullptr; ++position) {
    const char* address = entry.h_addr_list[position];
    show_address("hostname_to_ip", position, AF_INET, address);
    std::uint8_t bytes[Ipv4Bytes::extent];
    std::memcpy(bytes, address, sizeof bytes);
    if (!is_ipv4_link_local(bytes)) {
      std::memcpy(address_out, bytes, sizeof bytes);
      return 0;
    }
  }
  return 1;
}

int copy_first_ipv6(const hostent& entry, std::uint8_t* address_out) {
  for (int position = 0; entry.h_addr_list[position] != nullptr; ++position) {
    const char* address = entry.h_addr_list[position];
    show_address("hostname_to_ipv6", position, AF_INET6, address);
    std::uint8_t bytes[Ipv6Bytes::extent];
    std::memcpy(bytes, address, sizeof bytes);
    if (!is_ipv6_link_local(bytes)) {
      std::memcpy(address_out, bytes, sizeof bytes);
      return 0;
    }
  }
  return 1;
}

}  // namespace

int hostname_to_ip(const char* hostname, std::uint8_t* address_out) {
  log_message(LOG_DEBUG, "hostname_to_ip(): START: hostname = %s ...", text_or_null(hostname));
  HostEntry* host = new_host_entry();
  const bool found =
      hostname != nullptr && nss_mdns_gethostbyname(hostname, &host->entry, host->buffer, sizeof host->buffer,
                                                    &host->error, &host->h_error) == 0;
  const int result =
      found && has_addresses(host->entry, Ipv4Bytes::extent) ? copy_first_ipv4(host->entry, address_out) : 1;
  zmk_free(host, __FILE__, __LINE__);
  return result;
}

int hostname_to_ipv6(const char* hostname, std::uint8_t* address_out) {
  log_message(LOG_DEBUG, "hostname_to_ipv6(): START: hostname = %s ...", text_or_null(hostname));
  HostEntry* host = new_host_entry();
  const bool found =
      hostname != nullptr && nss_mdns_gethostbyname2(hostname, AF_INET6, &host->entry, host->buffer,
                                                     sizeof host->buffer, &host->error, &host->h_error) == 0;
  const int result =
      found && has_addresses(host->entry, Ipv6Bytes::extent) ? copy_first_ipv6(host->entry, address_out) : 1;
  zmk_free(host, __FILE__, __LINE__);
  return result;
}
