// SPDX-License-Identifier: MIT
// What the platform knows of an interface beyond its name and index.
#pragma once

// Writes the MAC address of the interface as lower-case text ("02:00:00:00:00:01") into text[18]. 0, or non-zero and
// the text untouched: no such interface, or one without an Ethernet address.
int vcms_if_getMacAddress(const char* if_name, char* text);
