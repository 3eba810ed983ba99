#include "web/health.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include "tests/support/syscall_seams.h"
#include "tests/system/harness.h"
#include "tests/web/site.h"

namespace {

// The admin port of a daemon that the test plays.
class Admin {
 public:
  Admin() : port_(ReservePort()), socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_in own = {
        AF_INET, htons(static_cast<std::uint16_t>(port_)), {htonl(INADDR_LOOPBACK)}, {}};
    EXPECT_EQ(bind(socket_.Fd(), reinterpret_cast<const sockaddr *>(&own), sizeof own), 0);
  }
  ~Admin() { ReleasePort(port_); }

  int Port() const { return port_; }
  WebConf Conf() const {
    WebConf conf = Conf_Default();
    conf.admin_port = port_;
    return conf;
  }

  // What has come, and the port that it came from.
  std::string Asked(int *port = nullptr) {
    EXPECT_TRUE(socket_.Readable(kPatienceMs));
    char text[128];
    socklen_t size = sizeof from_;
    const ssize_t got =
        recvfrom(socket_.Fd(), text, sizeof text, 0, reinterpret_cast<sockaddr *>(&from_), &size);
    if (port != nullptr) *port = ntohs(from_.sin_port);
    return {text, static_cast<std::size_t>(std::max<ssize_t>(got, 0))};
  }

  void Answer(const std::string &text) const {
    EXPECT_EQ(sendto(socket_.Fd(), text.data(), text.size(), 0,
                     reinterpret_cast<const sockaddr *>(&from_), sizeof from_),
              static_cast<ssize_t>(text.size()));
  }

 private:
  int port_;
  Socket socket_;
  sockaddr_in from_ = {};
};

}  // namespace

TEST(Health, Ping_ComesFromAPortThatTheDaemonKnows) {
  Admin admin;
  const Socket asking(Health_Ask(admin.Conf()));
  ASSERT_GE(asking.Fd(), 0);
  int port = 0;
  EXPECT_EQ(admin.Asked(&port), "\t@COMMAND=PING\t@SEQNUM=1\n");
  EXPECT_GE(port, 20000);
  EXPECT_LE(port, 32767);
}

TEST(Health, Pong_AloneIsAnAnswer) {
  Admin admin;
  const Socket asking(Health_Ask(admin.Conf()));
  admin.Asked();
  for (const std::string text :
       {"", "x", "\t@COMMAND=PONG\t@SEQNUM=2\n", "\t@COMMAND=PONG\t@SEQNUM=1\n "}) {
    admin.Answer(text);
    EXPECT_TRUE(asking.Readable(kPatienceMs));
    EXPECT_FALSE(Health_IsAnswered(asking.Fd())) << text;
  }
  EXPECT_FALSE(Health_IsAnswered(asking.Fd())) << "nothing has come";
  admin.Answer("\t@COMMAND=PONG\t@SEQNUM=1\n");
  EXPECT_TRUE(asking.Readable(kPatienceMs));
  EXPECT_TRUE(Health_IsAnswered(asking.Fd()));
}

TEST(Health, PortThatIsTaken_AnotherOneIsTried) {
  Admin admin;
  Seams seams;
  seams.Fail(Call::kBind, EADDRINUSE, 1, 19);
  const Socket asking(Health_Ask(admin.Conf()));
  EXPECT_GE(asking.Fd(), 0);
  EXPECT_EQ(seams.Count(Call::kBind), 20);
}

TEST(Health, WhoeverCannotAsk_GetsNoDescriptor) {
  const Admin admin;
  const std::pair<Call, int> failures[] = {
      {Call::kSocket, 1}, {Call::kBind, 20}, {Call::kConnect, 1}, {Call::kSend, 1}};
  for (const auto &[call, times] : failures) {
    Seams seams;
    seams.Fail(call, ENOBUFS, 1, times);
    EXPECT_EQ(Health_Ask(admin.Conf()), -1);
    EXPECT_EQ(seams.Count(call), times);
    EXPECT_EQ(seams.Count(Call::kClose), call == Call::kSocket ? 0 : 1);
  }
}

TEST(Health, Answer_OvertakesWhoeverStillWaits) {
  Admin admin;
  const Site site(9, admin.Port());
  EXPECT_TRUE(Eventually([&] {
    const Socket waiting = site.Begin("/healthz");
    admin.Asked();
    const Socket answered = site.Begin("/healthz");
    admin.Asked();
    admin.Answer("\t@COMMAND=PONG\t@SEQNUM=1\n");
    return answered.Readable(kPatienceMs) && !waiting.Readable(0);
  }));
}
