// Which connections of this process are up.
#include "store/peer.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <utility>

namespace {

// Both ends of a connection over the loopback.
class Peer : public testing::Test {
 protected:
  Peer() {
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    EXPECT_EQ(bind(listener, reinterpret_cast<sockaddr *>(&address), size), 0);
    EXPECT_EQ(listen(listener, 1), 0);
    EXPECT_EQ(getsockname(listener, reinterpret_cast<sockaddr *>(&address), &size), 0);
    EXPECT_EQ(connect(own_, reinterpret_cast<const sockaddr *>(&address), size), 0);
    other_ = accept(listener, nullptr, nullptr);
    close(listener);
    port_ = ntohs(address.sin_port);
  }
  ~Peer() override {
    if (own_ >= 0) close(own_);
    if (other_ >= 0) close(other_);
  }

  bool IsUp() const { return Peer_IsUp("127.0.0.1", port_); }
  void End() { close(std::exchange(other_, -1)); }
  ssize_t Send(int fd) const { return send(fd, "x", 1, MSG_NOSIGNAL); }
  ssize_t Read() const {
    char byte = 0;
    return recv(own_, &byte, 1, 0);
  }

  int own_ = socket(AF_INET, SOCK_STREAM, 0);
  int other_ = -1;
  unsigned port_ = 0;
};

}  // namespace

TEST_F(Peer, AConnectionIsUpWithAndWithoutBytes) {
  EXPECT_TRUE(IsUp());
  EXPECT_EQ(Send(other_), 1);
  EXPECT_TRUE(IsUp());
}

TEST_F(Peer, AnEndCountsBehindTheLastByte) {
  EXPECT_EQ(Send(other_), 1);
  End();
  EXPECT_TRUE(IsUp());
  EXPECT_EQ(Read(), 1);
  EXPECT_FALSE(IsUp());
}

TEST_F(Peer, BytesForOneThatHasEndedResetTheConnection) {
  End();
  EXPECT_EQ(Send(own_), 1);
  EXPECT_EQ(Read(), 0);
  EXPECT_FALSE(IsUp());
}

TEST_F(Peer, AConnectionThatThisProcessClosedIsNotUp) {
  close(std::exchange(own_, -1));
  EXPECT_FALSE(IsUp());
}

TEST_F(Peer, AnotherAddressIsNotUp) {
  EXPECT_FALSE(Peer_IsUp("127.0.0.2", port_));
  EXPECT_FALSE(Peer_IsUp("127.0.0.1", port_ + 1));
  EXPECT_FALSE(Peer_IsUp("nowhere", port_));
}
