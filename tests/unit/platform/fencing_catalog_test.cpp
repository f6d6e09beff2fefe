// SPDX-License-Identifier: MIT
#include "platform/fencing_catalog.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace {

// As the device's fencing settings know them, index by index.
const std::vector<std::vector<std::string>> kExpected = {
    {"AirDisk", "_adisk._tcp.local"},
    {"AirPlay", "_airplay._tcp.local"},
    {"AirPortManagement", "_airport._tcp.local"},
    {"AirPrint", "_ipp._tcp.local", "_printer._tcp.local", "_pdl-datastream._tcp"},
    {"AirTunes", "_raop._tcp.local"},
    {"AppleFileSharing", "_afpovertcp._tcp.local", "_smb._tcp.local"},
    {"AppleMobileDevices", "_apple-mobdev._tcp.local"},
    {"AppleTV", "_appletv-v2._tcp.local", "_mediaremotetv._tcp.local", "_companion-link._tcp.local",
     "_sleep-proxy._udp.local", "_touch-able._tcp.local"},
    {"iCloudSync", "_ubd._tcp.local"},
    {"iTunesRemote", "_dacp._tcp.local"},
    {"iTunesSharing", "_daap._tcp.local"},
    {"OpenDirectoryMaster", "_od-master._tcp.local"},
    {"OpticalDiskSharing", "_odisk._tcp.local"},
    {"ZenmorController", "_zenmor-kv._tcp.local"},
    {"ScreenSharing", "_rfb._tcp.local"},
    {"SecureFileSharing", "_sftp-ssh._tcp.local"},
    {"SecureShell", "_ssh._tcp.local"},
    {"WorldWideWeb", "_http._tcp.local"},
    {"WorldWideWebSSL", "_https._tcp.local"},
    {"WorkgroupManager", "_workstation._tcp.local"},
    {"Xgrid", "_xgrid._tcp.local"},
    {"GoogleChromeCast", "._googlecast._tcp.local"},
    {"OtherServiceType-1"},
    {"OtherServiceType-2"},
    {"OtherServiceType-3"},
};

std::vector<std::string> Row(int index) {
  const FencingCatalogRow* row = fencing_catalog_row(index);
  std::vector<std::string> texts = {row->name};
  for (const char* type : row->types) {
    if (*type != '\0') {
      texts.emplace_back(type);
    }
  }
  return texts;
}

}  // namespace

TEST(FencingCatalog, HoldsTheStandardServicesInOrder) {
  ASSERT_EQ(kExpected.size(), static_cast<std::size_t>(kFencingCatalogSize));
  for (int index = 0; index < kFencingCatalogSize; ++index) {
    EXPECT_EQ(Row(index), kExpected[static_cast<std::size_t>(index)]) << index;
  }
}

TEST(FencingCatalog, EndsWhereItsRowsEnd) {
  EXPECT_EQ(fencing_catalog_row(-1), nullptr);
  EXPECT_EQ(fencing_catalog_row(kFencingCatalogSize), nullptr);
}

TEST(FencingCatalog, FindsEachTypeWithAndWithoutLocal) {
  for (int index = 0; index < kFencingCatalogSize; ++index) {
    const std::vector<std::string>& row = kExpected[static_cast<std::size_t>(index)];
    for (std::size_t i = 1; i < row.size(); ++i) {
      const std::string bare = row[i].substr(0, row[i].find(".local"));
      EXPECT_EQ(fencing_catalog_find_type(bare), index) << bare;
      EXPECT_EQ(fencing_catalog_find_type(bare + ".local"), index) << bare;
    }
  }
}

TEST(FencingCatalog, MatchesInNoOtherWay) {
  for (const char* type :
       {"_IPP._tcp", "_ipp._tcp.", "_ipp._tcp.local.", "_ipp._tcp.LOCAL", "_ipp._tcp.local.local", "ipp._tcp", "_ipp",
        "_ipp._tc", "_ipp._tcpx", "_ipp._tcp ", " _ipp._tcp", "_color._sub._ipp._tcp"}) {
    EXPECT_EQ(fencing_catalog_find_type(type), -1) << type;
  }
}

TEST(FencingCatalog, LeavesTheTypeWithALeadingDotToItself) {
  EXPECT_EQ(fencing_catalog_find_type("_googlecast._tcp"), -1);
  EXPECT_EQ(fencing_catalog_find_type("_googlecast._tcp.local"), -1);
  EXPECT_EQ(fencing_catalog_find_type("._googlecast._tcp"), 21);
}

TEST(FencingCatalog, HasNoEmptyType) {
  EXPECT_EQ(fencing_catalog_find_type(""), -1);
  EXPECT_EQ(fencing_catalog_find_type(".local"), -1);
}

TEST(FencingCatalog, FindsNamesExactly) {
  EXPECT_EQ(fencing_catalog_find_name("AirDisk"), 0);
  EXPECT_EQ(fencing_catalog_find_name("OtherServiceType-3"), 24);
  EXPECT_EQ(fencing_catalog_find_name("airdisk"), -1);
  EXPECT_EQ(fencing_catalog_find_name("AirDisk "), -1);
  EXPECT_EQ(fencing_catalog_find_name(""), -1);
}
