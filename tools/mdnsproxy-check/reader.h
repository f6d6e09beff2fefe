// SPDX-License-Identifier: MIT
// Who reads the lists: root reads everything, and so finds out nothing of what the daemon's user can read.
#pragma once

#include <sys/types.h>

#include <string>

struct Reader {
  uid_t user;
  gid_t group;
};

// The user that the unit runs the daemon as. While no daemon runs there is none of that name; then it is nobody, who
// owns no file and is in no group either.
Reader daemon_reader();

// Becomes the user for the rest of the process, without any other group. False: this process may not.
bool become(const Reader& reader);

// Whether the user can open the file for reading. For a file in /etc that takes the way to it, too; one elsewhere is
// a draft, of which only its own permissions count. A child process tries it. True as well when the file cannot be
// opened at all, or nothing can be tried, since this process is not root's.
bool can_read(const std::string& path, const Reader& reader);
