// SPDX-License-Identifier: MIT
#include "mdnsproxyctl/output_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

bool write_all(int file, const std::string& text) {
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t written = write(file, text.data() + done, text.size() - done);
    if (written < 0 && errno != EINTR) {
      return false;
    }
    done += written > 0 ? static_cast<std::size_t>(written) : 0;
  }
  return true;
}

// False: there is no new file, and errno says why.
bool replace_file(const std::string& path, const std::string& text) {
  std::string fresh = path + ".XXXXXX";
  const int file = mkstemp(fresh.data());
  if (file == -1) {
    return false;
  }
  const bool written = write_all(file, text) && fchmod(file, 0644) == 0;
  const bool replaced = close(file) == 0 && written && rename(fresh.c_str(), path.c_str()) == 0;
  if (!replaced) {
    const int why = errno;
    unlink(fresh.c_str());
    errno = why;
  }
  return replaced;
}

}  // namespace

int write_answer(const Session& session, const std::string& file, const Json& answer, const std::string& text,
                 int status) {
  if (file.empty() || file == "-") {
    return print_answer(session, answer, text, status);
  }
  if (!replace_file(file, answer_output(session, answer, text))) {
    std::fprintf(stderr, "mdnsproxyctl: %s: %s\n", shown(file).c_str(), std::strerror(errno));
    return kUnwell;
  }
  return status;
}
