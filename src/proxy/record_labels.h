// SPDX-License-Identifier: MIT
// Labels that name an instance in the replies to its record registrations.
//
// A reply can come late, also after the instance is gone and its record removed, so a label's storage is never given
// back: it is taken from a fixed pool and recycled, the longest-retired label first. A very late reply then reads at
// worst the text of another instance, never freed memory.
#pragma once

// Returns a copy of the text (cut to kNameSize - 1 bytes) that stays valid memory with a terminated text for the life
// of the process, and keeps this text until it has been retired. When every label of the pool is in use, the
// longest-used is taken over.
char* record_label_acquire(const char* text);

// Lets the label be recycled, some time later. Null does nothing.
void record_label_retire(char* label);
