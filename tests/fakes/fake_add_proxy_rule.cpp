// SPDX-License-Identifier: MIT
#include "fakes/fake_add_proxy_rule.h"

#include <cstdio>

#include "proxy/proxy.h"

namespace {

std::vector<std::string>& record() {
  static std::vector<std::string> the_record;
  return the_record;
}

}  // namespace

void add_proxy_rule(const char* service_type, const char* if_from, const char* if_to) {
  record().push_back(std::string(service_type) + " " + if_from + "->" + if_to);
  std::fprintf(stderr, "add_proxy_rule(%s, %s, %s)\n", service_type, if_from, if_to);
}

namespace fake_add_proxy_rule {

const std::vector<std::string>& rules() { return record(); }
void reset() { record().clear(); }

}  // namespace fake_add_proxy_rule
