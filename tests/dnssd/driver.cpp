// SPDX-License-Identifier: MIT
// dns_sd_driver: a client of dns_sd.h that does what its standard input says, one command a line, and prints every
// result and every reply, one a line. The tests run it in network namespaces and talk to it (driver.py).
//
// Fields are separated by tabs; text and bytes are given in hexadecimal, "-" is a null pointer. Each command is
// answered by "done <error> ...", each reply printed as "reply <name> ...".
#include <dns_sd.h>
#include <poll.h>
#include <sys/select.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace {

using Fields = std::vector<std::string>;

std::map<std::string, DNSServiceRef> gRefs;
std::map<std::string, DNSRecordRef> gRecords;
std::map<std::string, std::string> gConnectionOf;                // of each record
std::map<std::string, std::vector<std::string>> gNextReplyDoes;  // commands to run inside the next callback of a name
bool gSelecting = true;                                          // whether the main loop serves the library
bool gAside = false;
int gHandled = 0;

std::string hex(const void* data, std::size_t size) {
  static const char kDigits[] = "0123456789abcdef";
  std::string text;
  for (std::size_t i = 0; i < size; ++i) {
    const unsigned char byte = static_cast<const unsigned char*>(data)[i];
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

std::string hex(const char* text) { return text == nullptr ? "-" : hex(text, std::strlen(text)); }

std::string unhex(const std::string& text) {
  std::string data;
  for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
    data += static_cast<char>(std::stoi(text.substr(i, 2), nullptr, 16));
  }
  return data;
}

// A text argument: owned by the result, null for "-".
struct Text {
  explicit Text(const std::string& field) : is_null(field == "-"), value(is_null ? "" : unhex(field)) {}
  const char* get() const { return is_null ? nullptr : value.c_str(); }
  bool is_null;
  std::string value;
};

std::uint32_t number(const std::string& text) { return static_cast<std::uint32_t>(std::stoul(text, nullptr, 0)); }

void run(const std::string& line);

void print(const std::string& line) {
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

// The context of every operation: its name, which lives for ever.
const char* context_of(const std::string& name) {
  static std::deque<std::string> names;
  return names.emplace_back(name).c_str();
}

void replied(void* context, const std::string& rest) {
  const std::string name = static_cast<const char*>(context);
  print("reply\t" + name + "\t" + rest);
  const auto planned = gNextReplyDoes.find(name);
  if (planned == gNextReplyDoes.end())
    return;
  const std::vector<std::string> commands = planned->second;
  gNextReplyDoes.erase(planned);
  gAside = true;
  for (const std::string& command : commands)
    run(command);
  gAside = false;
}

std::string head(const char* kind, DNSServiceFlags flags, std::uint32_t interface_index, DNSServiceErrorType error) {
  return std::string(kind) + "\t" + std::to_string(flags) + "\t" + std::to_string(interface_index) + "\t" +
         std::to_string(error);
}

void on_browse(DNSServiceRef, DNSServiceFlags flags, std::uint32_t index, DNSServiceErrorType error, const char* name,
               const char* type, const char* domain, void* context) {
  replied(context, head("browse", flags, index, error) + "\t" + hex(name) + "\t" + hex(type) + "\t" + hex(domain));
}

void on_resolve(DNSServiceRef, DNSServiceFlags flags, std::uint32_t index, DNSServiceErrorType error,
                const char* fullname, const char* host, std::uint16_t port, std::uint16_t txt_length,
                const unsigned char* txt, void* context) {
  const unsigned char* bytes = reinterpret_cast<const unsigned char*>(&port);
  replied(context, head("resolve", flags, index, error) + "\t" + hex(fullname) + "\t" + hex(host) + "\t" +
                       std::to_string(bytes[0] * 256 + bytes[1]) + "\t" + hex(txt, txt_length));
}

void on_query(DNSServiceRef, DNSServiceFlags flags, std::uint32_t index, DNSServiceErrorType error,
              const char* fullname, std::uint16_t rrtype, std::uint16_t rrclass, std::uint16_t rdlen, const void* rdata,
              std::uint32_t ttl, void* context) {
  replied(context, head("query", flags, index, error) + "\t" + hex(fullname) + "\t" + std::to_string(rrtype) + "\t" +
                       std::to_string(rrclass) + "\t" + hex(rdata, rdlen) + "\t" + std::to_string(ttl));
}

void on_register(DNSServiceRef, DNSServiceFlags flags, DNSServiceErrorType error, const char* name, const char* type,
                 const char* domain, void* context) {
  replied(context, head("register", flags, 0, error) + "\t" + hex(name) + "\t" + hex(type) + "\t" + hex(domain));
}

void on_record(DNSServiceRef, DNSRecordRef, DNSServiceFlags flags, DNSServiceErrorType error, void* context) {
  replied(context, head("record", flags, 0, error));
}

// The reference to start an operation with: a copy of the connection's for a shared one, uninitialised otherwise.
DNSServiceRef start_ref(const std::string& connection) { return connection == "-" ? nullptr : gRefs[connection]; }

// A command's answer; "did" for one that ran inside a callback or in a forked child.
void done(DNSServiceErrorType error) { print((gAside ? "did\t" : "done\t") + std::to_string(error)); }

void started(const std::string& name, DNSServiceRef ref, DNSServiceErrorType error) {
  if (error == kDNSServiceErr_NoError)
    gRefs[name] = ref;
  done(error);
}

void do_connect(const Fields& f) {
  DNSServiceRef ref = nullptr;
  const DNSServiceErrorType error = DNSServiceCreateConnection(&ref);
  started(f[1], ref, error);
}

void do_browse(const Fields& f) {  // name connection flags interface type domain
  DNSServiceRef ref = start_ref(f[2]);
  const DNSServiceErrorType error = DNSServiceBrowse(&ref, number(f[3]), number(f[4]), Text(f[5]).get(),
                                                     Text(f[6]).get(), on_browse, const_cast<char*>(context_of(f[1])));
  started(f[1], ref, error);
}

void do_resolve(const Fields& f) {  // name connection flags interface instance type domain
  DNSServiceRef ref = start_ref(f[2]);
  const DNSServiceErrorType error =
      DNSServiceResolve(&ref, number(f[3]), number(f[4]), Text(f[5]).get(), Text(f[6]).get(), Text(f[7]).get(),
                        on_resolve, const_cast<char*>(context_of(f[1])));
  started(f[1], ref, error);
}

void do_query(const Fields& f) {  // name connection flags interface fullname rrtype
  DNSServiceRef ref = start_ref(f[2]);
  const DNSServiceErrorType error = DNSServiceQueryRecord(&ref, number(f[3]), number(f[4]), Text(f[5]).get(),
                                                          static_cast<std::uint16_t>(number(f[6])), kDNSServiceClass_IN,
                                                          on_query, const_cast<char*>(context_of(f[1])));
  started(f[1], ref, error);
}

void do_register(const Fields& f) {  // name connection flags interface instance type domain host port txt
  DNSServiceRef ref = start_ref(f[2]);
  const std::uint32_t port = number(f[9]);
  const unsigned char bytes[2] = {static_cast<unsigned char>(port >> 8), static_cast<unsigned char>(port)};
  std::uint16_t opaque = 0;
  std::memcpy(&opaque, bytes, sizeof opaque);
  const Text txt(f[10]);
  const DNSServiceErrorType error = DNSServiceRegister(
      &ref, number(f[3]), number(f[4]), Text(f[5]).get(), Text(f[6]).get(), Text(f[7]).get(), Text(f[8]).get(), opaque,
      static_cast<std::uint16_t>(txt.value.size()), txt.get(), on_register, const_cast<char*>(context_of(f[1])));
  started(f[1], ref, error);
}

void do_record(const Fields& f) {  // name connection flags interface fullname rrtype rdata ttl
  DNSRecordRef record = nullptr;
  const Text rdata(f[7]);
  const DNSServiceErrorType error = DNSServiceRegisterRecord(
      start_ref(f[2]), &record, number(f[3]), number(f[4]), Text(f[5]).get(), static_cast<std::uint16_t>(number(f[6])),
      kDNSServiceClass_IN, static_cast<std::uint16_t>(rdata.value.size()), rdata.get(), number(f[8]), on_record,
      const_cast<char*>(context_of(f[1])));
  if (error == kDNSServiceErr_NoError) {
    gRecords[f[1]] = record;
    gConnectionOf[f[1]] = f[2];
  }
  done(error);
}

void do_update(const Fields& f) {  // name rdata ttl; the name of a record, or of a registration for its TXT record
  const Text rdata(f[2]);
  const bool is_record = gRecords.count(f[1]) != 0;
  done(DNSServiceUpdateRecord(is_record ? gRefs[gConnectionOf[f[1]]] : gRefs[f[1]],
                              is_record ? gRecords[f[1]] : nullptr, 0, static_cast<std::uint16_t>(rdata.value.size()),
                              rdata.get(), number(f[3])));
}

void do_remove(const Fields& f) { done(DNSServiceRemoveRecord(gRefs[gConnectionOf[f[1]]], gRecords[f[1]], 0)); }

// connection record: removes a record by way of a connection that need not be its own.
void do_remove_from(const Fields& f) { done(DNSServiceRemoveRecord(gRefs[f[1]], gRecords[f[2]], 0)); }

void do_release(const Fields& f) {
  DNSServiceRefDeallocate(gRefs[f[1]]);
  done(0);
}

void do_socket(const Fields& f) { done(DNSServiceRefSockFD(gRefs[f[1]])); }
void do_process(const Fields& f) { done(DNSServiceProcessResult(gRefs[f[1]])); }

void do_exit(const Fields& f) { std::exit(static_cast<int>(number(f[1]))); }
void do_abandon(const Fields& f) { _exit(static_cast<int>(number(f[1]))); }

// Stops or resumes serving the library, so that replies pile up.
void do_serve(const Fields& f) {
  gSelecting = f[1] == "yes";
  done(0);
}

// when <name> <command, its tabs written as '|'>: runs the command inside the next callback of that name.
void do_when(const Fields& f) {
  std::string command = f[2];
  for (char& c : command)
    c = c == '|' ? '\t' : c;
  gNextReplyDoes[f[1]].push_back(command);
  done(0);
}

void count_signal(int) { ++gHandled; }

void release_all_and_exit(int) {
  for (const auto& [name, ref] : gRefs)
    DNSServiceRefDeallocate(ref);
  std::exit(10);
}

void do_handle(const Fields& f) {  // number count|exit
  std::signal(static_cast<int>(number(f[1])), f[2] == "exit" ? release_all_and_exit : count_signal);
  done(0);
}

// Whether a signal is blocked for this thread, how often a handler has run.
void do_blocked(const Fields& f) {
  sigset_t mask;
  sigprocmask(SIG_BLOCK, nullptr, &mask);
  done(sigismember(&mask, static_cast<int>(number(f[1]))));
}

// In a forked child: the mask after the first call into the library.
void do_after_fork(const Fields& f) {
  DNSServiceRefSockFD(nullptr);
  do_blocked(f);
}

void do_handled(const Fields&) { done(gHandled); }

void do_raise(const Fields& f) {
  raise(static_cast<int>(number(f[1])));
  done(0);
}

// Runs one command in a forked child and waits for it; the child ends with exit().
void do_fork(const Fields& f) {
  std::fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    gAside = true;  // its answers are not the parent's
    std::string command = f[1];
    for (char& c : command)
      c = c == '|' ? '\t' : c;
    run(command);
    std::exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  done(status);
}

// Closes a descriptor behind the library's back.
void do_close(const Fields& f) { done(close(static_cast<int>(number(f[1])))); }

const std::map<std::string, std::function<void(const Fields&)>> kCommands = {
    {"removefrom", do_remove_from},
    {"after fork", do_after_fork},
    {"connect", do_connect},
    {"browse", do_browse},
    {"resolve", do_resolve},
    {"query", do_query},
    {"register", do_register},
    {"record", do_record},
    {"update", do_update},
    {"remove", do_remove},
    {"release", do_release},
    {"socket", do_socket},
    {"process", do_process},
    {"exit", do_exit},
    {"abandon", do_abandon},
    {"serve", do_serve},
    {"when", do_when},
    {"handle", do_handle},
    {"blocked", do_blocked},
    {"handled", do_handled},
    {"raise", do_raise},
    {"fork", do_fork},
    {"close", do_close},
};

void run(const std::string& line) {
  Fields fields;
  for (std::size_t at = 0; at <= line.size();) {
    const std::size_t tab = std::min(line.find('\t', at), line.size());
    fields.push_back(line.substr(at, tab - at));
    at = tab + 1;
  }
  const auto command = kCommands.find(fields[0]);
  if (command == kCommands.end()) {
    print("done\tunknown command " + fields[0]);
    return;
  }
  command->second(fields);
}

// The lowest live reference to serve the library by, as a caller would who always serves one connection first.
DNSServiceRef any_ref() {
  for (const auto& [name, ref] : gRefs) {
    if (DNSServiceRefSockFD(ref) >= 0)
      return ref;
  }
  return nullptr;
}

// Reads what has come on standard input and runs the complete lines; false at its end.
bool read_commands(std::string& pending) {
  char buffer[65536];
  const ssize_t size = read(0, buffer, sizeof buffer);
  if (size == 0)
    return false;
  if (size > 0)
    pending.append(buffer, static_cast<std::size_t>(size));
  for (std::size_t end; (end = pending.find('\n')) != pending.npos;) {
    const std::string line = pending.substr(0, end);
    pending.erase(0, end + 1);
    run(line);
  }
  return true;
}

}  // namespace

int main() {
  std::string pending;
  for (;;) {
    const DNSServiceRef ref = gSelecting ? any_ref() : nullptr;
    const int fd = ref == nullptr ? -1 : DNSServiceRefSockFD(ref);
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(0, &readable);
    if (fd >= 0)
      FD_SET(fd, &readable);
    if (select(std::max(fd, 0) + 1, &readable, nullptr, nullptr, nullptr) <= 0)
      continue;
    if (fd >= 0 && FD_ISSET(fd, &readable)) {
      const DNSServiceErrorType error = DNSServiceProcessResult(ref);
      if (error != kDNSServiceErr_NoError) {
        print("lost\t" + std::to_string(error));
        gSelecting = false;
      }
    }
    if (FD_ISSET(0, &readable) && !read_commands(pending))
      return 0;
  }
}
