// SPDX-License-Identifier: MIT
// The settings file as it stands now: read again only when it has changed.
#pragma once

#include "platform/settings_reading.h"

// A file of more bytes is no settings file of ours: a hundred services take a tenth of it.
inline constexpr long kSettingsFileLimit = 64 * 1024;

// The newest reading of gVcmSettingsFile, held by this module until a later call finds another; null: nothing is
// configured.
//
// A file that is not there is silence. One that cannot be read (no permission, no regular file, too large) or is
// malformed is reported to syslog at LOG_ERR, once for each content or cause, and counts as missing; a wrong value
// likewise, and counts as not configured. When there is no memory nothing is configured, and the next call tries again.
SettingsReading* settings_current();
