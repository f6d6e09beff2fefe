// SPDX-License-Identifier: MIT
#include "mdnsproxyctl/output_file.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "mdnsproxyctl/json.h"
#include "mdnsproxyctl/rules_file.h"

int write_answer(const Session& session, const std::string& file, const Json& answer, const std::string& text,
                 int status) {
  if (file.empty() || file == "-") {
    return print_answer(session, answer, text, status);
  }
  const std::string output = answer_output(session, answer, text);
  const auto fill = [&](int fresh) { return write_all(fresh, output) && fchmod(fresh, 0644) == 0; };
  if (!replace_file(file, fill)) {
    std::fprintf(stderr, "mdnsproxyctl: %s: %s\n", shown(file).c_str(), std::strerror(errno));
    return kUnwell;
  }
  return status;
}
