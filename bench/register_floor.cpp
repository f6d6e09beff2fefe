// SPDX-License-Identifier: MIT
// register_floor: the least that announcing services on a link costs with this DNS-SD library. Registers what the
// daemon would register for as many devices, over the same two connections and with the same flags, without finding,
// resolving or forwarding anything.
//
//   register_floor INTERFACE [TYPE...]
//
// Device number N is "Device N" of type N modulo the number of types. Commands, one a line on standard input, until its
// end:
//
//   register FIRST COUNT   says "registered FIRST COUNT BEGIN END" (seconds of the real-time clock) when all calls
//                          have returned
//   release FIRST COUNT    says "released FIRST COUNT BEGIN END"
#include <arpa/inet.h>
#include <dns_sd.h>
#include <net/if.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <unordered_map>
#include <vector>

namespace {

constexpr DNSServiceFlags kShareConnection = 0x4000;  // not every dns_sd.h names it
constexpr DNSServiceFlags kProxiedRecord = 0x10;      // what the daemon registers a host's records with
constexpr std::uint16_t kFirstPort = 1000;

struct Device {
  DNSServiceRef service = nullptr;
  std::vector<DNSRecordRef> records;
};

struct Floor {
  DNSServiceRef services = nullptr, records = nullptr;  // the two connections
  std::uint32_t interface_index = 0;
  std::vector<std::string> types;
  std::unordered_map<long, Device> devices;
};

double now() {
  timespec time{};
  clock_gettime(CLOCK_REALTIME, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

void check(DNSServiceErrorType error, const char* call) {
  if (error == kDNSServiceErr_NoError)
    return;
  std::fprintf(stderr, "%s: %d\n", call, error);
  std::exit(1);
}

void registered(DNSServiceRef, DNSServiceFlags, DNSServiceErrorType error, const char*, const char*, const char*,
                void*) {
  check(error, "registration");
}

void record_registered(DNSServiceRef, DNSRecordRef, DNSServiceFlags, DNSServiceErrorType error, void*) {
  check(error, "record registration");
}

void add_record(Floor& floor, Device& device, const std::string& host, std::uint16_t type, const void* address,
                std::uint16_t size) {
  DNSRecordRef record = nullptr;
  check(DNSServiceRegisterRecord(floor.records, &record, kProxiedRecord, floor.interface_index, host.c_str(), type,
                                 kDNSServiceClass_IN, size, address, 0, record_registered, nullptr),
        "DNSServiceRegisterRecord");
  device.records.push_back(record);
}

void add_addresses(Floor& floor, Device& device, const std::string& host, long number) {
  const std::string four = "10.1." + std::to_string(16 + number / 250) + "." + std::to_string(1 + number % 250);
  std::array<char, INET6_ADDRSTRLEN> six{};
  std::snprintf(six.data(), six.size(), "fd00:1::1:%lx", static_cast<unsigned long>(number + 1));
  std::array<std::uint8_t, 16> address{};
  inet_pton(AF_INET, four.c_str(), address.data());
  add_record(floor, device, host, kDNSServiceType_A, address.data(), 4);
  inet_pton(AF_INET6, six.data(), address.data());
  add_record(floor, device, host, kDNSServiceType_AAAA, address.data(), 16);
}

void add_device(Floor& floor, long number) {
  Device& device = floor.devices[number];
  const std::string host = "device-" + std::to_string(number) + ".local.";
  const std::string name = "Device " + std::to_string(number);
  const std::string id = "id=" + std::to_string(number);
  const std::string txt = "\rvender=Zenmor" + std::string(1, static_cast<char>(id.size())) + id + std::string(1, 50) +
                          "f=" + std::string(48, 'x');
  add_addresses(floor, device, host, number);
  device.service = floor.services;
  check(DNSServiceRegister(&device.service, kShareConnection | kProxiedRecord, floor.interface_index, name.c_str(),
                           floor.types[static_cast<std::size_t>(number) % floor.types.size()].c_str(), "local",
                           host.c_str(), htons(static_cast<std::uint16_t>(kFirstPort + number)),
                           static_cast<std::uint16_t>(txt.size()), txt.data(), registered, nullptr),
        "DNSServiceRegister");
}

void remove_device(Floor& floor, long number) {
  const auto device = floor.devices.find(number);
  if (device == floor.devices.end())
    return;
  for (DNSRecordRef record : device->second.records)
    check(DNSServiceRemoveRecord(floor.records, record, 0), "DNSServiceRemoveRecord");
  DNSServiceRefDeallocate(device->second.service);
  floor.devices.erase(device);
}

void obey(Floor& floor, const char* line) {
  std::array<char, 16> word{};
  long first = 0, count = 0;
  if (std::sscanf(line, "%15s %ld %ld", word.data(), &first, &count) != 3)
    return;
  const bool adds = std::strcmp(word.data(), "register") == 0;
  const double begin = now();
  for (long number = first; number < first + count; ++number)
    adds ? add_device(floor, number) : remove_device(floor, number);
  std::printf("%s %ld %ld %.6f %.6f\n", adds ? "registered" : "released", first, count, begin, now());
}

void serve(Floor& floor) {
  std::array<pollfd, 2> polled{{{STDIN_FILENO, POLLIN, 0}, {DNSServiceRefSockFD(floor.services), POLLIN, 0}}};
  for (std::array<char, 256> line{};;) {
    poll(polled.data(), polled.size(), -1);
    if (polled[1].revents != 0)
      check(DNSServiceProcessResult(floor.services), "DNSServiceProcessResult");
    if (polled[0].revents == 0)
      continue;
    // One line at a time is all that is ever written.
    if (std::fgets(line.data(), line.size(), stdin) == nullptr)
      return;
    obey(floor, line.data());
    std::fflush(stdout);
  }
}

}  // namespace

int main(int argc, char** argv) {
  Floor floor;
  floor.interface_index = argc > 1 ? if_nametoindex(argv[1]) : 0;
  if (floor.interface_index == 0) {
    std::fprintf(stderr, "usage: register_floor INTERFACE [TYPE...]\n");
    return 2;
  }
  floor.types.assign(argv + 2, argv + argc);
  if (floor.types.empty())
    floor.types.emplace_back("_ipp._tcp");
  check(DNSServiceCreateConnection(&floor.services), "DNSServiceCreateConnection");
  check(DNSServiceCreateConnection(&floor.records), "DNSServiceCreateConnection");
  std::puts("ready");
  std::fflush(stdout);
  serve(floor);
  DNSServiceRefDeallocate(floor.records);
  DNSServiceRefDeallocate(floor.services);
}
