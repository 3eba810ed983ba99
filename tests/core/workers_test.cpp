#include "core/workers.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <signal.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <set>
#include <sstream>
#include <vector>

#include "tests/core/running.h"
#include "tests/support/log_capture.h"

namespace {

constexpr const char *kTerm = "[MainCore: SigHndlr] Recieved SIGTERM.\n";
constexpr const char *kUser = "[MainCore: SigHndlr] Recieved SIGUSR1.\n";
constexpr const char *kLeft = "[MainCore: Shutdown] Tovak has left the building.\n";

std::string Process(pid_t pid) { return "/proc/" + std::to_string(pid); }
bool Lives(pid_t pid) { return access(Process(pid).c_str(), F_OK) == 0; }

// A service of so many workers.
struct Service {
  explicit Service(int workers, const std::string &failures = "")
      : number("KORVO_WORKERS", std::to_string(workers)), fail("KORVO_FAIL", failures) {}

  std::string Ask(const std::string &word) const { return daemon.Exchange(word + "\n"); }
  Socket Begin(const std::string &word) const {
    Socket client = daemon.Client();
    client.Send(word);
    return client;
  }
  std::vector<pid_t> Workers() {
    const std::string pid = std::to_string(daemon.Program().Pid());
    std::istringstream in(ReadFile("/proc/" + pid + "/task/" + pid + "/children"));
    std::vector<pid_t> pids;
    for (pid_t child = 0; in >> child;) pids.push_back(child);
    return pids;
  }
  bool Logs(const std::string &text) { return daemon.Program().WaitForLog(text); }
  // Nothing is logged from now on: also the workers that were told another level are gone.
  void Silence() {
    const std::vector<pid_t> before = Workers();
    daemon.SetLevel("OFF");
    for (const pid_t pid : before) EXPECT_TRUE(Eventually([&] { return !Lives(pid); }));
    EXPECT_TRUE(Eventually([&] { return Workers().size() == before.size(); }));
  }

  const Setting number, fail;
  Daemon daemon{WORKER_PROGRAM};
};

}  // namespace

TEST(Workers, AFixedNumberServesWithoutTheMainProcess) {
  Service service(3);
  std::set<std::string> pids;
  for (int i = 0; i < 50; ++i) pids.insert(service.Ask("pid"));
  EXPECT_LE(pids.size(), 3u);
  EXPECT_EQ(pids.count(std::to_string(service.daemon.Program().Pid())), 0u);
  EXPECT_EQ(service.Workers().size(), 3u);
}

TEST(Workers, WithoutANumber_AreFourAProcessor) {
  Service service(1);
  unsetenv("KORVO_WORKERS");
  Daemon daemon(WORKER_PROGRAM);
  const std::string pid = std::to_string(daemon.Program().Pid());
  std::istringstream in(ReadFile("/proc/" + pid + "/task/" + pid + "/children"));
  long count = 0;
  for (std::string child; in >> child;) ++count;
  EXPECT_EQ(count, sysconf(_SC_NPROCESSORS_ONLN) * 4);
}

TEST(Workers, ANumberOfAnyDigits_IsTheirs) {
  Service service(10);
  EXPECT_EQ(service.Workers().size(), 10u);
}

TEST(Workers, OneThatDies_IsNotLoggedAbove104) {
  Service service(2);
  service.Silence();
  const std::string before = service.daemon.Log();
  const pid_t worker = service.Workers().front();
  kill(worker, SIGKILL);
  EXPECT_TRUE(Eventually([&] { return !Lives(worker) && service.Workers().size() == 2; }));
  EXPECT_EQ(service.daemon.Log(), before);
}

TEST(Workers, ANumberThatIsNone_EndsStartUp) {
  for (const char *text : {"", "0", "1001", "-1", "4x", "x", "99999999999"}) {
    const Setting number("KORVO_WORKERS", text);
    const Folder folder;
    const int port = ReservePort(), admin = ReservePort();
    folder.Write("korvo.conf",
                 "web1 C 127.0.0.1 " + std::to_string(port) + " " + std::to_string(admin) + " -\n");
    const Ended ended = RunToEnd({WORKER_PROGRAM, "web1", folder.Path()}, folder);
    EXPECT_EQ(ExitStatus(ended.status), 0);
    EXPECT_TRUE(EndsWith(ended.log,
                         "[MainCore: Workers] KORVO_WORKERS takes a number from 1 to 1000, not '" +
                             std::string(text) + "'\n"))
        << ended.log;
  }
}

