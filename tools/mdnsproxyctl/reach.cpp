// SPDX-License-Identifier: MIT
#include "mdnsproxyctl/reach.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include "mdnsproxyctl/address.h"
#include "mdnsproxyctl/rtnetlink.h"

namespace {

constexpr int kConnectMilliseconds = 2000;

class Socket {
 public:
  Socket(int family, int type, int protocol) : number(socket(family, type | SOCK_CLOEXEC, protocol)) {}
  ~Socket() {
    if (number != -1) {
      close(number);
    }
  }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  const int number;
};

std::string setting_path(const std::string& address, const std::string& link) {
  return is_ipv6(address) ? "/proc/sys/net/ipv6/conf/all/forwarding"
                          : "/proc/sys/net/ipv4/conf/" + link + "/forwarding";
}

bool is_set(const std::string& path) {
  std::ifstream file(path);
  char value = '0';
  file >> value;
  return value != '0';
}

Connection outcome_of(int error) {
  switch (error) {
    case 0:
      return Connection::open;
    case ECONNREFUSED:
      return Connection::refused;
    case ETIMEDOUT:
    case EINPROGRESS:
      return Connection::silent;
    default:
      return Connection::unreachable;
  }
}

}  // namespace

int route_to(const std::string& address) {
  rtmsg route = {};
  route.rtm_family = static_cast<unsigned char>(family_of(address));
  route.rtm_dst_len = is_ipv6(address) ? 128 : 32;
  const std::vector<std::uint8_t> answer = ask_kernel(RTM_GETROUTE, route, RTA_DST, address);
  int index = 0;
  if (read_body(answer, RTM_NEWROUTE, route) && route.rtm_type == RTN_UNICAST) {
    if (const NetlinkBytes held = find_attribute<rtmsg>(answer, RTA_OIF); held.size() == sizeof index) {
      std::memcpy(&index, held.data(), sizeof index);
    }
  }
  return index;
}

bool is_forwarded(const std::string& address, const std::string& from_link, const std::string& to_link) {
  return is_set(setting_path(address, from_link)) && is_set(setting_path(address, to_link));
}

std::string forwarding_setting(const std::string& address, const std::string& link) {
  return is_ipv6(address) ? "net.ipv6.conf.all.forwarding" : "net/ipv4/conf/" + link + "/forwarding";
}

Connection connect_to(const std::string& address, std::uint16_t port) {
  const Socket tcp(family_of(address), SOCK_STREAM | SOCK_NONBLOCK, 0);
  const SocketAddress where = socket_address(address, port);
  if (connect(tcp.number, where.get(), where.size) == 0) {
    return Connection::open;
  }
  if (errno != EINPROGRESS) {
    return outcome_of(errno);
  }
  pollfd connecting = {tcp.number, POLLOUT, 0};
  int error = EINPROGRESS;
  socklen_t error_size = sizeof error;
  if (poll(&connecting, 1, kConnectMilliseconds) > 0) {
    getsockopt(tcp.number, SOL_SOCKET, SO_ERROR, &error, &error_size);
  }
  return outcome_of(error);
}
