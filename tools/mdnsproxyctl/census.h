// SPDX-License-Identifier: MIT
// How many services there are on a link, by questions of our own.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "mdnsproxyctl/machine.h"

// How many services of each of these types, "_ipp._tcp", other hosts of the link announce; a type of which there is
// none is not in it. Those that a gateway has forwarded there, this machine among them, do not count. Takes the time of
// a question.
using ServiceCounts = std::map<std::string, std::size_t>;
ServiceCounts count_services(const std::vector<MachineLink>& links, const MachineLink& link,
                             const std::vector<std::string>& types);

// The same on every link that is up, by its name. All of them are asked at the same time.
std::map<std::string, ServiceCounts> count_services_everywhere(const std::vector<MachineLink>& links,
                                                               const std::vector<std::string>& types);