TEST(Workers, ANumberThatIsNone_IsALineOf104) {
  const Setting number("KORVO_WORKERS", "none");
  EXPECT_EQ(MessagesAt(104, [] { EXPECT_EQ(MainCore_SetWorkers(), 0); }),
            "[MainCore: Workers] KORVO_WORKERS takes a number from 1 to 1000, not 'none'\n");
}

TEST(Workers, AreAllUsedAtOnceAndTheNextConnectionWaits) {
  Service service(2);
  const Socket first = service.Begin("pid"), second = service.Begin("pid");  // no newline yet
  const Socket third = service.Begin("pid\n");
  EXPECT_FALSE(third.Readable(100));
  first.Send("\n");
  EXPECT_NE(first.ReadAll(), "");
  EXPECT_NE(third.ReadAll(), "");  // of whoever is free now
  second.Send("\n");
  EXPECT_NE(second.ReadAll(), "");
}

TEST(Workers, TheQueueHoldsAHundredConnections) {
  Service service(1);
  const Socket busy = service.Begin("pid");
  std::vector<Socket> waiting;
  for (int i = 0; i < 100; ++i) {
    waiting.emplace_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    sockaddr_in addr = {};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    addr.sin_port = htons(static_cast<std::uint16_t>(service.daemon.ClientPort()));
    connect(waiting.back().Fd(), reinterpret_cast<const sockaddr *>(&addr), sizeof addr);
    // One that finds no room is tried again after a second.
    pollfd ready = {waiting.back().Fd(), POLLOUT, 0};
    EXPECT_EQ(poll(&ready, 1, 500), 1) << i;
  }
}

TEST(Workers, AChangedLevelRenewsThem) {
  Service service(2);
  const std::vector<pid_t> before = service.Workers();
  service.daemon.SetLevel("STATUS");
  EXPECT_EQ(service.Ask("level"), "102");
  EXPECT_TRUE(service.Logs("[MainCore: Workers] Renewing the workers\n"));
  for (const pid_t pid : before) EXPECT_TRUE(Eventually([&] { return !Lives(pid); }));
  EXPECT_EQ(Occurrences(service.daemon.Log(), "[MainCore: Workers] Worker "), 0u);
  EXPECT_TRUE(service.Logs("[MainCore: Listen] ListSock="));
  EXPECT_TRUE(service.Logs(". New connection from 127.0.0.1/"));
}

TEST(Workers, TheSameLevelRenewsNobody) {
  Service service(1);
  const std::string pid = service.Ask("pid");
  service.daemon.SetLevel("WARNING");
  EXPECT_EQ(service.Ask("pid"), pid);
}

TEST(Workers, AChangedTreeRenewsEachBehindTheConnectionInHand) {
  Service service(2);
  const Socket in_hand = service.Begin("tree");
  EXPECT_EQ(service.Ask("tree"), "0");
  service.daemon.Send("\t@COMMAND=TREE\n");
  service.daemon.Ping();
  EXPECT_EQ(service.Ask("tree"), "1");
  in_hand.Send("\n");
  EXPECT_EQ(in_hand.ReadAll(), "0");
  EXPECT_TRUE(Eventually([&] { return service.Workers().size() == 2; }));
  for (int i = 0; i < 10; ++i) EXPECT_EQ(service.Ask("tree"), "1");
}

TEST(Workers, AStormOfRenewalsLosesNoConnection) {
  Service service(4);
  for (int i = 1; i <= 100; ++i) {
    const Socket client = service.Begin("tree\n");
    service.daemon.Send("\t@COMMAND=TREE\n");
    EXPECT_NE(client.ReadAll(), "");
    service.daemon.Ping();
    // A worker that looks at the listener just then takes one connection more.
    std::string tree;
    EXPECT_TRUE(Eventually([&] { return (tree = service.Ask("tree")) == std::to_string(i); }))
        << tree;
  }
  EXPECT_EQ(Occurrences(service.daemon.Log(), "[MainCore: Workers] Worker "), 0u);
}

TEST(Workers, OneThatDiesIsReplaced) {
  Service service(1);
  const std::string first = service.Ask("pid");
  EXPECT_EQ(service.Ask("kill"), "");
  const std::string second = service.Ask("pid");
  EXPECT_NE(second, first);
  EXPECT_EQ(service.Ask("leave"), "");
  EXPECT_NE(service.Ask("pid"), second);
  EXPECT_TRUE(service.Logs("[MainCore: Workers] Worker " + first + " was ended by signal 9\n"));
  EXPECT_TRUE(service.Logs("[MainCore: Workers] Worker " + second + " ended with status 3\n"));
}

