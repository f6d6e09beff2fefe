// SPDX-License-Identifier: MIT
// Whether two keys are the same, told quickly when they are not.
//
// Avahi's tables have 123 places whatever is in them, and avahi_key_equal compares names label by label, unescaping each anew: with
// two thousand services every look into a table holds some sixty names against the one that is looked for, and that was half of all
// that the library did. So it has that function under the same name, which the dynamic linker gives to Avahi, as it does with
// those of withheld.h. It says the same. Where the linker finds Avahi's own, the same is done in more time.
#pragma once

namespace dnssd {

// True only if the two texts of names, in Avahi's form or any other with its escapes, are different names. Different names may
// give false: it is then for avahi_domain_equal to say.
bool names_surely_differ(const char* one, const char* other);

}  // namespace dnssd
