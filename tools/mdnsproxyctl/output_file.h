// SPDX-License-Identifier: MIT
// Answers that go into a file.
#pragma once

#include <string>

#include "mdnsproxyctl/session.h"

// Writes a JSON answer, or the text, as print_answer does: to this file, which is replaced as a whole (readable for
// everybody), so that whoever opens it reads the old answer or the new one, never half of one; to standard output when
// `file` is "" or "-". `status` as it comes, or kUnwell when it could not be written: then the reason is on standard
// error, and the old file stays as it was.
int write_answer(const Session& session, const std::string& file, const Json& answer, const std::string& text,
                 int status);
