// SPDX-License-Identifier: MIT
// What a shell may put in a word's place on mdnsproxyctl's command line. The shells' own scripts (packaging/completion)
// only ask for it and quote it; commands and options are those that the command line's description has.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "mdnsproxyctl/session.h"

// Prints "files" or "words", and in the latter case the candidates, each with a zero byte behind it. `words`: those
// behind the program's name up to the one that is completed, as the shell would pass them. Names that a terminal does
// not show as they are, or that would be taken for an option, are left out.
int run_complete(const CLI::App& app, const std::vector<std::string>& words, Options options);
