// SPDX-License-Identifier: MIT
// Look-ups in the tables. Nothing is ever taken out of them, so each benchmark fills up what is missing.
#include <benchmark/benchmark.h>

#include <string>

#include "proxy/proxy.h"
#include "tables/tables.h"

namespace {

constexpr int kInterfaces = 64;
constexpr int kTypes = 64;
constexpr std::int64_t kInstances = 2001;  // the daemon's limit

std::string interface_name(int number) { return "vlan" + std::to_string(number); }
std::string type_name(int number) { return "_service" + std::to_string(number) + "._tcp"; }
std::string instance_name(std::int64_t number) { return "Printer " + std::to_string(number) + " (second floor)"; }

void interface_lookup(benchmark::State& state) {
  for (int number = static_cast<int>(hash_count_ifNameToIndex()); number < kInterfaces; ++number) {
    hash_add_IfNameToIndex(interface_name(number).c_str(), number + 1);
  }
  const std::string name = interface_name(kInterfaces / 2);
  for (auto _ : state)
    benchmark::DoNotOptimize(hash_getIndex_IfNameToIndex(name.c_str()));
}
BENCHMARK(interface_lookup);

void service_type_lookup(benchmark::State& state) {
  for (int number = 0; number < kTypes; ++number)
    hash_add_ServiceTypeToId(type_name(number).c_str());
  const std::string name = type_name(kTypes / 2);
  for (auto _ : state)
    benchmark::DoNotOptimize(hash_getId_ServiceTypeToId(name.c_str()));
}
BENCHMARK(service_type_lookup);

// A rule with so many live instances.
struct Rule {
  BridgeContext bridge{};

  explicit Rule(std::int64_t instances) {
    for (std::int64_t number = 0; number < instances; ++number)
      add_responder_context(&bridge, instance_name(number).c_str());
  }
  ~Rule() {
    while (bridge.responder_contexts != nullptr)
      del_responder_context(&bridge, bridge.responder_contexts);
  }
  Rule(const Rule&) = delete;
  Rule& operator=(const Rule&) = delete;
};

void instance_lookup(benchmark::State& state) {
  const Rule rule(state.range(0));
  const std::string name = instance_name(state.range(0) / 2);
  for (auto _ : state)
    benchmark::DoNotOptimize(get_responder_context_by_name(&rule.bridge, name.c_str()));
}
BENCHMARK(instance_lookup)->Arg(1)->Arg(100)->Arg(kInstances);

void instance_comes_and_goes(benchmark::State& state) {
  Rule rule(state.range(0));
  const std::string name = instance_name(state.range(0));
  for (auto _ : state) {
    add_responder_context(&rule.bridge, name.c_str());
    del_responder_context(&rule.bridge, get_responder_context_by_name(&rule.bridge, name.c_str()));
  }
}
BENCHMARK(instance_comes_and_goes)->Arg(0)->Arg(100)->Arg(kInstances);

}  // namespace
