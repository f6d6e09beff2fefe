// SPDX-License-Identifier: MIT
// The name helpers, each of which runs once or more per reply.
#include "proxy/names.h"

#include <benchmark/benchmark.h>

#include <array>

#include "proxy/proxy.h"

namespace {

constexpr char kFullName[] = "HP\\032LaserJet\\0324\\.5\\032\\(second\\032floor\\)._ipp._tcp.local.";
constexpr char kEscapedLabel[] = "HP\\032LaserJet\\0324\\.5\\032second\\032floor";
constexpr char kWireName[] = "\x1cHP LaserJet 4.5 next to door\x04_ipp\x04_tcp\x05local";

void labels_counted(benchmark::State& state) {
  for (auto _ : state)
    benchmark::DoNotOptimize(count_labels(kFullName));
}
BENCHMARK(labels_counted);

void label_copied(benchmark::State& state) {
  std::array<char, kNameSize> label{};
  for (auto _ : state) {
    const char* cursor = kFullName;
    copy_next_label(label.data(), label.data() + label.size(), &cursor, 1);
    benchmark::DoNotOptimize(label);
  }
}
BENCHMARK(label_copied);

void label_unescaped(benchmark::State& state) {
  std::array<char, kNameSize> plain{};
  for (auto _ : state)
    benchmark::DoNotOptimize(ConvertDomainNameToCString_UnEnsacpe(kEscapedLabel, plain.data()));
}
BENCHMARK(label_unescaped);

void wire_name_turned_to_text(benchmark::State& state) {
  std::array<char, kNameSize> text{};
  for (auto _ : state) {
    std::span<const std::uint8_t> rest(reinterpret_cast<const std::uint8_t*>(kWireName), sizeof kWireName);
    benchmark::DoNotOptimize(wire_name_to_text(text.data(), text.size(), rest));
  }
}
BENCHMARK(wire_name_turned_to_text);

}  // namespace
