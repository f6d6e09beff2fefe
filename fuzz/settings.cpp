// SPDX-License-Identifier: MIT
// Any settings file through the configuration store, as the fencing check asks it.
//
// Claims: nothing is left of a reading once the file is another one, and a value that is given is one that the file
// could say.

#include <sys/mman.h>
#include <unistd.h>

#include <optional>

#include "fuzz.h"
#include "platform/fencing_catalog.h"
#include "platform/vcm.h"
#include "platform/zmk.h"

// Its table lives as long as a process; here it has to end with the input.
#include "platform/custom_services.cpp"

namespace {

// A file in memory under a path of its own.
class SettingsFile {
 public:
  SettingsFile() : file_(memfd_create("settings", MFD_CLOEXEC)) {
    std::snprintf(path_, sizeof(path_), "/proc/self/fd/%d", file_);
    gVcmSettingsFile = path_;
  }
  void write(const std::uint8_t* data, std::size_t size) {
    fuzz::claim(ftruncate(file_, 0) == 0 && pwrite(file_, data, size, 0) == static_cast<ssize_t>(size),
                "memory for the file");
  }

 private:
  int file_;
  char path_[32];
};

void forget_custom_services() {
  CustomService* each = nullptr;
  CustomService* next = nullptr;
  HASH_ITER(hh, gCustomServices, each, next) {
    HASH_DEL(gCustomServices, each);
    zmk_free(each->service_type, __FILE__, __LINE__);
    zmk_free(each, __FILE__, __LINE__);
  }
}

void ask_of_service(VcmXact xact, int index) {
  std::int32_t hop = 0;
  vcm_bonjour_fencing_pgetHop(xact, index, &hop, kVcmFencingWireless);
  vcm_bonjour_fencing_pgetHop(xact, index, &hop, kVcmFencingWired);
  fuzz::Block anchor(kMacAddressTextSize);
  std::memset(anchor.data(), 'x', anchor.size());
  if (vcm_bonjour_fencing_pgetAnchorAp(xact, index, anchor.data(), kMacAddressTextSize, kVcmFencingWired) == 0) {
    fuzz::claim(std::memchr(anchor.data(), '\0', anchor.size()) != nullptr, "an anchor's text ends in its buffer");
  }
}

void ask_all() {
  VcmXact xact = nullptr;
  fuzz::claim(vcm_beginXact(&xact) == 0 && xact != nullptr, "a transaction opens");
  fuzz::Block level(64);
  if (vcm_mdnsproxy_sget_log_level(xact, level.data(), static_cast<int>(level.size())) == 0) {
    fuzz::claim(std::memchr(level.data(), '\0', level.size()) != nullptr, "a log level's text ends in its buffer");
  }
  for (int index = -2; index < kFencingCatalogSize + 8; ++index)
    ask_of_service(xact, index);
  for (const char* type : {"_ipp._tcp", "_ipp._tcp.local", "_custom._tcp", "_custom._tcp.local", "", ".local"}) {
    ask_of_service(xact, vcm_bonjour_fencing_serviceTypeToIdx(type, 0, 0, nullptr));
    ask_of_service(xact, vcm_bonjour_fencing_custom_serviceTypeToIdx(type, 0));
  }
  vcm_cancelXact(&xact);
  fuzz::claim(xact == nullptr, "a cancelled transaction is cleared");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static SettingsFile file;
  static std::optional<ZmkUsage> before;
  file.write(data, size);
  ask_all();
  forget_custom_services();
  file.write(nullptr, 0);
  ask_all();
  const ZmkUsage after = zmk_usage();
  fuzz::claim(!before || (before->blocks == after.blocks && before->bytes == after.bytes),
              "nothing is left of a reading");
  before = after;
  return 0;
}