TEST(Workers, ThoseThatKeepDyingAreReplacedTenTimesASecond) {
  Service service(1);
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 25; ++i) EXPECT_EQ(service.Ask("kill"), "");
  EXPECT_NE(service.Ask("pid"), "");
  // Three seconds of the clock have to be touched.
  EXPECT_GT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
  service.daemon.Ping();
}

TEST(Workers, OneMakesRoomForANewOneBehindTenThousandConnections) {
  Service service(1);
  const std::string first = service.Ask("pid");
  for (int i = 2; i <= 9999; ++i) {
    service.Ask("nothing");
    ASSERT_FALSE(HasFailure()) << i;  // each that nobody answers takes its time
  }
  EXPECT_EQ(service.Ask("pid"), first);
  EXPECT_NE(service.Ask("pid"), first);
}

TEST(Workers, WaitFiveSecondsForALine) {
  Service service(3);
  const Socket silent = service.daemon.Client();
  const Socket drips = service.daemon.Client();
  const Socket floods = service.daemon.Client();
  floods.Send(std::string(5000, 'f'));  // its line is too long, and goes on
  EXPECT_TRUE(Eventually([&] {
    drips.Send("d");
    return silent.Readable(0) && drips.Readable(0) && floods.Readable(0);
  }));
  for (const Socket *client : {&silent, &drips, &floods}) {
    char byte = 0;
    EXPECT_LE(recv(client->Fd(), &byte, 1, 0), 0);
  }
  EXPECT_TRUE(Eventually([&] {
    return Occurrences(service.daemon.Log(),
                       "[MainCore: Worker] No command came within 5 seconds: socket 6\n") == 3;
  }));
  EXPECT_EQ(service.Ask("tree"), "0");
}

TEST(Workers, WaitFiveSecondsAlsoWhereTheAlarmWasHeldBack) {
  const Setting number("KORVO_WORKERS", "1");
  Daemon daemon(WORKER_PROGRAM, [] {
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, nullptr);
  });
  daemon.SetLevel("FATAL");
  const Socket silent = daemon.Client();
  EXPECT_EQ(silent.ReadAll(), "");
  EXPECT_EQ(daemon.Exchange("tree\n"), "0");
  EXPECT_EQ(Occurrences(daemon.Log(), "No command came"), 0u);  // a line of 103
}

TEST(Workers, SignalsThatWereHeldBackStaySoButThoseThatAreNeeded) {
  const Setting number("KORVO_WORKERS", "1");
  Daemon daemon(WORKER_PROGRAM, [] {
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, nullptr);
  });
  const std::string first = daemon.Exchange("pid\n");
  daemon.Program().Signal(SIGUSR2);  // whose action is the end of the process
  EXPECT_EQ(daemon.Exchange("kill\n"), "");
  EXPECT_NE(daemon.Exchange("pid\n"), first);
}

TEST(Workers, ARequestThatTakesTooLongEndsWithItsLastWord) {
  Service service(1);
  EXPECT_EQ(service.Ask("late"), "a last word");
  EXPECT_EQ(service.Ask("tree"), "0");
}

TEST(Workers, TheLastWordOfARequestIsOfThatOneAlone) {
  Service service(1);
  EXPECT_EQ(service.Ask("last"), "");
  const Socket silent = service.daemon.Client();
  EXPECT_EQ(silent.ReadAll(), "");
  EXPECT_TRUE(service.Logs("[MainCore: Worker] No command came within 5 seconds: socket 6\n"));
}

TEST(Workers, WaitFiveSecondsForAReader) {
  Service service(1);
  const Socket idle = service.Begin("much\n");
  EXPECT_EQ(service.Ask("tree"), "0");  // once the worker is free again
  EXPECT_TRUE(service.Logs("[SOCK: SendTCP] Error 11 (0xb) from send()."));
}

TEST(Workers, SigtermEndsAllOfThemInTheMiddleOfTheirWork) {
  Service service(3);
  const Socket hangs = service.Begin("hang\n");
  EXPECT_TRUE(hangs.Readable(kPatienceMs));
  EXPECT_TRUE(Eventually([&] { return service.Workers().size() == 3; }));
  service.daemon.Program().Signal(SIGTERM);
  EXPECT_EQ(ExitStatus(service.daemon.Program().Wait()), 0);
  for (const int status : service.daemon.Program().WaitForGroup()) EXPECT_EQ(ExitStatus(status), 0);
  EXPECT_EQ(Occurrences(service.daemon.Log(), kTerm), 4u) << service.daemon.Log();
  EXPECT_EQ(Occurrences(service.daemon.Log(), kLeft), 4u) << service.daemon.Log();
}

