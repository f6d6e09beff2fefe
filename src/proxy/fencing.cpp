// SPDX-License-Identifier: MIT
// Which hop value marks the registrations of a service type on this access point. Read afresh for every address answer,
// so that a change of the settings applies to the next one.

#include <cstring>

#include "platform/platform.h"
#include "proxy/proxy.h"
#include "runtime/runtime.h"

namespace {

// Whose MAC address makes this access point the anchor.
constexpr const char* kBridgeInterface = "br0";
constexpr std::int32_t kNotConfigured = -1;

struct HopSettings {
  std::int32_t wireless_hop;
  bool is_anchor;
  std::int32_t wired_hop;
};

// A type that is in neither list keeps the index that the second look-up gave it; no setting is found under it.
int service_index(const char* service_type) {
  const int index = vcm_bonjour_fencing_serviceTypeToIdx(service_type, 0, 0, nullptr);
  if (index != -1) {
    return index;
  }
  log_message(LOG_DEBUG,
              "check_mdns_service_fencing: failed to find the service type : %s in standard service. Checking for "
              "custom service "
              "type",
              service_type);
  return vcm_bonjour_fencing_custom_serviceTypeToIdx(service_type, 0);
}

// Whether the wired settings' anchor is this access point. With neither a bridge nor an anchor the two texts are equal,
// too.
bool is_anchor_access_point(VcmXact xact, const char* service_type, int index) {
  char local_mac[kMacAddressTextSize] = {};
  char anchor_mac[kMacAddressTextSize] = {};
  vcms_if_getMacAddress(kBridgeInterface, local_mac);
  if (vcm_bonjour_fencing_pgetAnchorAp(xact, index, anchor_mac, kMacAddressTextSize, kVcmFencingWired) != 0) {
    log_message(LOG_DEBUG,
                "check_mdns_service_fencing: Wired fencing, Anchor AP for service type: %s:%d not configured",
                service_type, index);
  }
  const bool is_anchor = std::strcmp(anchor_mac, local_mac) == 0;
  log_message(LOG_DEBUG, "check_mdns_service_fencing: Wired fencing, Anchor AP flag is %d for service type: %s:%d ",
              is_anchor ? 1 : 0, service_type, index);
  return is_anchor;
}

std::int32_t read_hop(VcmXact xact, const char* service_type, int index, int kind) {
  std::int32_t hop = kNotConfigured;
  if (vcm_bonjour_fencing_pgetHop(xact, index, &hop, kind) != 0) {
    log_message(LOG_DEBUG, "check_mdns_service_fencing: %s fencing for service type: %s:%d not configured",
                kind == kVcmFencingWireless ? "Wireless" : "Wired", service_type, index);
  }
  return hop;
}

// The settings are read in this order.
HopSettings read_settings(VcmXact xact, const char* service_type, int index) {
  return {read_hop(xact, service_type, index, kVcmFencingWireless), is_anchor_access_point(xact, service_type, index),
          read_hop(xact, service_type, index, kVcmFencingWired)};
}

// Wired fencing alone never applies.
std::int32_t applicable_hop(const HopSettings& settings) {
  if (settings.wireless_hop != kNotConfigured && settings.wired_hop != kNotConfigured && settings.is_anchor) {
    return settings.wired_hop;
  }
  return settings.wireless_hop;
}

}  // namespace

std::int32_t check_mdns_service_fencing(const char* service_type) {
  const int index = service_index(service_type);
  VcmXact xact = nullptr;
  vcm_beginXact(&xact);
  const std::int32_t hop = applicable_hop(read_settings(xact, service_type, index));
  log_message(LOG_DEBUG, "check_mdns_service_fencing: service type: %s:%d with hop %d\n", service_type, index, hop);
  vcm_cancelXact(&xact);
  return hop;
}
