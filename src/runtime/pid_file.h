// SPDX-License-Identifier: MIT
// The PID file at start-up. exit_clean_no_update_status_file removes it (status.h).
#pragma once

// Makes the PID file with this process's id, killing (SIGKILL) the process that an existing one names. Where a FIFO
// stands in its place, that waits for a writer and then for a reader. May end the process (10, 30).
void create_PID_file(const char* aPIDfilename);

extern int gConfigPIDFilehandle;  // descriptor of the PID file while it is written; -1 after a failed open
