// SPDX-License-Identifier: MIT
#include "platform/vcms_if.h"

#include <net/if.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "platform/vcm.h"

namespace {

// Any socket will do to ask the kernel about an interface; a local one is allowed in the closest sandbox.
bool hardware_address(const char* if_name, sockaddr* address) {
  ifreq request = {};
  const std::size_t length = std::strlen(if_name);
  if (length >= sizeof(request.ifr_name)) {
    return false;
  }
  std::memcpy(request.ifr_name, if_name, length);
  const int asked = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (asked == -1) {
    return false;
  }
  const bool answered = ioctl(asked, SIOCGIFHWADDR, &request) == 0;
  close(asked);
  *address = request.ifr_hwaddr;
  return answered;
}

}  // namespace

int vcms_if_getMacAddress(const char* if_name, char* text) {
  sockaddr address = {};
  if (!hardware_address(if_name, &address) || address.sa_family != ARPHRD_ETHER) {
    return -1;
  }
  unsigned char mac[6];
  std::memcpy(mac, address.sa_data, sizeof(mac));
  std::snprintf(text, kMacAddressTextSize, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4],
                mac[5]);
  return 0;
}
