// SPDX-License-Identifier: MIT
// A restart without goodbyes and announcements on the links.
//
// The environment variable MDNSPROXY_HANDOVER names a file. To have a restart go unnoticed, make a file of that name
// with ".wanted" appended before it. If that exists when the engine or a connection ends, the published records are
// written into the first file, and no goodbyes are sent for them. The engine of the next process reads the file and
// publishes these records at once. What its caller registers then is compared with them: a record that is the same is
// not announced again, other data is an update, and what has not been registered some seconds after the caller's first
// pass is withdrawn.
//
// A file that is damaged, too old, of another machine or of before the machine's last start is ignored, and so are its
// records for an interface that is gone. It is read once.
#pragma once

#include <optional>

#include "dnssd/operations/handover_file.h"

namespace dnssd {

// To be called when the process may be about to end. If a handover is wanted and its file can be written, writes the
// published records into it and withdraws them without goodbyes; else does nothing.
void handover_give();

// What the former process has left, if its file is valid and fresh; the file is gone then.
std::optional<Handover> handover_receive();

}  // namespace dnssd
