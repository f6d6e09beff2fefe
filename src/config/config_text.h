// SPDX-License-Identifier: MIT
// A configuration file held in memory as one text, together with the stream that it comes from.
#pragma once

#include <cstddef>
#include <cstdio>

enum class LoadOutcome {
  loaded,
  stat_invalid,  // there is no such path, or the file is empty; no buffer
  no_memory,     // no buffer
  short_read,    // the stream held fewer bytes than the path's size
};

struct ConfigText {
  LoadOutcome outcome;
  std::FILE* file;   // owned
  char* buffer;      // owned; size bytes and a zero; null: none
  std::size_t size;  // bytes of the file, as its path says
};

// Reads as many bytes from the stream as `path` has, in one piece. A zero byte in the file ends the text that a scanner
// sees. Whatever the outcome, the stream stays open until close_config_text.
ConfigText load_config_text(std::FILE* file, const char* path);

// Frees the buffer, closes the stream and returns the result of closing it. Texts in the buffer are gone then: what a
// message still has to show is copied first (copy_for_message).
int close_config_text(ConfigText& text);

// A copy of a text (or of null: null) that outlives its buffer, for a message that ends the process; nobody frees it.
// Null when there is no memory: the message then goes without the text, since it is the status that counts.
const char* copy_for_message(const char* text);
