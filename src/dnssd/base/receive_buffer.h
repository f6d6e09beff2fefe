// SPDX-License-Identifier: MIT
#pragma once

namespace dnssd {

// What is asked for, for each socket: room for the burst of a full link, 2000 services announced within a second; the
// system's default loses packets then.
inline constexpr int kReceiveBufferBytes = 8 * 1024 * 1024;

}  // namespace dnssd
