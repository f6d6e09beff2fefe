// SPDX-License-Identifier: MIT
#pragma once

// Room for a MAC address as text, "02:00:00:00:00:01" and its zero.
inline constexpr int kMacAddressTextSize = 18;
