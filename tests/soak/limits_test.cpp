// The limits of a machine, met for real: what the daemon says, and that it serves again.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "config/peers.h"
#include "debug/collector.h"
#include "debug/log.h"
#include "tests/soak/footing.h"
#include "tests/soak/form.h"
#include "tests/support/log_capture.h"
#include "tests/system/harness.h"

namespace {

// A user who owns no process, nor does another run of this test make any for him.
const uid_t nobody_else = 1'000'000 + static_cast<uid_t>(getpid());

constexpr const char *kNoDocument = "\t@COMMAND=ERROR\tUnable to retreive document.";

// Whether a process of ours is allowed to do that.
bool Allowed(const std::function<bool()> &action) {
  const pid_t pid = fork();
  if (pid == 0) _exit(action() ? 0 : 1);
  int status = 0;
  waitpid(pid, &status, 0);
  return ExitStatus(status) == 0;
}

bool BecomeNobodyElse() {
  return setresgid(nobody_else, nobody_else, nobody_else) == 0 &&
         setresuid(nobody_else, nobody_else, nobody_else) == 0;
}

bool LeaveMounts() {
  return unshare(CLONE_NEWNS) == 0 &&
         mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

void Limit(pid_t pid, __rlimit_resource resource, rlim_t soft) {
  rlimit limit = {};
  ASSERT_EQ(0, prlimit(pid, resource, nullptr, &limit));
  limit.rlim_cur = std::min(soft, limit.rlim_max);
  ASSERT_EQ(0, prlimit(pid, resource, &limit, nullptr));
}

// A daemon with its managers, which answers one page.
class Site {
 public:
  explicit Site(const std::string &program = KORVO_COMMMGR,
                const std::function<void()> &prepare = {})
      : daemon_(program, prepare) {
    std::filesystem::permissions(daemon_.Files().Path(), std::filesystem::perms(0755));
    base_ = daemon_.Files().Path() + "/page";
    daemon_.Files().Write("page.mo", ValueOp("NAME") + EndOp());
    daemon_.Files().Write("page.hdr", "<page>");
    daemon_.Files().Write("page.tail", "</page>");
    daemon_.Announce('S', "search", search_);
    daemon_.Announce('D', "docs", docs_);
  }

  Daemon &Program() { return daemon_; }
  pid_t Pid() { return daemon_.Program().Pid(); }
  const std::string &Base() const { return base_; }
  const Manager &Docs() const { return docs_; }

  std::string Request() const {
    return "\t@COMMAND=QUERY\t@SEARCHGROUP=search\t@MACROFILE=" + base_ + "\twords\n";
  }
  void PlaySearch() {
    const Socket search = search_.Accept();
    EXPECT_EQ(Request(), search.ReadLine());
    search.Send("\t@COMMAND=HIT\t@SEARCHGROUP=docs\t@DOCNUM=1\n");
  }
  void PlayDocs() {
    const Socket docs = docs_.Accept();
    docs.ReadLine();
    docs.Send("\t@COMMAND=HIT\tNAME=the document\tEND=\n");
  }
  void ExpectPage(const Socket &client) {
    PlaySearch();
    PlayDocs();
    EXPECT_EQ("<page>the document</page>", client.ReadAll());
  }
  void ExpectServed() {
    const Socket client = daemon_.Client();
    client.Send(Request());
    ExpectPage(client);
  }
  // A message of a child of its own.
  void Say(const std::string &words) { EXPECT_EQ("", daemon_.Exchange(words + "\n")); }

 private:
  Daemon daemon_;
  Manager search_, docs_;
  std::string base_;
};

std::string Said(const std::string &words) {
  return "[CommMgr: ClientCmd] Unable to figure out this command: " + words + "\n\n";
}

// What a log holds behind a place and the repetitions of a line there.
std::string Beyond(const std::string &log, std::size_t place, const std::string &line) {
  while (log.compare(place, line.size(), line) == 0) place += line.size();
  return log.substr(place);
}

// --- Processes ---

// A daemon whose user may have two processes: itself, and one of a connection or another.
class ProcessLimit : public testing::Test {
 protected:
  void SetUp() override {
    if (!Allowed(BecomeNobodyElse)) GTEST_SKIP() << "needs root: the limit is that of a user";
    std::filesystem::permissions(folder_.Path(), std::filesystem::perms(0755));
    const std::string program = folder_.Path() + "/korvo-commmgr";
    std::filesystem::copy_file(KORVO_COMMMGR, program);
    std::filesystem::permissions(program, std::filesystem::perms(0755));
    site_ = std::make_unique<Site>(program, [] {
      const rlimit two = {2, 2};
      if (chmod(".", 0755) != 0 || !BecomeNobodyElse() || setrlimit(RLIMIT_NPROC, &two) != 0)
        _exit(125);
    });
  }
  void TearDown() override {
    LeaveRoom();
    umask(umask_);
  }

  void TakeRoom() {
    int ready[2];
    ASSERT_EQ(0, pipe2(ready, O_CLOEXEC));
    other_ = fork();
    if (other_ == 0) {
      if (!BecomeNobodyElse()) _exit(125);
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      close(ready[1]);
      for (;;) pause();
    }
    close(ready[1]);
    char none = 0;
    EXPECT_EQ(0, read(ready[0], &none, 1));
    close(ready[0]);
  }
  void LeaveRoom() {
    if (other_ <= 0) return;
    kill(other_, SIGKILL);
    waitpid(other_, nullptr, 0);
    other_ = 0;
  }
  bool Sleeps() {
    return Eventually([this] {
      return ReadFile("/proc/" + std::to_string(site_->Pid()) + "/wchan").find("nanosleep") !=
             std::string::npos;
    });
  }

  const mode_t umask_ = umask(022);  // the other user reads the files of the site
  Folder folder_;
  std::unique_ptr<Site> site_;
  pid_t other_ = 0;
};

TEST_F(ProcessLimit, ForkIsTriedAgain) {
  site_->ExpectServed();
  TakeRoom();
  const std::string before = site_->Program().Log();
  const Socket client = site_->Program().Client();
  client.Send(site_->Request());
  ASSERT_TRUE(Sleeps());
  LeaveRoom();
  site_->ExpectPage(client);
  site_->Program().Ping();
  EXPECT_EQ(before, site_->Program().Log());
}

TEST_F(ProcessLimit, NoAttemptSucceeds_ConnectionIsClosedAndPingAnswered) {
  if (Form_Minutes() == 0) GTEST_SKIP() << "waits half a minute: in the long form only";
  const std::string before = site_->Program().Log();
  const auto descriptors = Footing_Descriptors(site_->Pid());
  TakeRoom();
  const Socket client = site_->Program().Client();
  EXPECT_TRUE(client.Readable(60000));
  EXPECT_EQ("", client.ReadAll());
  site_->Program().Ping();
  EXPECT_EQ(before + "[MainCore: Listen] Unable to fork for TCPRead: errno = 11\n",
            site_->Program().Log());
  EXPECT_EQ(descriptors, Footing_Descriptors(site_->Pid()));
  LeaveRoom();
  site_->ExpectServed();
}

// --- Descriptors ---

// The code of a call that would have given a descriptor is asked of none, and so is 0.
std::string NoError() {
  return "[SOCK: GetError] Uhmm, Houston...We have a problem.\n"
         "[SOCK: GetError] We can't seem to get our socket errors here for sock -1.\n"
         "[SOCK: GetError] The system reports this as errno = 9.\n"
         "[SOCK: GetError] What are your recommendations ?\n";
}

TEST(DescriptorLimit, InTheMainProcess_AcceptFailsUntilItGoes) {
  Site site;
  const int next = 6;
  ASSERT_EQ(6u, Footing_Descriptors(site.Pid()).size());
  const std::string before = site.Program().Log();
  Limit(site.Pid(), RLIMIT_NOFILE, next);
  const Socket client = site.Program().Client();
  client.Send(site.Request());
  const std::string line =
      NoError() +
      "[SOCK: Accept] Error 0 (0x0) from accept().  Unable to accept new connection on socket -1.\n"
      "[MainCore: Listen] Error 0 from Sock_Accept().\n";
  EXPECT_TRUE(site.Program().Program().WaitForLog(line));
  site.Program().Ping();
  Limit(site.Pid(), RLIMIT_NOFILE, 1024);
  site.ExpectPage(client);
  // It said so for each time that it looked, and nothing else.
  EXPECT_EQ("", Beyond(site.Program().Log(), before.size(), line));
  site.ExpectServed();
}

// One connection's process, from before it reads its command.
class InTheChild {
 public:
  InTheChild(Site *site, rlim_t descriptors)
      : site_(site), client_(site->Program().Client()), log_(site->Program().Log().size()) {
    pid_t child = 0;
    // Its parent's two sockets are closed by then.
    EXPECT_TRUE(Eventually([&] {
      const std::vector<pid_t> children = Footing_Children(site->Pid());
      child = children.empty() ? 0 : children[0];
      return child != 0 && Footing_Descriptors(child).size() == 5;
    }));
    Limit(child, RLIMIT_NOFILE, descriptors);
    client_.Send(site->Request());
  }
  const Socket &Client() const { return client_; }
  // Everything logged since, once the connection has ended.
  std::string Log() const {
    EXPECT_TRUE(Eventually([this] { return Footing_Children(site_->Pid()).empty(); }));
    return site_->Program().Log().substr(log_);
  }

 private:
  Site *site_;
  Socket client_;
  std::size_t log_;
};

TEST(DescriptorLimit, InAChildWithoutAny_MacroIsNotOpened) {
  Site site;
  const InTheChild child(&site, 4);
  EXPECT_EQ("", child.Client().ReadAll());
  EXPECT_EQ("[Macro: Open] Unable to open macro '" + site.Base() +
                ".mo': errno = 24\n[CommMgr: ClientCmd] Unable to open Macro " + site.Base() + "\n",
            child.Log());
  site.ExpectServed();
}

TEST(DescriptorLimit, InAChildWithOne_FramesAreLeftOutAndDocumentsFail) {
  Site site;
  const InTheChild child(&site, 5);
  site.PlaySearch();
  EXPECT_EQ(kNoDocument, child.Client().ReadAll());
  const std::string docs = "127.0.0.1:" + std::to_string(site.Docs().Port());
  EXPECT_EQ("[CommMgr: MacroHdr] Unable to open macro file " + site.Base() + ".hdr: errno = 24.\n" +
                NoError() +
                "[SOCK: Connect] Error 0 (0x0) from socket().  Unable to get a new socket.\n"
                "[Socket: Conn&Send] Unable to connect to " +
                docs + ": rc = 0\n[CommMgr: GetDoc] ConnectAndSend to DocMgr at " + docs +
                " failed: rc = 0.\n[CommMgr: MacroTail] Unable to open macro file " + site.Base() +
                ".tail: errno = 24.\n",
            child.Log());
  site.ExpectServed();
}

TEST(DescriptorLimit, InAChildWithTwo_PageIsWhole) {
  Site site;
  const InTheChild child(&site, 6);
  site.ExpectPage(child.Client());
  EXPECT_EQ("", child.Log());
}

// --- Disks ---

// A log that takes no more, a while.
void ExpectLogLostAWhile(Site *site, const std::string &log, const std::function<void()> &fill,
                         const std::function<void()> &free) {
  site->Say("before");
  EXPECT_TRUE(Eventually([&] { return StripHeaders(ReadFile(log)).ends_with(Said("before")); }));
  fill();
  const std::string whole = ReadFile(log);
  for (int i = 0; i < 40; ++i) site->Say("into what room is left");
  const std::string full = ReadFile(log);
  EXPECT_TRUE(full.starts_with(whole));
  site->ExpectServed();
  site->Say("lost");
  site->Program().Ping();
  EXPECT_EQ(full, ReadFile(log));
  free();
  site->Say("after");
  EXPECT_TRUE(Eventually([&] { return StripHeaders(ReadFile(log)).ends_with(Said("after")); }));
  EXPECT_TRUE(ReadFile(log).starts_with(full + std::string(63, '-') + "\nPID: "));
  site->ExpectServed();
}

TEST(FullDisk, UnderARedirectedLog_LinesAreGivenUpAndClientsServed) {
  if (!Allowed(LeaveMounts)) GTEST_SKIP() << "needs root: mounts a small disk where nobody sees it";
  Site site(KORVO_COMMMGR, [] {
    if (!LeaveMounts() || mkdir("disk", 0755) != 0 ||
        mount("none", "disk", "tmpfs", 0, "size=65536") != 0)
      _exit(125);
    dup2(open("disk/log", O_WRONLY | O_CREAT | O_APPEND, 0600), 2);
  });
  const std::string disk = "/proc/" + std::to_string(site.Pid()) + "/cwd/disk/";
  ExpectLogLostAWhile(
      &site, disk + "log",
      [&] { std::ofstream(disk + "filler") << std::string(1 << 20, 'f') << std::flush; },
      [&] { std::filesystem::remove(disk + "filler"); });
}

TEST(FullDisk, AtTheLimitOfAFile_LinesAreGivenUpAndClientsServed) {
  Site site(KORVO_COMMMGR, [] { signal(SIGXFSZ, SIG_IGN); });
  const std::string log = site.Program().Files().Path() + "/stderr";
  ExpectLogLostAWhile(
      &site, log, [&] { Limit(site.Pid(), RLIMIT_FSIZE, std::filesystem::file_size(log) + 10); },
      [&] { Limit(site.Pid(), RLIMIT_FSIZE, RLIM_INFINITY); });
}

TEST(FullDisk, UnderStandardOutputAndError_DaemonServesAndEndsInOrder) {
  Site site(KORVO_COMMMGR, [] {
    const int full = open("/dev/full", O_WRONLY);
    dup2(full, 1);
    dup2(full, 2);
  });
  site.Program().Send("\t@COMMAND=SETDEBUGLEVEL\tDEBUGLEVEL=INFO\n");
  site.Say("lost");
  site.ExpectServed();
  site.Program().Program().Signal(SIGTERM);
  EXPECT_EQ(0, ExitStatus(site.Program().Program().Wait()));
}

// A program whose collector cannot be reached, on a disk of its own; in a process of its own.
void ExpectOnDisk(const std::string &options, const std::function<void(int log_socket)> &action) {
  if (!Allowed(LeaveMounts)) GTEST_SKIP() << "needs root: mounts a small disk where nobody sees it";
  const Folder folder;
  EXPECT_TRUE(Allowed([&] {
    EXPECT_TRUE(LeaveMounts());
    EXPECT_EQ(0, mount("none", folder.Path().c_str(), "tmpfs", 0, options.c_str()));
    EXPECT_EQ(0, chdir(folder.Path().c_str()));
    int log_socket = -1;
    Capture(kWarning, [&] {
      log_socket = dup(0);  // the next free one
      close(log_socket);
      Debug_Init();
      Debug_SetDest("255.255.255.255", 113);  // which takes a permission that nobody asks for
    });
    action(log_socket);
    std::fflush(stdout);
    return !testing::Test::HasFailure();
  }));
}

// What is on standard output when the program says a word.
std::string Say(const std::string &word) {
  int result = 1;
  const Output output =
      Capture(kWarning, [&] { result = DPRINTF(nullptr, kWarning, "%s\n", word.c_str()); });
  EXPECT_EQ(0, result);
  EXPECT_EQ("", output.log);
  return output.out;
}

// The word, and the report on the report that could not be sent either.
std::string Fallen(int sock, const std::string &opened, const std::string &word) {
  const std::string report = "[DEBUG: DPRINTF] Error -13 (0xfffffff3) from SendTCP().\n" + opened;
  return report + "[SOCK: SendUDP] Error 13 (0xd) from sendto().  Unable to send on socket " +
         std::to_string(sock) + " to 255.255.255.255:113.\n" + report + word + "\n";
}

TEST(FullDisk, UnderTheFallBackFile_LinesAreGivenUp) {
  ExpectOnDisk("size=16384", [](int sock) {
    Say("before");
    EXPECT_EQ(Fallen(sock, "", "before"), StripHeaders(ReadFile("debug.log")));
    std::ofstream("filler") << std::string(65536, 'f') << std::flush;
    for (int i = 0; i < 40; ++i) Say("into what room is left");
    const std::string full = ReadFile("debug.log");
    Say("lost");
    EXPECT_EQ(full, ReadFile("debug.log"));
    std::filesystem::remove("filler");
    Say("after");
    const std::string log = ReadFile("debug.log");
    EXPECT_TRUE(log.starts_with(full));
    EXPECT_EQ(Fallen(sock, "", "after"), StripHeaders(log.substr(full.size())));
  });
}

TEST(FullDisk, WithoutRoomForTheFallBackFile_LinesGoToStandardOutput) {
  ExpectOnDisk("nr_inodes=1", [](int sock) {
    const std::string unopened = "[DEBUG: DPRINTF] Unable to open default syslog 'debug.log'\n";
    EXPECT_EQ("errno = 13\nerrno = 13\n" + Fallen(sock, unopened, "word"), Say("word"));
  });
}

// --- Memory ---

TEST(MemoryLimit, NoMemoryForAnAnnouncement_IsSaidAndForgotten) {
  Site site;
  const std::string status = ReadFile("/proc/" + std::to_string(site.Pid()) + "/status");
  const rlim_t size = std::stoul(status.substr(status.find("VmSize:") + 7)) * 1024;
  Limit(site.Pid(), RLIMIT_AS, size);
  const std::string before = site.Program().Log();
  int number = 0;
  EXPECT_TRUE(Eventually([&] {
    for (int i = 0; i < 50; ++i)
      site.Program().Send(Announcement('D', "further-" + std::to_string(++number), 9));
    site.Program().Ping();
    return site.Program().Log().size() > before.size();
  }));
  const std::string line = "[Comm: Admin] Unable to alloc mem for INIT_CHILDINFO (size = " +
                           std::to_string(sizeof(INIT_CHILDINFO)) + ").\n";
  EXPECT_EQ("", Beyond(site.Program().Log(), before.size(), line));
  const Manager late;
  site.Program().Announce('S', "late", late);  // lost
  site.Say("still there");
  const std::string request =
      "\t@COMMAND=QUERY\t@SEARCHGROUP=late\t@MACROFILE=" + site.Base() + "\twords\n";
  Limit(site.Pid(), RLIMIT_AS, RLIM_INFINITY);
  EXPECT_EQ("\t@COMMAND=ERROR\tUnable to locate SearchMgr\n", site.Program().Exchange(request));
  site.Program().Announce('S', "late", late);
  const Socket client = site.Program().Client();
  client.Send(request);
  late.Accept().Send("\t@COMMAND=RAW\tfound\n");
  EXPECT_EQ("<page>\tfound\n</page>", client.ReadAll());
  site.ExpectServed();
}

}  // namespace
