// SPDX-License-Identifier: MIT
// The kernel's tables of sockets and neighbours.
#include "mdnsproxyctl/ports.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "mdnsproxyctl/neighbours.h"

using testing::IsEmpty;
using testing::SizeIs;

namespace {

const std::string kHead =
    "   sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode ref pointer "
    "drops\n";

}  // namespace

TEST(UdpSockets, AreReadFromTheKernelsTable) {
  const std::vector<UdpSocket> sockets =
      udp_sockets(kHead +
                  " 3085: 00000000:14E9 00000000:0000 07 00000000:00000000 00:00000000 00000000   104        0 17310 2 "
                  "0000000000000000 7\n" +
                  "  12: 00000000000000000000000000000000:14E9 00000000000000000000000000000000:0000 07 "
                  "00000000:00000000 00:00000000 "
                  "00000000" +
                  "     0        0 99 2 0000000000000000 0\n");
  ASSERT_THAT(sockets, SizeIs(2));
  EXPECT_EQ(sockets[0].port, 5353);
  EXPECT_EQ(sockets[0].user, 104U);
  EXPECT_EQ(sockets[0].inode, 17310U);
  EXPECT_EQ(sockets[0].dropped, 7U);
  EXPECT_EQ(sockets[1].inode, 99U);
}

TEST(UdpSockets, LeavesOutWhatIsNotWellFormed) {
  EXPECT_THAT(udp_sockets(""), IsEmpty());
  EXPECT_THAT(udp_sockets(kHead), IsEmpty());
  EXPECT_THAT(udp_sockets("1: nothing\n1: 2 3 4 5 6 7 8 9 10 11 12 13 14\n1: 0:XYZ 3 4 5 6 7 8 9 10 11 12 13\n"),
              IsEmpty());
}

TEST(PortHolders, KnowThisProcessAndItsRights) {
  const int opened = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  ASSERT_EQ(bind(opened, reinterpret_cast<const sockaddr*>(&address), size), 0);
  ASSERT_EQ(getsockname(opened, reinterpret_cast<sockaddr*>(&address), &size), 0);
  const std::vector<PortHolder> holders = holders_of_port(ntohs(address.sin_port));
  close(opened);
  ASSERT_THAT(holders, SizeIs(1));
  EXPECT_EQ(holders[0].process, static_cast<std::uint32_t>(getpid()));
  std::string own_name;  // valgrind gives it another
  ASSERT_TRUE(std::getline(std::ifstream("/proc/self/comm"), own_name));
  EXPECT_EQ(holders[0].name, own_name);
  EXPECT_EQ(holders[0].sockets, 1U);
  const ProcessRights rights = rights_of(static_cast<std::uint32_t>(getpid()));
  EXPECT_TRUE(rights.known);
  EXPECT_EQ(rights.user, getuid());
  EXPECT_FALSE(rights_of(0).known);
}

TEST(Neighbours, NobodyIsKnownThatIsNotThere) { EXPECT_EQ(hardware_address("192.0.2.77", 1), ""); }
