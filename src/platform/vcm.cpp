// SPDX-License-Identifier: MIT
// Lifecycle of a transaction: it begins with a look at the settings file and holds the reading that is then the newest;
// every question that names the transaction is answered from that reading; its cancel lets go of it.
#include "platform/vcm.h"

#include <cstdio>

#include "platform/custom_services.h"
#include "platform/fencing_catalog.h"
#include "platform/settings_file.h"
#include "platform/zmk.h"

struct VcmTransaction {
  SettingsReading* reading;  // held; null: nothing is configured
};

namespace {

const FencingSettings* fencing_of(VcmXact xact, int index) {
  return xact != nullptr ? settings_fencing(xact->reading, index) : nullptr;
}

// 0, or -1 when there is nothing to copy or no room for anything.
int copy_configured(const char* text, char* buffer, int size) {
  if (text[0] == '\0' || size <= 0) {
    return -1;
  }
  std::snprintf(buffer, static_cast<std::size_t>(size), "%s", text);
  return 0;
}

}  // namespace

int vcm_beginXact(VcmXact* xact) {
  *xact = static_cast<VcmXact>(zmk_malloc(sizeof(VcmTransaction), __FILE__, __LINE__));
  if (*xact == nullptr) {
    return -1;
  }
  (*xact)->reading = settings_hold(settings_current());
  return 0;
}

int vcm_cancelXact(VcmXact* xact) {
  if (*xact != nullptr) {
    settings_release((*xact)->reading);
    zmk_free(*xact, __FILE__, __LINE__);
    *xact = nullptr;
  }
  return 0;
}

int vcm_mdnsproxy_sget_log_level(VcmXact xact, char* buffer, int size) {
  if (xact == nullptr || xact->reading == nullptr) {
    return -1;
  }
  return copy_configured(xact->reading->log_level, buffer, size);
}

int vcm_mdnsproxy_sget_state_file(VcmXact xact, char* buffer, int size) {
  if (xact == nullptr || xact->reading == nullptr) {
    return -1;
  }
  return copy_configured(xact->reading->state_file, buffer, size);
}

int vcm_bonjour_fencing_serviceTypeToIdx(const char* service_type, int, int, const char** name_out) {
  const int index = fencing_catalog_find_type(service_type);
  if (index != -1 && name_out != nullptr) {
    *name_out = fencing_catalog_row(index)->name;
  }
  return index;
}

int vcm_bonjour_fencing_custom_serviceTypeToIdx(const char* service_type, int) {
  const SettingsReading* reading = settings_current();
  const int index = custom_service_find(service_type);
  return settings_fencing(reading, index) != nullptr ? index : -1;
}

int vcm_bonjour_fencing_pgetHop(VcmXact xact, int index, std::int32_t* hop, int kind) {
  const FencingSettings* settings = fencing_of(xact, index);
  if (settings == nullptr || (kind != kVcmFencingWireless && kind != kVcmFencingWired)) {
    return -1;
  }
  const HopSetting& setting = kind == kVcmFencingWireless ? settings->wireless : settings->wired;
  if (!setting.configured) {
    return -1;
  }
  *hop = setting.value;
  return 0;
}

int vcm_bonjour_fencing_pgetAnchorAp(VcmXact xact, int index, char* buffer, int size, int kind) {
  const FencingSettings* settings = fencing_of(xact, index);
  if (settings == nullptr || kind != kVcmFencingWired) {
    return -1;
  }
  return copy_configured(settings->anchor_ap, buffer, size);
}
