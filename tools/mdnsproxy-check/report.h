// SPDX-License-Identifier: MIT
// The verdict for a person and for a program.
#pragma once

#include <string>

#include "mdnsproxy-check/verdict.h"

// One line a finding, "file:line:column: error|warning: text".
std::string finding_lines(const Findings& findings);

// The lines of the findings, then what will be forwarded from where to where.
std::string text_report(const Verdict& verdict, const CheckRequest& request);

// The same as one JSON object, see mdnsproxy-check(1). Bytes that are not UTF-8 are replaced.
std::string json_report(const Verdict& verdict, const CheckRequest& request);
