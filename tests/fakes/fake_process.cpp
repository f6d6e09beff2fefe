// SPDX-License-Identifier: MIT
#include "fakes/fake_process.h"

#include <fcntl.h>
#include <semaphore.h>
#include <sys/select.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <deque>
#include <map>
#include <optional>

extern "C" {
int __real_chdir(const char* path);
int __real_close(int file);
int __real_dup2(int file, int as);
pid_t __real_fork();
int __real_fsync(int file);
pid_t __real_getppid();
int __real_kill(pid_t process, int signal_number);
int __real_open(const char* path, int flags, ...);
int __real_pselect(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, const timespec* timeout,
                   const sigset_t* mask);
int __real_sem_init(sem_t* semaphore, int shared, unsigned value);
int __real_sem_trywait(sem_t* semaphore);
pid_t __real_setsid();
int __real_sigaction(int signal_number, const struct sigaction* action, struct sigaction* previous);
unsigned __real_sleep(unsigned seconds);
int __real_usleep(useconds_t microseconds);
ssize_t __real_write(int file, const void* bytes, size_t size);

int __wrap_chdir(const char* path);
int __wrap_close(int file);
int __wrap_dup2(int file, int as);
pid_t __wrap_fork();
int __wrap_fsync(int file);
pid_t __wrap_getppid();
int __wrap_kill(pid_t process, int signal_number);
int __wrap_open(const char* path, int flags, ...);
int __wrap_pselect(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, const timespec* timeout,
                   const sigset_t* mask);
int __wrap_sem_init(sem_t* semaphore, int shared, unsigned value);
int __wrap_sem_trywait(sem_t* semaphore);
pid_t __wrap_setsid();
int __wrap_sigaction(int signal_number, const struct sigaction* action, struct sigaction* previous);
unsigned __wrap_sleep(unsigned seconds);
int __wrap_usleep(useconds_t microseconds);
ssize_t __wrap_write(int file, const void* bytes, size_t size);
}

namespace {

struct Answer {
  int result;
  int error;
};

struct Orders {
  std::deque<std::optional<Answer>> next;  // nullopt: as if told nothing
  std::optional<Answer> always;
  std::function<void()> action;
};

struct State {
  bool on = false;
  std::map<std::string, Orders, std::less<>> orders;
  std::vector<std::string> calls;
};

State& state() {
  static State& the_state = *new State;  // never destroyed: the process calls it to its very end
  return the_state;
}

Orders& orders_for(std::string_view function) { return state().orders[std::string(function)]; }

std::optional<Answer> answer_of(Orders& orders) {
  std::optional<Answer> answer;
  if (!orders.next.empty()) {
    answer = orders.next.front();
    orders.next.pop_front();
  }
  return answer.has_value() ? answer : orders.always;
}

// Records the call and returns the answer that it was told to give; nullopt: the real one is to be called.
std::optional<int> told(const char* function, const char* format, ...) __attribute__((format(printf, 2, 3)));

std::optional<int> told(const char* function, const char* format, ...) {
  if (!state().on) {
    return std::nullopt;
  }
  char arguments[512];
  va_list args;
  va_start(args, format);
  std::vsnprintf(arguments, sizeof(arguments), format, args);
  va_end(args);
  state().calls.push_back(std::string(function) + "(" + arguments + ")");
  Orders& orders = orders_for(function);
  if (orders.action) {
    orders.action();
  }
  const std::optional<Answer> answer = answer_of(orders);
  if (!answer.has_value()) {
    return std::nullopt;
  }
  if (answer->error != 0) {
    errno = answer->error;
  }
  return answer->result;
}

bool calls_are_real() { return !state().on; }

// "3 4"
std::string shown(const fd_set* set) {
  std::string text;
  for (int file = 0; set != nullptr && file < FD_SETSIZE; ++file) {
    if (FD_ISSET(file, set)) {
      text += (text.empty() ? "" : " ") + std::to_string(file);
    }
  }
  return text;
}

// "5", or "5+1ns"
std::string shown(const timespec* timeout) {
  if (timeout == nullptr) {
    return "for ever";
  }
  return std::to_string(timeout->tv_sec) + (timeout->tv_nsec != 0 ? "+" + std::to_string(timeout->tv_nsec) + "ns" : "");
}

}  // namespace

