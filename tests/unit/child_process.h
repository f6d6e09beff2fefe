// SPDX-License-Identifier: MIT
// Code under test that ends its process, or changes it for good, runs in a child.
#pragma once

#include <functional>
#include <string>

struct ChildProcess {
  int exit_status;    // -1: a signal ended it
  int ending_signal;  // 0: it exited
  std::string out;    // standard output
  std::string err;    // standard error
};

// Runs `act` in a child of this process and waits for its end; no core file is made. When `act` comes back, the child
// exits with 0, or with kChildFailed when one of its expectations was not met.
ChildProcess run_in_child(const std::function<void()>& act);

inline constexpr int kChildFailed = 99;

// Runs `act` in another child of this process, of which nobody waits for the end.
void in_helper_process(const std::function<void()>& act);

// Waits until that process sleeps in a system call, such as the open of a FIFO that has no other end.
void wait_until_asleep(int process);

// For a failure message.
std::string describe(const ChildProcess& child);
