// SPDX-License-Identifier: MIT
// Start-up's first half and the event loop.
#pragma once

#include <semaphore.h>

// Configuration-store log switch, semaphores and their self-test, daemonizing, status 1, the two DNS-SD connections.
// Returns in the daemon child. May end the process (30, 600, 999).
void main_init();

// One getopt call; stores optind through `index` and returns the option character (or what getopt returns).
int getfirstoption(int argc, char** argv, const char* optstring, int* index);

// Serves DNS-SD replies until stopNow is set or the pass counter reaches max_loops (0: no bound). Every reply callback
// of the proxy runs inside it.
void HandleEvents(int max_loops);

// Writes what the DNS-SD library has counted on its links into the state file, if the library counts and there is a
// file.
void report_link_figures();

// Called when a wait of the event loop times out.
void myTimerCallBack();

extern int stopNow;         // set by the event loop to end itself
extern int gSelectTimeout;  // seconds; read afresh on every pass
extern int gOptionChar;     // result of the one command-line option; 0: none

// Created by main_init with count 1; each guards one table. None is recursive.
extern sem_t gIfNameToIndexSemaphore;
extern sem_t gServiceTypeToIdSemaphore;
extern sem_t gRulesSemaphore;

// Holds a semaphore for one scope.
class SemaphoreGuard {
 public:
  explicit SemaphoreGuard(sem_t& semaphore) : semaphore_(semaphore) { sem_wait(&semaphore_); }
  ~SemaphoreGuard() { sem_post(&semaphore_); }
  SemaphoreGuard(const SemaphoreGuard&) = delete;
  SemaphoreGuard& operator=(const SemaphoreGuard&) = delete;

 private:
  sem_t& semaphore_;
};
