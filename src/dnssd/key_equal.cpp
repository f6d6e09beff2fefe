// SPDX-License-Identifier: MIT
#include "dnssd/key_equal.h"

#include <avahi-common/domain.h>
#include <avahi-core/rr.h>

#include "dnssd/names.h"

namespace dnssd {
namespace {

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// What stands for itself alone wherever it stands in a name, and in no other way without a backslash.
bool is_plain(char c) { return is_digit(c) || (fold_case(c) >= 'a' && fold_case(c) <= 'z') || c == '-' || c == '_'; }

// How many characters after the backslash the escape has, if it is the same in both texts; 0: it is not, or not whole.
int same_escape(const char* one, const char* other) {
  const int length = is_digit(one[1]) ? 3 : 1;
  for (int i = 1; i <= length; ++i) {
    if (one[i] == '\0' || one[i] != other[i]) {
      return 0;
    }
  }
  return length;
}

}  // namespace

bool names_surely_differ(const char* one, const char* other) {
  for (;; ++one, ++other) {
    if (fold_case(*one) != fold_case(*other)) {
      return is_plain(*one) && is_plain(*other);
    }
    if (*one == '\0') {
      return false;
    }
    if (*one == '\\') {
      const int length = same_escape(one, other);
      if (length == 0) {
        return false;
      }
      one += length;
      other += length;
    }
  }
}

}  // namespace dnssd

int avahi_key_equal(const AvahiKey* a, const AvahiKey* b) {
  if (a == b) {
    return 1;
  }
  if (a->type != b->type || a->clazz != b->clazz || dnssd::names_surely_differ(a->name, b->name)) {
    return 0;
  }
  return avahi_domain_equal(a->name, b->name);
}
