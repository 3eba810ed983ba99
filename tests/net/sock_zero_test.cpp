// A process that was started without standard input gets 0 as its first socket: a descriptor like
// any other.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "net/sock.h"
#include "tests/support/loopback.h"

namespace {

// For as long as it lives, the next descriptor that is opened is 0; what stood there comes back.
class FreeZero {
 public:
  FreeZero() : saved_(dup(0)) { close(0); }
  ~FreeZero() {
    close(0);
    if (saved_ < 0) return;
    dup2(saved_, 0);
    close(saved_);
  }
  FreeZero(const FreeZero &) = delete;
  FreeZero &operator=(const FreeZero &) = delete;

 private:
  int saved_;
};

// The socket is descriptor 0 too.
class AtZero : public FreeZero {
 public:
  explicit AtZero(int sock) { EXPECT_EQ(dup2(sock, 0), 0); }
};

}  // namespace

TEST(SockZero, Connect_GivesDescriptor0) {
  SockAddr addr = Loopback(FreePort());
  const Fd listener(ListenOn(addr.Port));
  const FreeZero zero;
  int sock = -1;
  EXPECT_EQ(Sock_Connect(&addr, 0, &sock), kSockOk);
  EXPECT_EQ(sock, 0);
}

TEST(SockZero, ConnectAndSend_SendsOnDescriptor0) {
  SockAddr addr = Loopback(FreePort());
  const Fd listener(ListenOn(addr.Port));
  const FreeZero zero;
  int sock = -1;
  EXPECT_EQ(Sock_ConnectAndSend(&addr, &sock, "line\n", 5, 0), kSockOk);
  EXPECT_EQ(sock, 0);
}

TEST(SockZero, Listen_GivesDescriptor0_WhichAccepts) {
  SockAddr addr = Loopback(FreePort());
  const FreeZero zero;
  int listener = -1;
  EXPECT_EQ(Sock_Listen(&addr, 0, &listener), kSockOk);
  EXPECT_EQ(listener, 0);
  const Fd client(ConnectFrom(0, addr.Port));
  SockAddr peer = {};
  Fd sock;
  EXPECT_EQ(Sock_Accept(listener, &peer, sock.Place()), kSockOk);
}

TEST(SockZero, Accept_GivesDescriptor0) {
  const int port = FreePort();
  const Fd listener(ListenOn(port));
  const Fd client(ConnectFrom(0, port));
  const FreeZero zero;
  SockAddr peer = {};
  int sock = -1;
  EXPECT_EQ(Sock_Accept(listener, &peer, &sock), kSockOk);
  EXPECT_EQ(sock, 0);
}

TEST(SockZero, OpenUDP_GivesDescriptor0) {
  SockAddr addr = Loopback(FreePort());
  const FreeZero zero;
  int sock = -1;
  EXPECT_EQ(Sock_OpenUDP(&addr, 0, &sock), kSockOk);
  EXPECT_EQ(sock, 0);
}

TEST(SockZero, SendTCP_Sends) {
  const TcpPair pair;
  const AtZero zero(pair.near);
  EXPECT_EQ(Sock_SendTCP(0, "line\n", 5, 0), kSockOk);
  EXPECT_EQ(ReadBytes(pair.far, 5), "line\n");
}

TEST(SockZero, RecvTCP_Receives) {
  const TcpPair pair;
  const AtZero zero(pair.near);
  SendAll(pair.far, "line\n");
  char buf[8];
  int len = 5;
  EXPECT_EQ(Sock_RecvTCP(0, buf, &len, 0), kSockOk);
  EXPECT_EQ(std::string(buf, 5), "line\n");
}

TEST(SockZero, RecvDelim_Receives) {
  const TcpPair pair;
  const AtZero zero(pair.near);
  SendAll(pair.far, "line\n");
  char buf[8];
  int len = 8;
  EXPECT_EQ(Sock_RecvDelim(0, buf, &len, "\n"), kSockOk);
  EXPECT_EQ(len, 5);
}

TEST(SockZero, SendUDP_And_RecvUDP_PassADatagram) {
  const Fd receiver(BindUDP(FreePort()));
  const int port = PortOf(receiver);
  const AtZero zero(receiver);
  SockAddr self = Loopback(port), from = {};
  char buf[8];
  int len = 8;
  EXPECT_EQ(Sock_SendUDP(0, "line\n", 5, &self, 0), kSockOk);
  EXPECT_EQ(Sock_RecvUDP(0, buf, &len, &from, 0), kSockOk);
  EXPECT_EQ(std::string(buf, 5), "line\n");
}
