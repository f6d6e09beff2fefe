// SPDX-License-Identifier: MIT
#include "unit/tables/daemon_test.h"

#include <semaphore.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "fakes/fake_semaphore.h"
#include "fakes/fake_syslog.h"
#include "fakes/fake_zmk.h"
#include "runtime/runtime.h"
#include "tables/tables.h"

namespace {

constexpr const char* kMessageStart = "mdnsproxy.c:";

// Takes out every record of one table; `free_record` frees what it owns.
template <typename Record, typename FreeRecord>
void clear_table(Record*& head, FreeRecord free_record) {
  Record* record = head;
  while (record != nullptr) {
    auto* next = static_cast<Record*>(record->hh.next);
    HASH_DEL(head, record);
    free_record(record);
    zmk_free(record, __FILE__, __LINE__);
    record = next;
  }
}

void free_text(char* text) { zmk_free(text, __FILE__, __LINE__); }

void free_source(gHashRulesIfFrom_t* source) {
  clear_table(source->serviceType_to_ifTo_hash, [](ServiceTypeToIfTo_t* record) { array_free(record->if_to_array); });
}

std::string first_line(const char* path) {
  std::string line;
  std::ifstream file(path);
  std::getline(file, line);
  return line;
}

// The settings as they were before the first test changed them.
const Settings& program_settings() {
  static const Settings the_settings = gSettings;
  return the_settings;
}

void init_semaphores() {
  for (sem_t* semaphore :
       {&gIfNameToIndexSemaphore, &gServiceTypeToIdSemaphore, &gRulesSemaphore, &gStatusFileSemaphore}) {
    sem_init(semaphore, 0, 1);
  }
}

}  // namespace

void clear_tables() {
  clear_table(gHashIfNameToIndex, [](IfNameToIndex_t* record) { free_text(record->if_name); });
  clear_table(gHashServiceTypeToId, [](ServiceTypeToId_t* record) { free_text(record->service_type); });
  clear_table(gHashServiceNameToServiceTypesArray, [](ServiceNameToServiceTypesArray_t* record) {
    free_text(record->service_name);
    array_free(record->service_types);
  });
  clear_table(gHashRulesIfFrom, free_source);
}

DaemonTest::DaemonTest() : status_file_(directory_.path_of("status")), pid_file_(directory_.path_of("pid")) {
  program_settings();
  gSettings.status_file = status_file_.c_str();
  gSettings.pid_file = pid_file_.c_str();
  gDBG = 0;
  gDebugStream = stderr;
  fake_semaphore::reset();
  fake_syslog::reset();
  fake_zmk::reset();
  init_semaphores();
}

DaemonTest::~DaemonTest() {
  fake_zmk::reset();
  clear_tables();
  if (gDebugStream != stderr) {
    std::fclose(gDebugStream);
    gDebugStream = stderr;
  }
  gDBG = 0;
  gSettings = program_settings();
}

void DaemonTest::switch_to_debug_mode() {
  gDBG = 1;
  gLogLevel = gLOG_DBG;
  gDebugStream = std::fopen(directory_.path_of("debug").c_str(), "w");
}

std::vector<std::string> DaemonTest::debug_messages() const {
  const std::string text = directory_.read("debug");
  std::vector<std::string> messages;
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t next = text.find(std::string("\n") + kMessageStart, start);
    const std::size_t end = next != std::string::npos ? next : text.size() - 1;
    const std::size_t line_number_end = text.find(':', start + std::string(kMessageStart).size());
    messages.push_back(text.substr(line_number_end + 1, end - line_number_end - 1));
    start = end + 1;
  }
  return messages;
}

void tell_status_at_exit() {
  std::atexit([] { std::fprintf(stderr, "status file: %s\n", first_line(gSettings.status_file).c_str()); });
}
