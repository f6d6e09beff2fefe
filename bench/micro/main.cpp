// SPDX-License-Identifier: MIT
// Micro-benchmarks of what the daemon does per reply, per rule and per file. Run as the daemon runs: its semaphores
// made, its debug messages filtered by the syslog mask.
#include <benchmark/benchmark.h>
#include <semaphore.h>
#include <syslog.h>

#include "runtime/startup.h"

int main(int argc, char** argv) {
  setlogmask(LOG_UPTO(LOG_ERR));
  sem_init(&gIfNameToIndexSemaphore, 0, 1);
  sem_init(&gServiceTypeToIdSemaphore, 0, 1);
  sem_init(&gRulesSemaphore, 0, 1);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv))
    return 2;
  benchmark::RunSpecifiedBenchmarks();
}
