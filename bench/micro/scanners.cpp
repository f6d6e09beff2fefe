// SPDX-License-Identifier: MIT
// Reading the two files: the time may only grow with their size.
#include <benchmark/benchmark.h>

#include <string>

#include "config/rules_scanner.h"
#include "config/services_scanner.h"

namespace {

std::string services_text(std::int64_t services) {
  std::string text = "<services>\n";
  for (std::int64_t number = 0; number < services; ++number) {
    text += "  <mdnsservice name=\"Service " + std::to_string(number) + "\">\n";
    text += "    <service type=\"_ipp._tcp\"/>\n    <service type=\"_ipps._tcp\"/>\n  </mdnsservice>\n";
  }
  return text + "</services>\n";
}

std::string rules_text(std::int64_t rules) {
  std::string text = "<rules>\n";
  for (std::int64_t number = 0; number < rules; ++number) {
    text += "  <mdnsproxyrule mdnsservice=\"Service " + std::to_string(number) +
            "\" rule_type=\"0\" if_from=\"br0\" if_to=\"br1\" bidirectional=\"no\"/>\n";
  }
  return text + "</rules>\n";
}

// The scanners write into their text, so each pass gets a copy; copying is a few thousandths of the time.
void services_list(benchmark::State& state) {
  const std::string original = services_text(state.range(0));
  for (auto _ : state) {
    std::string text = original;
    ServicesScanner scanner = services_scanner(text.data());
    while (next_item(scanner).kind != ServicesItemKind::end) {
    }
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(original.size()));
  state.SetComplexityN(state.range(0));
}
BENCHMARK(services_list)->RangeMultiplier(10)->Range(10, 10000)->Complexity();

void rules_list(benchmark::State& state) {
  const std::string original = rules_text(state.range(0));
  for (auto _ : state) {
    std::string text = original;
    RulesScanner scanner = rules_scanner(text.data());
    while (next_item(scanner).kind != RulesItemKind::end) {
    }
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(original.size()));
  state.SetComplexityN(state.range(0));
}
BENCHMARK(rules_list)->RangeMultiplier(10)->Range(10, 10000)->Complexity();

}  // namespace
