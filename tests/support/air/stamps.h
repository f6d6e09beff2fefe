// SPDX-License-Identifier: MIT
// The moment of a change, written into the changed data itself: TXT data and IPv6 addresses that say when a device
// began to announce them. Whoever sees them on another link knows how old they are, without any word between the two.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace air {

// The TXT entry "at=SECONDS", without its length byte.
std::string stamped_entry(double at);

// The time of the stamped entry in TXT data; nothing when there is none.
std::optional<double> stamp_in_txt(std::string_view rdata);

// The address with the time in its last eight bytes, as microseconds. `rdata` has 16 bytes.
std::string stamped_address(std::string_view rdata, double at);

// The time in an address; nothing when it is none that stamped_address has made.
std::optional<double> stamp_in_address(std::string_view rdata);

}  // namespace air
