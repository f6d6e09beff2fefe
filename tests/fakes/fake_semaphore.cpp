// SPDX-License-Identifier: MIT
#include "fakes/fake_semaphore.h"

#include <semaphore.h>

#include <cstdio>
#include <cstdlib>

#include "runtime/startup.h"
#include "runtime/status.h"

extern "C" {
int __real_sem_wait(sem_t* semaphore);
int __real_sem_post(sem_t* semaphore);
int __wrap_sem_wait(sem_t* semaphore);
int __wrap_sem_post(sem_t* semaphore);
}

namespace {

std::vector<std::string>& record() {
  static std::vector<std::string> the_record;
  return the_record;
}

const char* name_of(const sem_t* semaphore) {
  if (semaphore == &gIfNameToIndexSemaphore) {
    return "gIfNameToIndexSemaphore";
  }
  if (semaphore == &gServiceTypeToIdSemaphore) {
    return "gServiceTypeToIdSemaphore";
  }
  if (semaphore == &gRulesSemaphore) {
    return "gRulesSemaphore";
  }
  return semaphore == &gStatusFileSemaphore ? "gStatusFileSemaphore" : "unknown semaphore";
}

}  // namespace

extern "C" int __wrap_sem_wait(sem_t* semaphore) {
  int value = 0;
  sem_getvalue(semaphore, &value);
  if (value == 0) {
    std::fprintf(stderr, "sem_wait(%s) would never return\n", name_of(semaphore));
    std::abort();
  }
  record().push_back(std::string("wait ") + name_of(semaphore));
  return __real_sem_wait(semaphore);
}

extern "C" int __wrap_sem_post(sem_t* semaphore) {
  record().push_back(std::string("post ") + name_of(semaphore));
  return __real_sem_post(semaphore);
}

namespace fake_semaphore {

const std::vector<std::string>& calls() { return record(); }
void reset() { record().clear(); }

}  // namespace fake_semaphore
