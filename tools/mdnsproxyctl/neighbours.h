// SPDX-License-Identifier: MIT
// The kernel's table of neighbours.
#pragma once

#include <string>

// The hardware address of the host that has this address on the link of this index, "02:00:5e:10:00:01"; empty when the
// table does not have it. Whoever has just spoken with the host finds it there.
std::string hardware_address(const std::string& address, int link_index);
