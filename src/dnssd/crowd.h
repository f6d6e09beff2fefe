// What is done differently on an interface on which very many records are published. This machine hears its own multicast
// (other programs on it need to), and each record and question heard costs Avahi a walk over all that it has or has just
// sent: at two thousand services, half of all the work. So from some hundred services on, and only then,
//   - the machine's own probes are not listened to (another responder on this machine still hears ours, and that both want
//     a name is found out when it announces it), and
//   - our announcements are not looped back while this process looks nothing up on the interface (other programs on this
//     machine find the services by asking; goodbyes are always looped back).
#pragma once

namespace dnssd {

struct Server;

// To be called when the number of publications has changed.
void crowd_review(Server& server);

// While it lives, nothing that is sent on a crowded server's sockets is looped back.
class QuietScope {
 public:
  explicit QuietScope(const Server& server);
  ~QuietScope();
  QuietScope(const QuietScope&) = delete;
  QuietScope& operator=(const QuietScope&) = delete;

 private:
  const Server* quiet_;  // null: looped back as usual
};

}  // namespace dnssd
