// SPDX-License-Identifier: MIT
#include <sys/select.h>

#include <cerrno>
#include <cstring>
#include <initializer_list>

#include "runtime/connections.h"
#include "runtime/held_signals.h"
#include "runtime/log.h"
#include "runtime/startup.h"
#include "state/state.h"

int stopNow = 0;
int gSelectTimeout = 100000000;

namespace {

// The sockets of the two connections; -1 where a connection is null.
struct Sockets {
  int shared;
  int register_record;
};

int socket_of(DNSServiceRef connection) { return connection != nullptr ? DNSServiceRefSockFD(connection) : -1; }

// A set has room for FD_SETSIZE descriptors and no more.
bool fits_a_set(int socket) { return socket >= 0 && socket < FD_SETSIZE; }

fd_set sockets_to_watch(const Sockets& sockets) {
  fd_set watched;
  FD_ZERO(&watched);
  for (int socket : {sockets.shared, sockets.register_record}) {
    if (fits_a_set(socket)) {
      FD_SET(socket, &watched);
    }
  }
  return watched;
}

bool is_readable(int socket, const fd_set& readable) {
  return fits_a_set(socket) && FD_ISSET(static_cast<unsigned>(socket), &readable);
}

// One connection a pass, the shared one first; the other is still readable in a later one.
DNSServiceErrorType serve_one(const Sockets& sockets, const fd_set& readable) {
  if (gDNSServiceRef_Shared != nullptr && is_readable(sockets.shared, readable)) {
    return DNSServiceProcessResult(gDNSServiceRef_Shared);
  }
  if (gDNSServiceRef_RegisterRecord != nullptr && is_readable(sockets.register_record, readable)) {
    return DNSServiceProcessResult(gDNSServiceRef_RegisterRecord);
  }
  return kDNSServiceErr_NoError;
}

// Waits with the held signals let through. pselect returns without delivering a signal when a socket is readable
// already, so that under load a signal might wait for ever; hence they are delivered before it.
int wait_for(int count, fd_set* watched) {
  deliver_held_signals();
  const timespec timeout = {gSelectTimeout, 0};
  return pselect(count, watched, nullptr, nullptr, &timeout, wait_signal_mask());
}

void on_readable(const Sockets& sockets, const fd_set& readable) {
  log_message(LOG_DEBUG, "HandleEvents(): result > 0...\n");
  const DNSServiceErrorType error = serve_one(sockets, readable);
  if (error != kDNSServiceErr_NoError) {
    log_message(LOG_DEBUG, "DNSServiceProcessResult returned %d\n", error);
    stopNow = 1;
  }
}

void on_timeout() {
  log_message(LOG_DEBUG, "HandleEvents(): result == 0, calling myTimerCallBack()...\n");
  myTimerCallBack();
}

void on_failed_wait(int result, int error) {
  log_message(LOG_DEBUG, "select() returned %d errno %d %s\n", result, error, std::strerror(error));
  if (error != EINTR) {
    stopNow = 1;
  }
}

// One more than the highest descriptor that is watched. One that no set has room for must not count: the kernel would
// read and write as much of the set as the count says, past its end.
int count_for(const Sockets& sockets) {
  int count = 0;
  for (int socket : {sockets.shared, sockets.register_record}) {
    if (fits_a_set(socket) && socket >= count) {
      count = socket + 1;
    }
  }
  return count;
}

void wait_and_serve(const Sockets& sockets) {
  const int count = count_for(sockets);
  fd_set readable = sockets_to_watch(sockets);
  state_waits();
  const int result = wait_for(count, &readable);
  if (state_wakes()) {
    report_link_figures();
  }
  if (result > 0) {
    on_readable(sockets, readable);
  } else if (result == 0) {
    on_timeout();
  } else {
    on_failed_wait(result, errno);
  }
}

}  // namespace

void HandleEvents(int max_loops) {
  log_message(LOG_DEBUG, "HandleEvents(): START: else (NOT _DNS_SD_LIBDISPATCH)...\n");
  const Sockets sockets = {socket_of(gDNSServiceRef_Shared), socket_of(gDNSServiceRef_RegisterRecord)};
  unsigned counter = 0;
  while (stopNow == 0) {
    ++counter;
    if (max_loops != 0 && counter == static_cast<unsigned>(max_loops)) {  // 0 is no bound, also when the counter wraps
      return;
    }
    log_message(LOG_DEBUG, "HandleEvents(): LOOP: while (!stopNow): loop #%d  (max_loops = %d)...\n",
                static_cast<int>(counter), max_loops);
    wait_and_serve(sockets);
  }
}

void myTimerCallBack() { log_message(LOG_DEBUG, "myTimerCallBack(): START ...\n"); }