TEST(Workers, ShutdownEndsAllOfThemWithTheirLines) {
  Service service(3);
  const Socket hangs = service.Begin("hang\n");
  EXPECT_TRUE(hangs.Readable(kPatienceMs));
  service.daemon.Send("\t@COMMAND=SHUTDOWN\n");
  EXPECT_EQ(ExitStatus(service.daemon.Program().Wait()), 0);
  for (const int status : service.daemon.Program().WaitForGroup()) EXPECT_EQ(ExitStatus(status), 0);
  EXPECT_EQ(Occurrences(service.daemon.Log(), kUser), 4u) << service.daemon.Log();
  EXPECT_EQ(Occurrences(service.daemon.Log(), kLeft), 4u) << service.daemon.Log();
}

TEST(Workers, AMainProcessThatIsKilledLeavesNoWorker) {
  Service service(2);
  EXPECT_TRUE(Eventually([&] { return service.Workers().size() == 2; }));
  service.daemon.Program().Signal(SIGKILL);
  service.daemon.Program().Wait();
  service.daemon.Program().WaitForGroup();
  EXPECT_EQ(Occurrences(service.daemon.Log(), kLeft), 2u);
}

TEST(Workers, OneThatIsStoppedKeepsNoConnectionForItself) {
  Service service(2);
  kill(service.Workers().front(), SIGSTOP);
  for (int i = 0; i < 10; ++i)
    EXPECT_EQ(service.Ask("pid"), std::to_string(service.Workers().back())) << i;
  kill(service.Workers().front(), SIGCONT);
}

TEST(Workers, OneThatWasStoppedServesOn) {
  Service service(1);
  const std::string pid = service.Ask("pid");
  for (int i = 0; i < 10; ++i) {
    kill(service.Workers().front(), SIGSTOP);
    kill(service.Workers().front(), SIGCONT);
    EXPECT_EQ(service.Ask("pid"), pid) << i;
  }
}

TEST(Workers, AConnectionIsLoggedAndTakenWithoutWaiting) {
  Service service(2);
  service.daemon.SetLevel("STATUS");
  service.Ask("pid");
  ASSERT_TRUE(service.Logs("[MainCore: Listen] ListSock="));
  const std::string log = service.daemon.Log();
  int listener = -1, taken = -1;
  ASSERT_EQ(
      std::sscanf(log.c_str() + log.find("[MainCore: Listen] ListSock="),
                  "[MainCore: Listen] ListSock=%d, newsock=%d. New connection from 127.0.0.1/",
                  &listener, &taken),
      2);
  EXPECT_LT(listener, taken);  // which was opened before it
  // All look at the same listener: whoever comes late must not wait there.
  const std::string info = ReadFile("/proc/" + std::to_string(service.daemon.Program().Pid()) +
                                    "/fdinfo/" + std::to_string(listener));
  int flags = 0;
  ASSERT_EQ(std::sscanf(info.c_str() + info.find("flags:"), "flags: %o",
                        reinterpret_cast<unsigned *>(&flags)),
            1);
  EXPECT_EQ(flags & (O_APPEND | O_ASYNC | O_NONBLOCK), O_NONBLOCK) << info;
}

// Of a socket that listens the kernel says there how many connections may wait.
TEST(Workers, ConnectionsWaitInAQueueOf128) {
  Service service(1);
  EXPECT_EQ(service.Ask("tree"), "0");
  const int program = static_cast<int>(syscall(SYS_pidfd_open, service.daemon.Program().Pid(), 0));
  ASSERT_GE(program, 0);
  std::vector<unsigned> queues;
  for (int fd = 0; fd < 16; ++fd) {
    const int listener = static_cast<int>(syscall(SYS_pidfd_getfd, program, fd, 0));
    if (listener < 0 && errno == EPERM)
      GTEST_SKIP() << "the descriptors of a child are not given here";
    int listens = 0;
    socklen_t size = sizeof listens;
    tcp_info info = {};
    socklen_t length = sizeof info;
    if (getsockopt(listener, SOL_SOCKET, SO_ACCEPTCONN, &listens, &size) == 0 && listens == 1 &&
        getsockopt(listener, IPPROTO_TCP, TCP_INFO, &info, &length) == 0)
      queues.push_back(info.tcpi_sacked);
    close(listener);
  }
  close(program);
  EXPECT_EQ(queues, std::vector<unsigned>({128}));
}

TEST(Workers, AHangUpEndsTheMainProcessAndWithItAll) {
  Service service(2);
  service.daemon.Program().Signal(SIGHUP);
  const int status = service.daemon.Program().Wait();
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGHUP) << status;
  EXPECT_EQ(service.daemon.Program().WaitForGroup().size(), 2u);
}

