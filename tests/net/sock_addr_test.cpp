#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>

#include <cstring>
#include <string>

#include "net/sock.h"
#include "tests/support/log_capture.h"
#include "tests/support/loopback.h"
#include "tests/support/syscall_seams.h"

namespace {

SockAddr FromNetwork(const char *ip, int port) {
  SockAddr addr = {};
  addr.Addr.sin_family = AF_INET;
  addr.Addr.sin_addr.s_addr = inet_addr(ip);
  addr.Addr.sin_port = htons(static_cast<std::uint16_t>(port));
  return addr;
}

}  // namespace

TEST(SockAddr, ConvertIP_Text_IsReadByTheRulesOfInetAddr) {
  static constexpr struct {
    const char *text;
    std::uint32_t address;  // host order
  } kRows[] = {
      {"127.0.0.1", 0x7f000001},  {"1.2.3.4", 0x01020304},    {"255.255.255.255", 0xffffffff},
      {"127.1", 0x7f000001},      {"10.1.258", 0x0a010102},   {"2130706433", 0x7f000001},
      {"0x7f000001", 0x7f000001}, {"0177.0.0.1", 0x7f000001}, {"no address", 0xffffffff},
      {"1.2.3.4.5", 0xffffffff},  {"256.0.0.1", 0xffffffff},  {"127.0.0.1x", 0xffffffff},
      {"localhost", 0xffffffff},  {" 127.0.0.1", 0xffffffff},
  };
  for (const auto &row : kRows) {
    SockAddr addr = AddrOf(row.text, 80);
    int rc = 0;
    const Output output = Capture(101, [&] { rc = Sock_ConvertIP(&addr); });
    EXPECT_EQ(rc, 1) << row.text;
    EXPECT_EQ(ntohl(addr.Addr.sin_addr.s_addr), row.address) << row.text;
    EXPECT_EQ(output.log + output.out, "") << row.text;
  }
}

TEST(SockAddr, ConvertIP_Text_SetsFamilyAndPortAndKeepsThePadding) {
  SockAddr addr = AddrOf("127.0.0.1", 0x1234);
  std::memset(&addr.Addr, 0x5a, sizeof addr.Addr);
  EXPECT_EQ(Sock_ConvertIP(&addr), 1);
  EXPECT_EQ(addr.Addr.sin_family, AF_INET);
  EXPECT_EQ(addr.Addr.sin_port, htons(0x1234));
  EXPECT_EQ(std::memcmp(addr.Addr.sin_zero, "\x5a\x5a\x5a\x5a\x5a\x5a\x5a\x5a", 8), 0);
  EXPECT_STREQ(addr.IP, "127.0.0.1");
  EXPECT_EQ(addr.Port, 0x1234);
}

TEST(SockAddr, ConvertIP_TextAgain_FollowsTheChangedText) {
  SockAddr addr = AddrOf("127.0.0.1", 80);
  EXPECT_EQ(Sock_ConvertIP(&addr), 1);
  std::strcpy(addr.IP, "127.0.0.2");
  EXPECT_EQ(Sock_ConvertIP(&addr), 1);
  EXPECT_EQ(ntohl(addr.Addr.sin_addr.s_addr), 0x7f000002U);
}

TEST(SockAddr, ConvertIP_PortOf0OrLess_IsRefusedSilentlyBeforeTheTextIsRead) {
  for (const char *text : {"127.0.0.1", "0.0.0.0"}) {
    for (const int port : {0, -1, -32768, 32768, 40000, 65535}) {
      SockAddr addr = AddrOf(text, port);
      const sockaddr_in none = {};
      int rc = 0;
      const Output output = Capture(101, [&] { rc = Sock_ConvertIP(&addr); });
      EXPECT_EQ(rc, -2) << port;
      EXPECT_EQ(output.log + output.out, "") << port;
      EXPECT_EQ(std::memcmp(&addr.Addr, &none, sizeof none), 0) << port;
    }
  }
}

TEST(SockAddr, ConvertIP_PortsAtTheLimits_AreConverted) {
  for (const int port : {1, 32767}) {
    SockAddr addr = Loopback(port);
    EXPECT_EQ(Sock_ConvertIP(&addr), 1) << port;
    EXPECT_EQ(ntohs(addr.Addr.sin_port), port);
  }
}

TEST(SockAddr, ConvertIP_TextOfAddress0_IsRefusedAndLogged) {
  for (const char *text : {"0.0.0.0", "0", "0x0"}) {
    SockAddr addr = AddrOf(text, 80);
    int rc = 0;
    EXPECT_EQ(
        MessagesAt(103, [&] { rc = Sock_ConvertIP(&addr); }),
        "[SOCK: ConvertIP] Error converting to network address.  Network Address result is 0.\n");
    EXPECT_EQ(rc, -2);
    EXPECT_EQ(addr.Addr.sin_port, 0);
  }
}

TEST(SockAddr, ConvertIP_EmptyText_IsFilledFromTheAddress) {
  static constexpr struct {
    const char *ip;
    int port, read;
  } kRows[] = {
      {"127.0.0.1", 80, 80},      {"255.255.255.254", 32767, 32767},
      {"1.2.3.4", 32768, -32768}, {"1.2.3.4", 40000, -25536},
      {"1.2.3.4", 65535, -1},     {"1.2.3.4", 0, 0},
  };
  for (const auto &row : kRows) {
    SockAddr addr = FromNetwork(row.ip, row.port);
    int rc = 0;
    const Output output = Capture(101, [&] { rc = Sock_ConvertIP(&addr); });
    EXPECT_EQ(rc, 1) << row.ip;
    EXPECT_STREQ(addr.IP, row.ip);
    EXPECT_EQ(addr.Port, row.read) << row.ip;
    EXPECT_EQ(output.log + output.out, "") << row.ip;
  }
}

TEST(SockAddr, ConvertIP_EmptyTextAndAddress0_IsRefusedAndLogged) {
  SockAddr addr = {};
  addr.Port = 80;
  int rc = 0;
  EXPECT_EQ(MessagesAt(103, [&] { rc = Sock_ConvertIP(&addr); }),
            "[SOCK: ConvertIP] Error converting from network address.  Network Address is 0.\n");
  EXPECT_EQ(rc, -2);
  EXPECT_EQ(addr.Port, 80);
}

TEST(SockAddr, ConvertIP_EmptyResultText_IsRefusedAndLogged) {
  Seams seams;
  seams.Fail(Call::kInetNtoa, 0, 1, 2);
  SockAddr addr = FromNetwork("127.0.0.1", 80);
  int rc = 0;
  EXPECT_EQ(
      MessagesAt(103, [&] { rc = Sock_ConvertIP(&addr); }),
      "[SOCK: ConvertIP] Error converting from network address.  IP result string is NULL.\n");
  EXPECT_EQ(rc, -2);
  EXPECT_EQ(addr.Port, 0);
}
