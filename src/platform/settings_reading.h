// SPDX-License-Identifier: MIT
// One reading of the settings file: its text taken apart into the values that the store is asked for. What the file
// says more (other sections, other keys) is passed over in silence. Of a setting that stands twice, the later one
// counts.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/mac_address.h"

// Longest line that is understood, its zero included; also bounds every value. The longest sensible one is a third of
// it.
inline constexpr int kSettingsLineSize = 200;

// A setting of one hop, if there is one.
struct HopSetting {
  bool configured;
  std::int32_t value;
};

// The settings of one "[fencing NAME]" section.
struct FencingSettings {
  bool present;  // the file has a setting in a section of this name
  HopSetting wireless;
  HopSetting wired;
  char anchor_ap[kMacAddressTextSize];  // as the file spells it; "": not configured
};

// Constant once it has been read; shared by the transactions that began while it was the newest.
struct SettingsReading {
  unsigned holders;                    // the last one to let go frees it
  char log_level[kSettingsLineSize];   // "": not configured
  char state_file[kSettingsLineSize];  // the state file's path; "": not configured
  FencingSettings* fencing;            // by service index; owned; null: no such section
  int fencing_count;                   // records in it
};

// Called for each mistake in the text, with its line (from 1) and a message that is valid during the call.
using SettingsReport = void (*)(int line, const char* message, void* context);

// Reads a text of `size` bytes, which needs no terminating zero. The result has one holder; null: nothing is
// configured, since the text is malformed (reported), or there was no memory (*no_memory is then true). A malformed
// text is a line that is neither section, setting nor comment, or one that is too long or holds a zero byte.
SettingsReading* settings_read(const char* text, std::size_t size, SettingsReport report, void* context,
                               bool* no_memory);

// One holder more, one holder less. Null does nothing.
SettingsReading* settings_hold(SettingsReading* reading);
void settings_release(SettingsReading* reading);

// The fencing settings of a service by its index; null when the file says nothing of it. A null reading has none.
const FencingSettings* settings_fencing(const SettingsReading* reading, int index);