TEST(Workers, ASignalToOneEndsThatOneAlone) {
  Service service(1);
  const Socket hangs = service.Begin("hang\n");
  EXPECT_TRUE(hangs.Readable(kPatienceMs));
  const std::vector<pid_t> before = service.Workers();
  ASSERT_EQ(before.size(), 1u);
  kill(before[0], SIGTERM);
  EXPECT_NE(service.Ask("pid"), std::to_string(before[0]));
  EXPECT_EQ(Occurrences(service.daemon.Log(), kLeft), 1u);
}

TEST(Workers, AForkThatFailsIsTriedAgain) {
  Service service(2, "fork:1:11:2");
  EXPECT_EQ(service.Ask("tree"), "0");
  EXPECT_TRUE(Eventually([&] { return service.Workers().size() == 2; }));
  EXPECT_EQ(Occurrences(service.daemon.Log(),
                        "[MainCore: Workers] Unable to fork a worker: errno = 11\n"),
            2u);
}

TEST(Workers, AForkThatFails_SaysNothingAbove104) {
  Service service(1, "fork:3:11:2");
  service.Silence();  // with a second one
  const std::string before = service.daemon.Log();
  const std::string second = service.Ask("pid");
  kill(service.Workers().front(), SIGKILL);
  EXPECT_NE(service.Ask("pid"), second);
  EXPECT_EQ(service.daemon.Log(), before);
}

TEST(Workers, ThoseThatAreNotThereAreNotRenewed) {
  Service service(2, "fork:1:11:100000");
  service.daemon.SetLevel("STATUS");
  EXPECT_TRUE(service.Logs("[MainCore: Workers] Renewing the workers\n"));
  service.daemon.Ping();
  EXPECT_EQ(service.Workers(), std::vector<pid_t>());
}

TEST(Workers, AnAcceptThatFails_SaysNothingAbove104) {
  Service service(1, "accept:1:24");
  service.Silence();
  const std::string before = service.daemon.Log();
  EXPECT_EQ(service.Ask("tree"), "0");
  EXPECT_EQ(service.daemon.Log(), before);
}

TEST(Workers, AnAcceptThatFailsIsTriedAgain) {
  Service service(1, "accept:1:24");
  EXPECT_EQ(service.Ask("tree"), "0");
  EXPECT_EQ(Occurrences(service.daemon.Log(), "[MainCore: Worker] Unable to accept: errno = 24\n"),
            1u);
}

TEST(Workers, AConnectionThatIsGoneIsNoFault) {
  Service service(1, "accept:1:103 accept:2:11 accept:3:4");
  EXPECT_EQ(service.Ask("tree"), "0");
  EXPECT_EQ(Occurrences(service.daemon.Log(), "Unable to accept"), 0u);
}

TEST(Workers, OneThatCannotWatchTheListenerIsReplaced) {
  for (const char *call : {"epoll_create1", "epoll_ctl"}) {
    Service service(1, call + std::string(":1:24"));
    EXPECT_TRUE(service.Logs("[MainCore: Worker] Unable to watch the listener: errno = 24\n"));
    EXPECT_TRUE(service.Logs(" ended with status 71\n"));
    service.daemon.Ping();
  }
}

// The signal that tells of its end is asked for only afterwards.
TEST(Workers, OneThatFindsTheMainProcessGoneLeaves) {
  Service service(1, "getppid:1:1");
  EXPECT_TRUE(service.Logs(kTerm));
  EXPECT_TRUE(service.Logs(kLeft));
  service.daemon.Ping();
}

TEST(Workers, OneThatCannotWatchTheListener_SaysNothingAbove104) {
  Service service(1, "epoll_create1:1:24");
  const auto three_come = [&service] {
    std::set<pid_t> seen;
    return Eventually([&] {
      for (const pid_t pid : service.Workers()) seen.insert(pid);
      return seen.size() >= 3;
    });
  };
  service.daemon.SetLevel("OFF");
  EXPECT_TRUE(three_come());  // and those that had the old level are gone
  const std::string before = service.daemon.Log();
  EXPECT_TRUE(three_come());
  EXPECT_EQ(service.daemon.Log(), before);
}

TEST(Workers, AnAdminSocketBeyondTheReadSet_IsRefused) {
  int rc = 0;
  EXPECT_EQ(MessagesAt(104, [&] { rc = MainCore_WorkerLoop(3, FD_SETSIZE, nullptr, nullptr); }),
            "[MainCore: main] Descriptor 1024 is beyond the 1024 that can be watched.\n");
  EXPECT_EQ(rc, -EMFILE);
}
