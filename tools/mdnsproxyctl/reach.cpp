// SPDX-License-Identifier: MIT
#include "mdnsproxyctl/reach.h"

#include <arpa/inet.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>

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

bool is_ipv6(const std::string& address) { return address.find(':') != std::string::npos; }

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

// A question for the route to one address (rtnetlink(7)).
struct RouteQuestion {
  nlmsghdr header;
  rtmsg route;
  rtattr attribute;
  std::uint8_t address[16];
};

RouteQuestion route_question(const std::string& address) {
  const int family = is_ipv6(address) ? AF_INET6 : AF_INET;
  const unsigned short size = family == AF_INET6 ? 16 : 4;
  RouteQuestion question = {};
  question.header.nlmsg_len = static_cast<std::uint32_t>(offsetof(RouteQuestion, address)) + size;
  question.header.nlmsg_type = RTM_GETROUTE;
  question.header.nlmsg_flags = NLM_F_REQUEST;
  question.route.rtm_family = static_cast<unsigned char>(family);
  question.route.rtm_dst_len = static_cast<unsigned char>(size * 8);
  question.attribute.rta_len = static_cast<unsigned short>(RTA_LENGTH(size));
  question.attribute.rta_type = RTA_DST;
  inet_pton(family, address.c_str(), question.address);
  return question;
}

// The interface of the kernel's answer; 0 when it is an error, or names none.
int outgoing_interface(const char* answer, std::size_t size) {
  nlmsghdr header = {};
  rtmsg route = {};
  if (size < NLMSG_LENGTH(sizeof route)) {
    return 0;
  }
  std::memcpy(&header, answer, sizeof header);
  std::memcpy(&route, answer + NLMSG_HDRLEN, sizeof route);
  if (header.nlmsg_type != RTM_NEWROUTE || route.rtm_type != RTN_UNICAST) {
    return 0;
  }
  std::size_t at = NLMSG_LENGTH(sizeof route);
  rtattr attribute = {};
  while (at + sizeof attribute <= size) {
    std::memcpy(&attribute, answer + at, sizeof attribute);
    int index = 0;
    if (attribute.rta_type == RTA_OIF && at + RTA_LENGTH(sizeof index) <= size) {
      std::memcpy(&index, answer + at + RTA_LENGTH(0), sizeof index);
      return index;
    }
    at += std::max<std::size_t>(RTA_ALIGN(attribute.rta_len), sizeof attribute);
  }
  return 0;
}

socklen_t socket_address(const std::string& address, std::uint16_t port, sockaddr_storage& result) {
  if (is_ipv6(address)) {
    sockaddr_in6 made = {};
    made.sin6_family = AF_INET6;
    made.sin6_port = htons(port);
    inet_pton(AF_INET6, address.c_str(), &made.sin6_addr);
    std::memcpy(&result, &made, sizeof made);
    return sizeof made;
  }
  sockaddr_in made = {};
  made.sin_family = AF_INET;
  made.sin_port = htons(port);
  inet_pton(AF_INET, address.c_str(), &made.sin_addr);
  std::memcpy(&result, &made, sizeof made);
  return sizeof made;
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
  const Socket netlink(AF_NETLINK, SOCK_RAW, NETLINK_ROUTE);
  const RouteQuestion question = route_question(address);
  alignas(nlmsghdr) char answer[4096];
  if (netlink.number == -1 || send(netlink.number, &question, question.header.nlmsg_len, 0) < 0) {
    return 0;
  }
  const ssize_t size = recv(netlink.number, answer, sizeof answer, 0);
  return size > 0 ? outgoing_interface(answer, static_cast<std::size_t>(size)) : 0;
}

bool is_forwarded(const std::string& address, const std::string& from_link, const std::string& to_link) {
  return is_set(setting_path(address, from_link)) && is_set(setting_path(address, to_link));
}

std::string forwarding_setting(const std::string& address, const std::string& link) {
  return is_ipv6(address) ? "net.ipv6.conf.all.forwarding" : "net/ipv4/conf/" + link + "/forwarding";
}

Connection connect_to(const std::string& address, std::uint16_t port) {
  const Socket tcp(is_ipv6(address) ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
  sockaddr_storage where = {};
  const socklen_t size = socket_address(address, port, where);
  if (connect(tcp.number, reinterpret_cast<const sockaddr*>(&where), size) == 0) {
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
