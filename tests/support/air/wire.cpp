// SPDX-License-Identifier: MIT
// air-wire: a wire that loses frames. It carries every frame from either of two interfaces to the other, except those
// that chance takes.
//
//   air-wire --interface NAME --to NAME --loss PERCENT [--seed NUMBER]
//
// The same seed and the same frames lose the same ones. On "count", a line on standard input, it says "carried N lost
// N". Frames keep their checksum offload (PACKET_VNET_HDR), so that both ends may have it as usual.
#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <limits>
#include <random>

#include "loop.h"
#include "sockets.h"

namespace {

constexpr int kQueue = 64 << 20;  // bytes: the wire itself must lose nothing

constexpr std::size_t kVnetHeader = 10;  // of virtio_net_hdr (packet(7), PACKET_VNET_HDR), which is carried along
                                         // unread

struct Wire {
  std::array<int, 2> ends{};
  long loss = 0;  // in 100
  std::mt19937 random;
  long carried = 0, lost = 0;
};

void set_option(int descriptor, int level, int option, int value) {
  if (setsockopt(descriptor, level, option, &value, sizeof value) != 0)
    air::fail("setsockopt");
}

int open_end(const std::string& interface) {
  const int end = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, htons(ETH_P_ALL));
  if (end < 0)
    air::fail("packet socket");
  set_option(end, SOL_SOCKET, SO_RCVBUFFORCE, kQueue);
  set_option(end, SOL_SOCKET, SO_SNDBUFFORCE, kQueue);
  set_option(end, SOL_PACKET, PACKET_VNET_HDR, 1);
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_ALL);
  address.sll_ifindex = static_cast<int>(if_nametoindex(interface.c_str()));
  if (address.sll_ifindex == 0 || bind(end, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    air::fail(interface.c_str());
  packet_mreq all{};
  all.mr_ifindex = address.sll_ifindex;
  all.mr_type = PACKET_MR_PROMISC;
  if (setsockopt(end, SOL_PACKET, PACKET_ADD_MEMBERSHIP, &all, sizeof all) != 0)
    air::fail("PACKET_ADD_MEMBERSHIP");
  return end;
}

void carry(Wire& wire, std::size_t from) {
  static std::array<std::uint8_t, kVnetHeader + 65536> buffer;
  for (;;) {
    sockaddr_ll source{};
    socklen_t source_size = sizeof source;
    const ssize_t size =
        recvfrom(wire.ends[from], buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&source), &source_size);
    if (size < 0)
      return;
    if (source.sll_pkttype == PACKET_OUTGOING)  // what this program has sent itself
      continue;
    if (std::uniform_int_distribution<long>(0, 99)(wire.random) < wire.loss) {
      ++wire.lost;
      continue;
    }
    ++wire.carried;
    if (send(wire.ends[1 - from], buffer.data(), static_cast<std::size_t>(size), 0) < 0 && errno != ENOBUFS &&
        errno != EAGAIN)
      air::fail("send");
  }
}

}  // namespace

int main(int argc, char** argv) {
  const air::Options options(argc, argv, {"interface", "to", "loss", "seed"});
  Wire wire;
  wire.ends = {open_end(options.text("interface")), open_end(options.text("to"))};
  wire.loss = options.number("loss", 0);
  wire.random.seed(static_cast<unsigned>(options.number("seed", 1)));
  air::Loop loop;
  for (const std::size_t end : {0U, 1U})
    loop.watches.push_back({wire.ends[end], [&wire, end] { carry(wire, end); }});
  loop.command = [&](const std::string&) {
    air::say("carried " + std::to_string(wire.carried) + " lost " + std::to_string(wire.lost));
  };
  loop.next_due = [] { return std::numeric_limits<double>::infinity(); };
  loop.due = [] {};
  air::say("ready");
  air::run(loop);
}