extern "C" {

int __wrap_chdir(const char* path) {
  const auto answer = told("chdir", "\"%s\"", path);
  return answer ? *answer : __real_chdir(path);
}

int __wrap_close(int file) {
  const auto answer = told("close", "%d", file);
  return answer ? *answer : __real_close(file);
}

int __wrap_dup2(int file, int as) {
  const auto answer = told("dup2", "%d, %d", file, as);
  return answer ? *answer : __real_dup2(file, as);
}

pid_t __wrap_fork() {
  const auto answer = told("fork", "%s", "");
  return answer ? *answer : __real_fork();
}

int __wrap_fsync(int file) {
  const auto answer = told("fsync", "%d", file);
  return answer ? *answer : __real_fsync(file);
}

pid_t __wrap_getppid() {
  const auto answer = told("getppid", "%s", "");
  return answer ? *answer : __real_getppid();
}

int __wrap_kill(pid_t process, int signal_number) {
  const auto answer = told("kill", "%d, %d", process, signal_number);
  if (answer) {
    return *answer;
  }
  return calls_are_real() ? __real_kill(process, signal_number) : 0;
}

int __wrap_open(const char* path, int flags, ...) {
  mode_t mode = 0;
  if ((flags & O_CREAT) != 0) {
    va_list args;
    va_start(args, flags);
    mode = static_cast<mode_t>(va_arg(args, int));
    va_end(args);
  }
  const auto answer = told("open", "\"%s\", %#o, %04o", path, static_cast<unsigned>(flags), mode);
  return answer ? *answer : __real_open(path, flags, mode);
}

int __wrap_pselect(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, const timespec* timeout,
                   const sigset_t* mask) {
  const auto answer = told("pselect", "%d, {%s}, %s", count, shown(readable).c_str(), shown(timeout).c_str());
  return answer ? *answer : __real_pselect(count, readable, writable, exceptional, timeout, mask);
}

int __wrap_sem_init(sem_t* semaphore, int shared, unsigned value) {
  const auto answer = told("sem_init", "%p, %d, %u", static_cast<void*>(semaphore), shared, value);
  return answer ? *answer : __real_sem_init(semaphore, shared, value);
}

int __wrap_sem_trywait(sem_t* semaphore) {
  const auto answer = told("sem_trywait", "%p", static_cast<void*>(semaphore));
  return answer ? *answer : __real_sem_trywait(semaphore);
}

pid_t __wrap_setsid() {
  const auto answer = told("setsid", "%s", "");
  return answer ? *answer : __real_setsid();
}

int __wrap_sigaction(int signal_number, const struct sigaction* action, struct sigaction* previous) {
  const auto answer = told("sigaction", "%d", signal_number);
  return answer ? *answer : __real_sigaction(signal_number, action, previous);
}

unsigned __wrap_sleep(unsigned seconds) {
  const auto answer = told("sleep", "%u", seconds);
  if (answer) {
    return static_cast<unsigned>(*answer);
  }
  return calls_are_real() ? __real_sleep(seconds) : 0;
}

int __wrap_usleep(useconds_t microseconds) {
  const auto answer = told("usleep", "%u", microseconds);
  if (answer) {
    return *answer;
  }
  return calls_are_real() ? __real_usleep(microseconds) : 0;
}

ssize_t __wrap_write(int file, const void* bytes, size_t size) {
  const auto answer = told("write", "%d, \"%.*s\"", file, static_cast<int>(size), static_cast<const char*>(bytes));
  return answer ? *answer : __real_write(file, bytes, size);
}

}  // extern "C"

namespace fake_process {

void start() {
  state() = State{};
  state().on = true;
}

void stop() {
  state().on = false;
  state().orders.clear();
}

void always(std::string_view function, int result, int error) { orders_for(function).always = Answer{result, error}; }

void next(std::string_view function, int result, int error) {
  orders_for(function).next.push_back(Answer{result, error});
}

void fail_call(std::string_view function, unsigned nth, int error) {
  std::deque<std::optional<Answer>>& next = orders_for(function).next;
  next.assign(nth - 1, std::nullopt);
  next.push_back(Answer{-1, error});
}

void on_call(std::string_view function, std::function<void()> action) {
  orders_for(function).action = std::move(action);
}

const std::vector<std::string>& calls() { return state().calls; }

std::vector<std::string> calls_of(std::string_view function) {
  std::vector<std::string> found;
  for (const std::string& call : state().calls) {
    if (call.starts_with(std::string(function) + "(")) {
      found.push_back(call);
    }
  }
  return found;
}

}  // namespace fake_process
