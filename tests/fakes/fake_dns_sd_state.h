// SPDX-License-Identifier: MIT
// What the two sources of fake_dns_sd share.
#pragma once

#include <deque>
#include <map>
#include <memory>
#include <unordered_map>
#include <utility>

#include "fakes/fake_dns_sd.h"

namespace fake_dns_sd {

enum class Kind { Connection, Browse, Resolve, Query, Service };

using AnyCallback = void (*)();

struct Operation {
  Kind kind;
  std::string id;
  bool live = true;
  DNSServiceRef connection = nullptr;  // null for a connection
  AnyCallback callback = nullptr;
  void* context = nullptr;
  int socket = -1;  // this and the next: of a connection alone
  std::deque<std::function<DNSServiceErrorType()>> work;

  Operation(Kind its_kind, std::string its_id) : kind(its_kind), id(std::move(its_id)) {}
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;
  ~Operation();
};

struct Record {
  std::string id;
  bool live;
  DNSServiceRef connection;
  DNSServiceRegisterRecordReply callback;
  void* context;
};

struct State {
  std::vector<Call> calls;
  std::vector<std::string> misuses;
  std::unordered_map<DNSServiceRef, std::unique_ptr<Operation>> operations;
  std::unordered_map<DNSRecordRef, std::unique_ptr<Record>> records;
  // last number given out, by kind of reference
  std::map<std::string, unsigned> numbers;
  std::map<std::string, unsigned> counts;  // calls so far, by function
  // what a function's call of that number returns
  std::map<std::pair<std::string, unsigned>, DNSServiceErrorType> orders;
};

State& state();

// Writes a misuse down, and to standard error.
void misuse(const std::string& text);

// What the reference stands for, released or not; null when it was never given out.
Operation* find(DNSServiceRef ref);
Record* find(DNSRecordRef ref);

// "query2"; "null" or "unknown" when there is none.
std::string id_of(DNSServiceRef ref);
std::string id_of(DNSRecordRef ref);

}  // namespace fake_dns_sd
