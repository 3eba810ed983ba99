#include "web/door.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>

#include "tests/support/syscall_seams.h"
#include "tests/system/harness.h"

namespace {

using std::chrono::milliseconds;

const WebTime kNow = WebClock::now();

Door DoorTo(int port, std::size_t connections, std::size_t waiting = 100) {
  sockaddr_in daemon = {};
  daemon.sin_family = AF_INET;
  daemon.sin_port = htons(static_cast<std::uint16_t>(port));
  daemon.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return {daemon, connections, waiting, {}, {}};
}

Exchange Asking(const std::string &line = "ask\n") {
  Exchange exchange;
  exchange.line = line;
  exchange.deadline = kNow + milliseconds(1000);
  exchange.filter = Filter_Begin(false, [](Placeholder, const PageFacts &facts) {
    std::string text = "[";
    for (const Trouble trouble : facts.unsaid) text += Trouble_Info(trouble).name;
    return text + "]";
  });
  return exchange;
}

// Carries out what its connection is ready for until it is so.
void Await(Exchange *exchange, const std::function<bool()> &so) {
  EXPECT_TRUE(Eventually([&] {
    if (so()) return true;
    pollfd ready = {exchange->fd, Exchange_Events(*exchange), 0};
    if (poll(&ready, 1, 5) > 0) Exchange_Step(exchange);
    return so();
  }));
}

void AwaitEnd(Exchange *exchange) {
  Await(exchange, [exchange] { return exchange->stage == Stage::kOver; });
}

// An exchange whose daemon has its line and has not answered yet.
struct Asked {
  Asked() {
    EXPECT_TRUE(Exchange_Open(&exchange, DoorTo(daemon.Port(), 1).daemon));
    Await(&exchange, [this] { return exchange.line.empty(); });
    connection = daemon.Accept();
    EXPECT_EQ(connection.ReadLine(), "ask\n");
  }
  void Give(const std::string &page) {
    connection.Send(page);
    Await(&exchange, [&] { return exchange.out == page; });
  }
  void End(const std::string &page) {
    connection.Send(page);
    connection.Close();
    AwaitEnd(&exchange);
  }

  const Manager daemon;
  Exchange exchange = Asking();
  Socket connection;
};

}  // namespace

TEST(Door, LetsSoManyIn_AndTheOthersInTheirOrder) {
  const Manager daemon;
  Door door = DoorTo(daemon.Port(), 2);
  Exchange exchanges[4] = {Asking(), Asking(), Asking(), Asking()};
  for (Exchange &exchange : exchanges) EXPECT_TRUE(Door_Enter(&door, &exchange));
  Door_Turn(&door, kNow);
  EXPECT_EQ(door.asking, (std::vector<Exchange *>{&exchanges[0], &exchanges[1]}));
  Door_Leave(&door, &exchanges[0]);
  Door_Turn(&door, kNow);
  EXPECT_EQ(door.asking, (std::vector<Exchange *>{&exchanges[1], &exchanges[2]}));
  Door_Leave(&door, &exchanges[3]);
  EXPECT_TRUE(door.waiting.empty());
  for (Exchange &exchange : exchanges) Door_Leave(&door, &exchange);
}

TEST(Door, TooManyWait) {
  Door door = DoorTo(9, 1, 1);
  Exchange first = Asking(), second = Asking();
  EXPECT_TRUE(Door_Enter(&door, &first));
  EXPECT_FALSE(Door_Enter(&door, &second));
}

TEST(Door, WhoeverWaitsTooLong_FindsItBusy) {
  const Manager daemon;
  Door door = DoorTo(daemon.Port(), 1);
  Exchange first = Asking(), second = Asking();
  first.deadline = kNow + milliseconds(2000);
  EXPECT_TRUE(Door_Enter(&door, &first));
  EXPECT_TRUE(Door_Enter(&door, &second));
  Door_Turn(&door, kNow);
  Door_Turn(&door, kNow + milliseconds(999));
  EXPECT_EQ(second.stage, Stage::kWaiting);
  Door_Turn(&door, kNow + milliseconds(1000));
  EXPECT_EQ(second.stage, Stage::kOver);
  EXPECT_EQ(second.trouble, Trouble::kBusy);
  EXPECT_TRUE(door.waiting.empty());
  Door_Turn(&door, kNow + milliseconds(1999));
  EXPECT_EQ(first.stage, Stage::kAsking);
  Door_Turn(&door, kNow + milliseconds(2000));
  EXPECT_EQ(first.trouble, Trouble::kTooLate);
  EXPECT_TRUE(door.asking.empty());
}

