// SPDX-License-Identifier: MIT
// For LD_PRELOAD: a wall clock that stands as many seconds off as the file that CLOCK_OFFSET_FILE names says, so that a
// test sets the clock for one program alone.
#define _GNU_SOURCE
#include <stdio.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

static long offset(void) {
  const char* path = getenv("CLOCK_OFFSET_FILE");
  FILE* file = path == NULL ? NULL : fopen(path, "re");
  long seconds = 0;
  if (file != NULL) {
    if (fscanf(file, "%ld", &seconds) != 1) {
      seconds = 0;
    }
    fclose(file);
  }
  return seconds;
}

int clock_gettime(clockid_t clock, struct timespec* now) {
  const int result = (int)syscall(SYS_clock_gettime, clock, now);
  if (clock == CLOCK_REALTIME) {
    now->tv_sec += offset();
  }
  return result;
}

int gettimeofday(struct timeval* now, void* zone) {
  (void)zone;
  struct timespec precise;
  const int result = clock_gettime(CLOCK_REALTIME, &precise);
  now->tv_sec = precise.tv_sec;
  now->tv_usec = precise.tv_nsec / 1000;
  return result;
}

time_t time(time_t* now) {
  struct timespec precise;
  clock_gettime(CLOCK_REALTIME, &precise);
  if (now != NULL) {
    *now = precise.tv_sec;
  }
  return precise.tv_sec;
}
