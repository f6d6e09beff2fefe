// SPDX-License-Identifier: MIT
// Whether this machine would carry a client's packets to a service.
#pragma once

#include <cstdint>
#include <string>

// The index of the interface by which packets to this address leave (the kernel's own answer); 0: there is no route.
int route_to(const std::string& address);

// Whether packets that come in by the one link may leave by the other: the kernel's settings for the address's family.
bool is_forwarded(const std::string& address, const std::string& from_link, const std::string& to_link);

// The setting that forbids it, as sysctl(8) takes it.
std::string forwarding_setting(const std::string& address, const std::string& link);

enum class Connection { open, refused, silent, unreachable };

// Whether this machine can open the TCP port, within two seconds.
Connection connect_to(const std::string& address, std::uint16_t port);