TEST(Door, WhoeverCannotConnect_LetsTheNextIn) {
  const Manager daemon;
  Door door = DoorTo(daemon.Port(), 1);
  Exchange first = Asking(), second = Asking();
  EXPECT_TRUE(Door_Enter(&door, &first));
  EXPECT_TRUE(Door_Enter(&door, &second));
  Seams seams;
  seams.Fail(Call::kSocket, EMFILE);
  Door_Turn(&door, kNow);
  EXPECT_EQ(first.stage, Stage::kOver);
  EXPECT_EQ(first.trouble, Trouble::kGone);
  EXPECT_EQ(door.asking, (std::vector<Exchange *>{&second}));
  Door_Leave(&door, &second);
}

TEST(Exchange, BytesAreGivenAsTheyCome) {
  Asked asked;
  asked.Give("one");
  EXPECT_EQ(asked.exchange.stage, Stage::kGiving);
  asked.End("two");
  EXPECT_EQ(asked.exchange.out, "onetwo");
  EXPECT_EQ(asked.exchange.trouble, Trouble::kNone);
}

TEST(Exchange, TroubleInFrontOfThePage) {
  const std::pair<const char *, Trouble> answers[] = {
      {"", Trouble::kFailed},
      {"\t@COMMAND=ERROR\tUnable to locate SearchMgr\n", Trouble::kGone},
      {"\t@COMMAND=ERROR\tUnable to locate Document Server.", Trouble::kNoDocument}};
  for (const auto &[answer, trouble] : answers) {
    Asked asked;
    asked.End(answer);
    EXPECT_EQ(asked.exchange.out, "");
    EXPECT_EQ(asked.exchange.trouble, trouble) << answer;
  }
}

TEST(Exchange, NobodyListens) {
  const int port = ReservePort();
  Exchange exchange = Asking();
  if (Exchange_Open(&exchange, DoorTo(port, 1).daemon)) AwaitEnd(&exchange);
  EXPECT_EQ(exchange.trouble, Trouble::kGone);
  ReleasePort(port);
}

TEST(Exchange, AddressWithoutARoute_IsGone) {
  Exchange exchange = Asking();
  Seams seams;
  seams.Fail(Call::kConnect, ENETUNREACH);
  EXPECT_FALSE(Exchange_Open(&exchange, DoorTo(9, 1).daemon));
  EXPECT_EQ(exchange.trouble, Trouble::kGone);
  EXPECT_EQ(exchange.stage, Stage::kOver);
  EXPECT_EQ(exchange.fd, -1);
}

TEST(Exchange, ConnectionThatIsThereAtOnce_IsTaken) {
  const Manager daemon;
  Exchange exchange = Asking();
  {
    Seams seams;
    seams.Before(Call::kConnect, 1, [&seams] { fcntl(seams.LastSocket(), F_SETFL, 0); });
    ASSERT_TRUE(Exchange_Open(&exchange, DoorTo(daemon.Port(), 1).daemon));
  }
  fcntl(exchange.fd, F_SETFL, O_NONBLOCK);
  EXPECT_EQ(exchange.stage, Stage::kAsking);
  Await(&exchange, [&] { return exchange.line.empty(); });
  EXPECT_EQ(daemon.Accept().ReadLine(), "ask\n");
  AwaitEnd(&exchange);
}

TEST(Exchange, CallsThatAreForLater_AreMadeAgain) {
  const Manager daemon;
  Exchange exchange = Asking();
  ASSERT_TRUE(Exchange_Open(&exchange, DoorTo(daemon.Port(), 1).daemon));
  {
    Seams seams;
    seams.Fail(Call::kSend, EINTR, 1).Fail(Call::kSend, EAGAIN, 2);
    for (int i = 0; i < 2; ++i) Exchange_Step(&exchange);
    EXPECT_EQ(exchange.line, "ask\n");
    EXPECT_EQ(seams.Count(Call::kRecv), 0);
  }
  Await(&exchange, [&] { return exchange.line.empty(); });
  Socket connection = daemon.Accept();
  EXPECT_EQ(connection.ReadLine(), "ask\n");
  connection.Send("page");
  {
    Seams seams;
    seams.Fail(Call::kRecv, EINTR, 1).Fail(Call::kRecv, EAGAIN, 2);
    for (int i = 0; i < 2; ++i) Exchange_Step(&exchange);
    EXPECT_EQ(exchange.stage, Stage::kAsking);
  }
  Await(&exchange, [&] { return exchange.out == "page"; });
  connection.Close();
  AwaitEnd(&exchange);
  EXPECT_EQ(exchange.trouble, Trouble::kNone);
}

