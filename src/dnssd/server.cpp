// SPDX-License-Identifier: MIT
#include "dnssd/server.h"

#include <avahi-common/error.h>
#include <avahi-common/malloc.h>
#include <avahi-core/core.h>
#include <fcntl.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "dnssd/links.h"

namespace dnssd {
namespace {

// An idle server stays this long, so that a caller that releases one operation and starts the next keeps its cache.
constexpr std::int64_t kLingerMicroseconds = 10'000'000;

// Room for the burst of a full link: 2000 instances announced within a second; the default loses packets then.
constexpr int kReceiveBufferBytes = 8 * 1024 * 1024;

// Records that a server remembers per protocol. A forwarder's limit of 2001 instances has up to six records each (PTR,
// subtype PTR, SRV, TXT, A, AAAA), twice when the link also hears our own: 24,012, rounded up. At some 300 bytes each a
// flood of invented records thus takes 20 MB at most; when it is full, Avahi keeps what it has and drops what is new.
constexpr unsigned kCacheEntriesMax = 32768;

// Avahi wants a host name even if it publishes nothing under it.
constexpr char kUnusedHostName[] = "unused";

// The server that avahi_server_new is making; its sockets turn up in watch_new meanwhile, and never later.
Server* gBeingMade = nullptr;

// The protocol of an mDNS socket; -1 for other descriptors (Avahi's netlink socket).
int protocol_of(int fd) {
  int domain = 0;
  socklen_t size = sizeof domain;
  if (getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &domain, &size) != 0) {
    return -1;
  }
  if (domain == AF_INET) {
    return AVAHI_PROTO_INET;
  }
  return domain == AF_INET6 ? AVAHI_PROTO_INET6 : -1;
}

// Multicast reaches every socket on the port whatever it joined, so each socket has to be bound to its interface.
void bind_to_interface(Server& server, int fd, int protocol) {
  server.sockets[protocol] = fd;
  const std::string& name = server.interface_name;
  const auto length = static_cast<socklen_t>(name.size() + 1);
  if (setsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, name.c_str(), length) != 0) {
    server.bind_error = errno;
  }
  crowd_begin(fd);
  const int size = kReceiveBufferBytes;
  if (setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size) != 0) {
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
  }
}

AvahiWatch* server_watch_new(const AvahiPoll* api, int fd, AvahiWatchEvent events, AvahiWatchCallback callback, void* userdata) {
  const int protocol = gBeingMade != nullptr ? protocol_of(fd) : -1;
  if (protocol < 0) {
    return poll_watch_new(api, fd, events, callback, userdata);
  }
  bind_to_interface(*gBeingMade, fd, protocol);
  Gate& gate = gBeingMade->gates[protocol];
  gate_open(gate, gBeingMade, callback, userdata);
  return poll_watch_new(api, fd, events, gate_pass, &gate);
}

void server_state_changed(AvahiServer*, AvahiServerState state, void*) {
  if (state == AVAHI_SERVER_FAILURE) {
    gEngine->lost = true;
  }
}

void fill_config(AvahiServerConfig& config, const std::string& interface_name) {
  avahi_server_config_init(&config);
  avahi_free(config.host_name);
  config.host_name = avahi_strdup(kUnusedHostName);
  config.use_ipv4 = 1;
  config.use_ipv6 = 1;
  config.allow_interfaces = avahi_string_list_add(config.allow_interfaces, interface_name.c_str());
  config.publish_hinfo = 0;
  config.publish_addresses = 0;
  config.publish_workstation = 0;
  config.publish_domain = 0;
  config.enable_wide_area = 0;
  config.n_cache_entries_max = kCacheEntriesMax;
}

DNSServiceErrorType start_avahi(Server& server) {
  server.api = poll_api(gEngine->poll);
  server.api.watch_new = server_watch_new;
  AvahiServerConfig config;
  fill_config(config, server.interface_name);
  int error = AVAHI_OK;
  gBeingMade = &server;
  server.avahi = avahi_server_new(&server.api, &config, server_state_changed, &server, &error);
  gBeingMade = nullptr;
  avahi_server_config_free(&config);
  if (server.avahi == nullptr) {
    return kErrServiceNotRunning;
  }
  if (server.bind_error == 0) {
    return kDNSServiceErr_NoError;
  }
  avahi_server_free(server.avahi);
  server.avahi = nullptr;
  return server.bind_error == ENODEV ? kDNSServiceErr_BadInterfaceIndex : kDNSServiceErr_NoAuth;
}

void linger_over(AvahiTimeout*, void* userdata) {
  Server& server = *static_cast<Server*>(userdata);
  server_close(server);
  gEngine->servers.erase(server.interface_index);
}

}  // namespace

DNSServiceErrorType server_get(std::uint32_t interface_index, Server** server) {
  if (interface_index == kDNSServiceInterfaceIndexAny || interface_index == kDNSServiceInterfaceIndexLocalOnly) {
    return kDNSServiceErr_Unsupported;
  }
  const auto found = gEngine->servers.find(interface_index);
  if (found != gEngine->servers.end()) {
    *server = found->second.get();
    return kDNSServiceErr_NoError;
  }
  char name[IF_NAMESIZE];
  if (if_indextoname(interface_index, name) == nullptr) {
    return kDNSServiceErr_BadInterfaceIndex;
  }
  auto made = std::make_unique<Server>();
  made->interface_index = interface_index;
  made->interface_name = name;
  const DNSServiceErrorType error = start_avahi(*made);
  if (error != kDNSServiceErr_NoError) {
    return error;
  }
  made->linger = poll_timer_new(gEngine->poll, linger_over, made.get());
  pacing_open(*made);
  announcer_open(*made);
  crowd_answers_open(*made);
  lookups_open(*made);
  *server = made.get();
  gEngine->servers.emplace(interface_index, std::move(made));
  links_note(**server);
  server_review_idle(**server);
  return kDNSServiceErr_NoError;
}

void server_use(Server& server, bool looks_up) {
  ++server.operations;
  if (looks_up) {
    ++server.lookups;
  }
  server_review_idle(server);
}

void server_unuse(Server& server, bool looks_up) {
  --server.operations;
  if (looks_up) {
    --server.lookups;
  }
  server_review_idle(server);
}

void server_review_idle(Server& server) {
  if (server.operations == 0 && server.publications == 0) {
    poll_timer_start(server.linger, kLingerMicroseconds);
  } else {
    poll_timer_stop(server.linger);
  }
}

void server_doubt_what_was_heard(Server& server) {
  for (Gate& gate : server.gates) {
    repeats_forget(gate.repeats);
  }
  pointers_ask_anew(server);
  lookups_wake(server);
}

// Avahi sends what it still has to answer when it is freed, with the records' full lifetimes: so the goodbyes come last, over
// copies of its sockets.
void server_close(Server& server) {
  announcer_close(server);
  crowd_answers_close(server);
  pacing_close(server);
  lookups_close(server);
  pointers_close(server);
  poll_timer_free(server.linger);
  server.linger = nullptr;
  for (int& fd : server.sockets) {
    if (fd >= 0) {
      fd = fcntl(fd, F_DUPFD_CLOEXEC, 0);
    }
  }
  avahi_server_free(server.avahi);
  server.avahi = nullptr;
  send_goodbyes(server);
  for (int& fd : server.sockets) {
    if (fd >= 0) {
      close(fd);
    }
    fd = -1;
  }
}

}  // namespace dnssd
