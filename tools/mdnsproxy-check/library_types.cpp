// SPDX-License-Identifier: MIT
// The library's own judgement, compiled in, so that the two never disagree.
#include "mdnsproxy-check/library_types.h"

#include "dnssd/base/names.h"

bool library_accepts_type(const std::string& type) { return dnssd::parse_browse_type(type).has_value(); }
