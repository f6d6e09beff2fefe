// SPDX-License-Identifier: MIT
#include "device.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdio>

#include "stamps.h"

namespace air {
namespace {

std::string u16_text(unsigned value) { return {static_cast<char>(value >> 8 & 255), static_cast<char>(value & 255)}; }

std::string packed_address(int family, const std::string& text) {
  char bytes[16];
  inet_pton(family, text.c_str(), bytes);
  return {bytes, family == AF_INET ? 4U : 16U};
}

std::string counted(const std::string& text) { return static_cast<char>(text.size()) + text; }

// One TXT string "id=N", further `entries` (each with its length) and, where that is not enough, strings of filling up
// to the wanted size.
std::string txt_rdata(long number, std::size_t size, const std::string& entries = "") {
  std::string rdata = counted("id=" + std::to_string(number)) + entries;
  while (rdata.size() < size) {
    const std::size_t length = std::min<std::size_t>(size - rdata.size(), 60) - 1;
    rdata += static_cast<char>(length) + ("f=" + std::string(length, 'x')).substr(0, length);
  }
  return rdata;
}

}  // namespace

Device make_device(const Kind& kind, long number) {
  Device device;
  device.type = static_cast<std::size_t>(number) % kind.types.size();
  const std::string label = "Device " + std::to_string(number);
  device.instance = static_cast<char>(label.size()) + label + kind.types[device.type];
  const long host = has_own_host(kind) ? number : number % kind.hosts;
  device.host = make_name({"device-" + std::to_string(host), "local"});
  device.srv = u16_text(0) + u16_text(0) + u16_text(static_cast<unsigned>(1000 + number % 60000)) + device.host;
  device.txt = txt_rdata(number, kind.txt_size);
  const std::string low = std::to_string(16 + host / 250) + "." + std::to_string(1 + host % 250);
  if (kind.addresses.find('4') != std::string::npos)
    device.a = packed_address(AF_INET, "10." + kind.link + "." + low);
  char six[64];
  std::snprintf(six, sizeof six, "fd00:%s::1:%lx", kind.link.c_str(), host + 1);
  if (kind.addresses.find('6') != std::string::npos)
    device.aaaa = packed_address(AF_INET6, six);
  return device;
}

void change_txt(const Kind& kind, Device& device, long number, double at) {
  device.txt = txt_rdata(number, kind.txt_size, counted(stamped_entry(at)));
}

void change_address(Device& device, double at) {
  if (!device.aaaa.empty())
    device.aaaa = stamped_address(device.aaaa, at);
}

void add_addresses(Writer& writer, const Device& device, AddRecord add, bool goodbye) {
  const std::uint32_t ttl = goodbye ? 0 : kHostTtl;
  constexpr std::uint16_t kUnique = kClassIn | kCacheFlush;
  if (!device.a.empty())
    (writer.*add)(device.host, kTypeA, kUnique, ttl, device.a);
  if (!device.aaaa.empty())
    (writer.*add)(device.host, kTypeAaaa, kUnique, ttl, device.aaaa);
}

void add_service(Writer& writer, const Device& device, AddRecord add, bool goodbye) {
  constexpr std::uint16_t kUnique = kClassIn | kCacheFlush;
  (writer.*add)(device.instance, kTypeSrv, kUnique, goodbye ? 0 : kHostTtl, device.srv);
  (writer.*add)(device.instance, kTypeTxt, kUnique, goodbye ? 0 : kOtherTtl, device.txt);
}

void add_pointer(const Kind& kind, Writer& writer, const Device& device, bool goodbye) {
  writer.answer(kind.types[device.type], kTypePtr, kClassIn, goodbye ? 0 : kOtherTtl, device.instance);
}

}  // namespace air
