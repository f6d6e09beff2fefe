// SPDX-License-Identifier: MIT
#include "mdnsproxy-check/service_type.h"

#include <algorithm>
#include <cctype>
#include <vector>

namespace {

constexpr std::size_t kLongestServiceName = 15;  // RFC 6335 section 5.1
constexpr std::size_t kLongestLabel = 63;        // RFC 1035 section 2.3.4

// Labels as they stand; a backslash protects the character after it.
std::vector<std::string_view> labels_of(std::string_view name) {
  std::vector<std::string_view> labels;
  std::size_t begin = 0;
  for (std::size_t i = 0; i < name.size(); ++i) {
    if (name[i] == '\\') {
      ++i;
    } else if (name[i] == '.') {
      labels.push_back(name.substr(begin, i - begin));
      begin = i + 1;
    }
  }
  labels.push_back(name.substr(begin));
  return labels;
}

// An underscore within the name is against RFC 6335 but in daily use, so it passes.
bool is_service_name(std::string_view label) {
  if (label.size() < 2 || label.size() > kLongestServiceName + 1 || label[0] != '_') {
    return false;
  }
  const std::string_view name = label.substr(1);
  const auto allowed = [](unsigned char c) { return std::isalnum(c) != 0 || c == '-' || c == '_'; };
  return name.front() != '-' && name.back() != '-' && std::all_of(name.begin(), name.end(), allowed);
}

bool is_protocol(std::string_view label) { return label == "_tcp" || label == "_udp"; }

bool is_service_type(const std::vector<std::string_view>& labels) {
  if (labels.size() == 3) {
    return !labels[0].empty() && labels[0].size() <= kLongestLabel && is_service_name(labels[1]) &&
           is_protocol(labels[2]);
  }
  return labels.size() == 2 && is_service_name(labels[0]) && is_protocol(labels[1]);
}

bool ends_in_domain(const std::vector<std::string_view>& labels) {
  const bool trailing_dot = labels.back().empty();
  const std::size_t last = labels.size() - (trailing_dot ? 2 : 1);
  return labels.size() > 1 && (trailing_dot || labels[last] == "local");
}

std::string cure_of(const std::vector<std::string_view>& labels) {
  if (ends_in_domain(labels)) {
    return "write it without a domain and without a dot at its end, as in \"_ipp._tcp\"";
  }
  if (labels.size() == 4 && labels[1] == "_sub") {
    return "write a subtype without \"_sub\", as in \"_universal._ipp._tcp\"";
  }
  return "write an underscore, a name of at most 15 letters, digits and hyphens, and then \"._tcp\" or \"._udp\"";
}

}  // namespace

std::optional<TypeFault> find_type_fault(std::string_view type) {
  const std::vector<std::string_view> labels = labels_of(type);
  if (type.size() >= kServiceTypeRoom) {
    return TypeFault{
        "the service type \"" + std::string(type) + "\" has 64 characters or more, and the daemon keeps 63 of a type",
        "shorten it, or check that what stands before its first dot is all that matters of the rest"};
  }
  if (!is_service_type(labels)) {
    return TypeFault{std::string("\"").append(type).append("\" is no DNS-SD service type"), cure_of(labels)};
  }
  return std::nullopt;
}
