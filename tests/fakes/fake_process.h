// SPDX-License-Identifier: MIT
// The process-level calls of the C library, taken over one by one: chdir, close, dup2, fork, fsync, getppid, kill,
// open, pselect, sem_init, sem_trywait, setsid, sigaction, sleep, usleep, write. While recording is on, each call is
// recorded and answered as it was told to; a call that was told nothing is the real one, but for kill, sleep and
// usleep, which do nothing and succeed. While recording is off (at first), all are the real ones.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace fake_process {

// Starts recording, with nothing recorded and nothing told.
void start();

// Stops recording and forgets what was told; the record stays.
void stop();

// Every further call of the function returns `result`, with errno set to `error` where that is not 0.
void always(std::string_view function, int result, int error = 0);

// The next call of the function that no earlier `next` answers returns `result`; the calls after it are as they were
// before.
void next(std::string_view function, int result, int error = 0);

// The nth call from now (1: the very next) returns -1 with this errno.
void fail_call(std::string_view function, unsigned nth, int error);

// Runs `action` inside each further call of the function, before it is answered.
void on_call(std::string_view function, std::function<void()> action);

// Every call since start, in order, as "kill(123, 9)", and those of one function. Of open, sigaction and pselect:
// `open("/path", flags, mode)`, `sigaction(number)`, `pselect(count, {readable descriptors}, seconds)`.
const std::vector<std::string>& calls();
std::vector<std::string> calls_of(std::string_view function);

}  // namespace fake_process
