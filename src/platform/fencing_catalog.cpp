// SPDX-License-Identifier: MIT
#include "platform/fencing_catalog.h"

namespace {

// Indexes are kept in settings elsewhere, so rows keep their places, and the texts stay as they are: the third type of
// AirPrint has no ".local", and the type of GoogleChromeCast begins with a dot, so that no service type ever matches
// it.
constexpr FencingCatalogRow kCatalog[kFencingCatalogSize] = {
    {"AirDisk", {"_adisk._tcp.local", "", "", "", ""}},
    {"AirPlay", {"_airplay._tcp.local", "", "", "", ""}},
    {"AirPortManagement", {"_airport._tcp.local", "", "", "", ""}},
    {"AirPrint", {"_ipp._tcp.local", "_printer._tcp.local", "_pdl-datastream._tcp", "", ""}},
    {"AirTunes", {"_raop._tcp.local", "", "", "", ""}},
    {"AppleFileSharing", {"_afpovertcp._tcp.local", "_smb._tcp.local", "", "", ""}},
    {"AppleMobileDevices", {"_apple-mobdev._tcp.local", "", "", "", ""}},
    {"AppleTV",
     {"_appletv-v2._tcp.local", "_mediaremotetv._tcp.local", "_companion-link._tcp.local", "_sleep-proxy._udp.local",
      "_touch-able._tcp.local"}},
    {"iCloudSync", {"_ubd._tcp.local", "", "", "", ""}},
    {"iTunesRemote", {"_dacp._tcp.local", "", "", "", ""}},
    {"iTunesSharing", {"_daap._tcp.local", "", "", "", ""}},
    {"OpenDirectoryMaster", {"_od-master._tcp.local", "", "", "", ""}},
    {"OpticalDiskSharing", {"_odisk._tcp.local", "", "", "", ""}},
    {"ZenmorController", {"_zenmor-kv._tcp.local", "", "", "", ""}},
    {"ScreenSharing", {"_rfb._tcp.local", "", "", "", ""}},
    {"SecureFileSharing", {"_sftp-ssh._tcp.local", "", "", "", ""}},
    {"SecureShell", {"_ssh._tcp.local", "", "", "", ""}},
    {"WorldWideWeb", {"_http._tcp.local", "", "", "", ""}},
    {"WorldWideWebSSL", {"_https._tcp.local", "", "", "", ""}},
    {"WorkgroupManager", {"_workstation._tcp.local", "", "", "", ""}},
    {"Xgrid", {"_xgrid._tcp.local", "", "", "", ""}},
    {"GoogleChromeCast", {"._googlecast._tcp.local", "", "", "", ""}},
    {"OtherServiceType-1", {"", "", "", "", ""}},
    {"OtherServiceType-2", {"", "", "", "", ""}},
    {"OtherServiceType-3", {"", "", "", "", ""}},
};

// An empty cell is no type, and an empty text (or a bare ".local") asks for none.
bool has_type(const FencingCatalogRow& row, std::string_view wanted) {
  for (std::string_view type : row.types) {
    if (!type.empty() && without_local(type) == wanted) {
      return true;
    }
  }
  return false;
}

}  // namespace

const FencingCatalogRow* fencing_catalog_row(int index) {
  return index >= 0 && index < kFencingCatalogSize ? &kCatalog[index] : nullptr;
}

int fencing_catalog_find_name(std::string_view name) {
  for (int index = 0; index < kFencingCatalogSize; ++index) {
    if (kCatalog[index].name == name) {
      return index;
    }
  }
  return -1;
}

int fencing_catalog_find_type(std::string_view service_type) {
  const std::string_view wanted = without_local(service_type);
  for (int index = 0; index < kFencingCatalogSize; ++index) {
    if (has_type(kCatalog[index], wanted)) {
      return index;
    }
  }
  return -1;
}

std::string_view without_local(std::string_view service_type) {
  constexpr std::string_view kLocal = ".local";
  if (service_type.ends_with(kLocal)) {
    service_type.remove_suffix(kLocal.size());
  }
  return service_type;
}