TEST(Exchange, ConnectionThatIsResetInFrontOfThePage_IsGone) {
  Asked asked;
  asked.connection.Reset();
  AwaitEnd(&asked.exchange);
  EXPECT_EQ(asked.exchange.out, "");
  EXPECT_EQ(asked.exchange.trouble, Trouble::kGone);
}

// What came held a placeholder back, or less.
TEST(Exchange, ConnectionThatIsResetBehindItsFirstBytes_IsBroken) {
  Asked asked;
  asked.connection.Send("<!--korvo:");
  Await(&asked.exchange, [&] { return asked.exchange.heard; });
  asked.connection.Reset();
  AwaitEnd(&asked.exchange);
  EXPECT_EQ(asked.exchange.out, "");
  EXPECT_EQ(asked.exchange.trouble, Trouble::kBroken);
}

TEST(Exchange, ConnectionThatEndsBeforeItIsAsked_IsGone) {
  const Manager daemon;
  Exchange exchange = Asking();
  ASSERT_TRUE(Exchange_Open(&exchange, DoorTo(daemon.Port(), 1).daemon));
  Seams seams;
  seams.Fail(Call::kSend, ECONNRESET);
  Exchange_Step(&exchange);
  EXPECT_EQ(exchange.stage, Stage::kOver);
  EXPECT_EQ(exchange.trouble, Trouble::kGone);
}

// The frames and the macro of a group may all be empty.
TEST(Exchange, PageOfNothing_IsNoTrouble) {
  Asked asked;
  asked.exchange.filter.awaits = true;
  asked.End("\t<!--korvo matches=0 first=0 shown=0 shards=1/1 ms=3-->\n");
  EXPECT_EQ(asked.exchange.out, "");
  EXPECT_EQ(asked.exchange.trouble, Trouble::kNone);
}

TEST(Exchange, PageThatIsHeldBackToItsEnd_IsGivenThen) {
  Asked asked;
  asked.End("<!--");
  EXPECT_EQ(asked.exchange.out, "<!--");
  EXPECT_EQ(asked.exchange.trouble, Trouble::kNone);
}

TEST(Exchange, PageThatBreaksOff_SaysSo) {
  Asked asked;
  asked.Give("page");
  asked.connection.Reset();
  AwaitEnd(&asked.exchange);
  EXPECT_EQ(asked.exchange.out, "page[broken]");
}

TEST(Exchange, SlowBrowser_HoldsTheDaemonUp) {
  Exchange exchange = Asking("");
  EXPECT_EQ(Exchange_Events(exchange), POLLIN);
  exchange.out = std::string(262143, 'x');
  EXPECT_EQ(Exchange_Events(exchange), POLLIN);
  exchange.out += 'x';
  EXPECT_EQ(Exchange_Events(exchange), 0);
}

TEST(Rates, AddressThatAsksTooOften_Waits) {
  Rates rates = {2, 3, {}};
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(Rates_Take(&rates, "a", kNow));
  EXPECT_FALSE(Rates_Take(&rates, "a", kNow));
  EXPECT_TRUE(Rates_Take(&rates, "b", kNow));
  EXPECT_TRUE(Rates_Take(&rates, "a", kNow + milliseconds(500)));
  EXPECT_FALSE(Rates_Take(&rates, "a", kNow + milliseconds(500)));
}

TEST(Rates, AddressesOfThisMachine_AskAsTheyLike) {
  Rates rates = {1, 1, {}};
  for (int i = 0; i < 9; ++i) {
    EXPECT_TRUE(Rates_Take(&rates, "127.0.0.1", kNow));
    EXPECT_TRUE(Rates_Take(&rates, "127.9.9.9", kNow));
  }
  EXPECT_TRUE(Rates_Take(&rates, "128.0.0.1", kNow));
  EXPECT_FALSE(Rates_Take(&rates, "128.0.0.1", kNow));
}

TEST(Rates, NoLimit_KeepsNothing) {
  Rates rates = {0, 1, {}};
  for (int i = 0; i < 9; ++i) EXPECT_TRUE(Rates_Take(&rates, "a", kNow));
  EXPECT_TRUE(rates.buckets.empty());
}

TEST(Rates, AddressesOfLongAgo_AreForgotten) {
  Rates rates = {1, 1, {}};
  for (int i = 0; i < 9999; ++i) EXPECT_TRUE(Rates_Take(&rates, std::to_string(i), kNow));
  EXPECT_TRUE(Rates_Take(&rates, "9999", kNow + milliseconds(2000)));
  EXPECT_EQ(rates.buckets.size(), 10000u);
  EXPECT_TRUE(Rates_Take(&rates, "new", kNow + milliseconds(3000)));
  EXPECT_EQ(rates.buckets.size(), 1u);
}
