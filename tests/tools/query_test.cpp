#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "tests/tools/run.h"

namespace {

Arguments Query(int port, const Arguments &more) {
  Arguments argv = {KORVO_QUERY, "--port", std::to_string(port), "--group", "sm1",
                    "--macro",   "/m/page"};
  argv.insert(argv.end(), more.begin(), more.end());
  return argv;
}

constexpr const char *kLine =
    "\t@COMMAND=QUERY\t@SEARCHGROUP=sm1\t@MACROFILE=/m/page\thello world\n";

// Runs the tool against a service that reads one line and answers.
Outcome Exchange(const std::string &answer, const Arguments &more = {"hello", "world"},
                 std::string *line = nullptr) {
  const Manager service;
  Tool tool(Query(service.Port(), more));
  Socket client = service.Accept();
  const std::string got = client.ReadLine();
  if (line != nullptr) *line = got;
  client.Send(answer);
  client.Close();
  const int status = tool.Status();
  return {status, tool.Output(), tool.Errors()};
}

TEST(QueryTool, Query_SendsItsLineAndCopiesTheAnswer) {
  std::string line;
  const std::string answer("<page>\r\n\0\x1b\tno newline", 22);
  const Outcome outcome = Exchange(answer, {"hello", "world"}, &line);
  EXPECT_EQ(kLine, line);
  EXPECT_EQ(0, outcome.status);
  EXPECT_EQ(answer, outcome.output);
  EXPECT_EQ("", outcome.errors);
}

TEST(QueryTool, Help_GoesToStandardOutput) {
  ExpectHelp(
      KORVO_QUERY,
      "usage: korvo-query [OPTION]... WORD|NAME=TERMS...\n"
      "       korvo-query [OPTION]... --doc NUMBER\n"
      "\n"
      "  --host HOST        of the service, a name or an IPv4 address; KORVO_HOST, or 127.0.0.1\n"
      "  --port PORT        its client port; KORVO_PORT\n"
      "  --group GROUP      the Search Manager to ask, or with --doc the Document Manager;\n"
      "                     KORVO_GROUP\n"
      "  --macro MACRO      the page macro, without .mo; KORVO_MACRO\n"
      "  --max-hits NUMBER  at most so many documents; 0, or without it: as many as the Search\n"
      "                     Manager gives. korvo-searchmgr then gives 100, and never more than 10000\n"
      "  --doc NUMBER       one document in place of a search\n"
      "  --type TYPE        record type\n"
      "  --header NAME=VALUE\n"
      "                     a further field of the request, as in --header SORT=Date; once or more\n"
      "  --raw              show control characters as they are also on a terminal\n"
      "  --timeout SECONDS  wait so long for the service in all; 60\n"
      "  --help             this text\n"
      "  --version          name and version\n"
      "\n"
      "What no option says, the environment may: a name in capitals above.  Port, group and macro\n"
      "are needed.  @OPER=AND or @OPER=OR among the words says how they are joined.\n"
      "Status: 0; 1 the answer carries an error line; 64 wrong use; 66 the answer is empty; 68 the\n"
      "host is unknown; 69 the service cannot be reached; 75 the time ran out.\n");
  ExpectVersion(KORVO_QUERY);
}

TEST(QueryTool, Options_BecomeFields) {
  std::string line;
  Exchange("x",
           {"--max-hits", "7", "--type", "T", "--host", "127.0.0.1", "--header", "SORT=-Date",
            "Name=a b", "--", "--odd", "-", "@OPER=OR"},
           &line);
  EXPECT_EQ(
      "\t@COMMAND=QUERY\t@SEARCHGROUP=sm1\t@RECTYPE=T\t@MACROFILE=/m/page\t@MAXHITS=7\t@SORT=-Date\tName=a b\t--odd -\t@OPER=OR\n",
      line);
}

TEST(QueryTool, Doc_SendsAGetdoc) {
  std::string line;
  EXPECT_EQ(0, Exchange("x", {"--doc", "17", "--type=T"}, &line).status);
  EXPECT_EQ("\t@COMMAND=GETDOC\t@SEARCHGROUP=sm1\t@RECTYPE=T\t@MACROFILE=/m/page\t@DOCNUM=17\n",
            line);
}

TEST(QueryTool, NothingIsSentBehindTheLine) {
  const Manager service;
  Tool tool(Query(service.Port(), {"hello", "world"}));
  Socket client = service.Accept();
  EXPECT_EQ(kLine, client.ReadLine());
  client.Send("x");
  shutdown(client.Fd(), SHUT_WR);
  EXPECT_EQ("", client.ReadAll());
  EXPECT_EQ(0, tool.Status());
}

TEST(QueryTool, ErrorLine_IsStatus1) {
  for (const char *answer : {"\t@COMMAND=ERROR\tUnable to locate SearchMgr\n",
                             "<head>\t@COMMAND=ERROR\tUnable to retreive document.<tail>"}) {
    const Outcome outcome = Exchange(answer);
    EXPECT_EQ(1, outcome.status);
    EXPECT_EQ(answer, outcome.output);
    EXPECT_EQ("", outcome.errors);
  }
}

TEST(QueryTool, LargeAnswer_ArrivesWhole) {
  std::string answer;
  for (int i = 0; i < 200000; ++i) answer += std::to_string(i) + "\n";
  EXPECT_EQ(answer, Exchange(answer).output);
}

TEST(QueryTool, AnswerIsWrittenAsItArrives) {
  const Manager service;
  Tool tool(Query(service.Port(), {"a"}));
  Socket client = service.Accept();
  client.ReadLine();
  client.Send("first");
  EXPECT_TRUE(Eventually([&] { return tool.Output() == "first"; }));
  client.Send("second");
  EXPECT_TRUE(Eventually([&] { return tool.Output() == "firstsecond"; }));
  client.Close();
  EXPECT_EQ(0, tool.Status());
}

// Before the tool starts.
std::function<void()> Environment(const std::vector<std::pair<const char *, std::string>> &values) {
  return [values] {
    for (const auto &[name, value] : values) setenv(name, value.c_str(), 1);
  };
}

TEST(QueryTool, Environment_SaysWhatNoOptionDoes) {
  const Manager service;
  Tool tool({KORVO_QUERY, "hello", "world"},
            Environment({{"KORVO_HOST", "localhost"},
                         {"KORVO_PORT", std::to_string(service.Port())},
                         {"KORVO_GROUP", "sm1"},
                         {"KORVO_MACRO", "/m/page"}}));
  Socket client = service.Accept();
  EXPECT_EQ(kLine, client.ReadLine());
  client.Send("page");
  client.Close();
  EXPECT_EQ(0, tool.Status());
  EXPECT_EQ("page", tool.Output());
}

TEST(QueryTool, Options_WinOverTheEnvironment) {
  const Manager service;
  Arguments argv = Query(service.Port(), {"--host", "127.0.0.1", "hello", "world"});
  Tool tool(argv, Environment({{"KORVO_HOST", "a..b"},
                               {"KORVO_PORT", "none"},
                               {"KORVO_GROUP", "other"},
                               {"KORVO_MACRO", "other"}}));
  Socket client = service.Accept();
  EXPECT_EQ(kLine, client.ReadLine());
  client.Send("page");
  client.Close();
  EXPECT_EQ(0, tool.Status());
}

TEST(QueryTool, Environment_IsCheckedAsOptionsAre) {
  const Arguments plain = {KORVO_QUERY, "a"};
  ExpectRefused(plain, 64, "KORVO_PORT takes a number from 1 to 32767, not '80x'",
                Environment({{"KORVO_PORT", "80x"}, {"KORVO_GROUP", "g"}, {"KORVO_MACRO", "m"}}));
  ExpectRefused(plain, 64,
                "--port (or KORVO_PORT) is missing: the port of the service, from 1 to 32767",
                Environment({{"KORVO_PORT", ""}, {"KORVO_GROUP", "g"}, {"KORVO_MACRO", "m"}}));
  ExpectRefused(
      plain, 64,
      "--macro (or KORVO_MACRO) holds a tab, newline or carriage return; a value goes without",
      Environment({{"KORVO_PORT", "1"}, {"KORVO_GROUP", "g"}, {"KORVO_MACRO", "m\n"}}));
}

TEST(QueryTool, HostThatIsUnknown_IsSaid) {
  const Manager service;
  ExpectRefused(Query(service.Port(), {"--host", "a..b", "a"}), 68,
                "cannot find the host 'a..b': Name or service not known");
  ExpectRefused(Query(service.Port(), {"--host", "::1", "a"}), 68,
                "cannot find the host '::1': Address family for hostname not supported");
  ExpectRefused(Query(service.Port(), {"--host", "127.0.0.1\n", "a"}), 68,
                "cannot find the host '127.0.0.1?': Name or service not known");
  EXPECT_FALSE(service.Called());
}

// A list of hosts that nobody ever finishes writing, in a view of the tool's own.
TEST(QueryTool, LookUpThatHangs_RunsOutOfTime) {
  const Folder folder;
  const std::string pipe = folder.Path() + "/hosts";
  ASSERT_EQ(0, mkfifo(pipe.c_str(), 0644));
  const auto hang = [&] {
    if (unshare(CLONE_NEWNS) != 0 || mount("", "/", nullptr, MS_PRIVATE | MS_REC, nullptr) != 0 ||
        mount(pipe.c_str(), "/etc/hosts", nullptr, MS_BIND, nullptr) != 0)
      _exit(127);
  };
  Tool tool(Query(1, {"--host", "localhost", "--timeout", "1", "a"}), hang);
  const int status = tool.Status();
  if (status == 127) GTEST_SKIP() << "no mount view of one's own here; it needs root";
  EXPECT_EQ(75, status);
  EXPECT_EQ("korvo-query: the host localhost was not found in time; --timeout gives it more\n",
            tool.Errors());
}

TEST(QueryTool, EmptyAnswer_IsSaid) {
  const Manager service;
  Tool tool(Query(service.Port(), {"a"}));
  Socket client = service.Accept();
  client.ReadLine();
  client.Close();
  EXPECT_EQ(66, tool.Status());
  EXPECT_EQ("korvo-query: 127.0.0.1/" + std::to_string(service.Port()) +
                " gave an empty answer: it cannot open the macro /m/page, or nothing was found and "
                "the macro has no frames\n",
            tool.Errors());
}

TEST(QueryTool, BrokenAnswer_IsUnavailable) {
  const Manager service;
  Tool tool(Query(service.Port(), {"a"}));
  Socket client = service.Accept();
  client.ReadLine();
  client.Send("half");
  EXPECT_TRUE(Eventually([&] { return tool.Output() == "half"; }));
  client.Reset();
  EXPECT_EQ(69, tool.Status());
  EXPECT_EQ("korvo-query: 127.0.0.1/" + std::to_string(service.Port()) +
                " broke off after 4 bytes: Connection reset by peer\n",
            tool.Errors());
}

sockaddr_in Loopback(int port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  return address;
}

// A socket that listens only if the backlog is 0 or more.
Socket Bound(int port, int backlog) {
  Socket sock(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_in address = Loopback(port);
  EXPECT_EQ(0, bind(sock.Fd(), reinterpret_cast<const sockaddr *>(&address), sizeof address));
  if (backlog >= 0) listen(sock.Fd(), backlog);
  return sock;
}

TEST(QueryTool, NobodyListens_IsUnavailable) {
  const int port = ReservePort();
  const Socket bound = Bound(port, -1);
  ExpectRefused(Query(port, {"a"}), 69,
                "cannot reach 127.0.0.1/" + std::to_string(port) + ": Connection refused");
}

TEST(QueryTool, SilentService_RunsOutOfTime) {
  const Manager service;
  ExpectRefused(Query(service.Port(), {"--timeout", "1", "a"}), 75,
                "127.0.0.1/" + std::to_string(service.Port()) +
                    " did not answer in time; --timeout gives it more");
}

TEST(QueryTool, ServiceWithAFullQueue_RunsOutOfTime) {
  const int port = ReservePort();
  const Socket listener = Bound(port, 0);
  const sockaddr_in address = Loopback(port);
  std::vector<Socket> waiting;
  pollfd last = {};
  do {  // until a connection finds no place
    waiting.emplace_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    connect(waiting.back().Fd(), reinterpret_cast<const sockaddr *>(&address), sizeof address);
    last = {waiting.back().Fd(), POLLOUT, 0};
  } while (poll(&last, 1, 200) > 0 && waiting.size() < 10);
  ASSERT_LT(waiting.size(), 10u);
  ExpectRefused(
      Query(port, {"--timeout", "1", "a"}), 75,
      "127.0.0.1/" + std::to_string(port) + " did not answer in time; --timeout gives it more");
}

TEST(QueryTool, WrongUse_IsOneLineAndNothingIsSent) {
  const Manager service;
  const int port = service.Port();
  ExpectRefused(Query(port, {"a\tb"}), 64,
                "an argument holds a tab, newline or carriage return; put a blank in its place");
  ExpectRefused(Query(port, {"--type", "T\n\t@MACROFILE=/x", "a"}), 64,
                "--type holds a tab, newline or carriage return; a value goes without");
  ExpectRefused(Query(port, {"@MACROFILE=/x"}), 64,
                "an argument begins with '@'; only @OPER=AND and @OPER=OR may");
  ExpectRefused(Query(port, {"--port", "32768", "a"}), 64,
                "--port takes a number from 1 to 32767, not '32768'");
  ExpectRefused(Query(port, {"--port", "8001\t", "a"}), 64,
                "--port takes a number from 1 to 32767, not '8001?'");
  ExpectRefused(Query(port, {"--max-hits", "-1", "a"}), 64,
                "--max-hits takes a number from 0 to 2147483647, not '-1'");
  ExpectRefused(Query(port, {"--max-hits", "2147483648", "a"}), 64,
                "--max-hits takes a number from 0 to 2147483647, not '2147483648'");
  ExpectRefused(Query(port, {"--doc", ""}), 64,
                "--doc takes a number from 0 to 2147483647, not ''");
  ExpectRefused(Query(port, {"--timeout", "0", "a"}), 64,
                "--timeout takes a number from 1 to 86400, not '0'");
  ExpectRefused(Query(port, {"--colour", "a"}), 64,
                "--colour is no option that can stand here; --help lists all");
  ExpectRefused(Query(port, {"a", "--type"}), 64, "--type needs a value; --help shows which");
  ExpectRefused({KORVO_QUERY, "--group", "g", "--macro", "m", "a"}, 64,
                "--port (or KORVO_PORT) is missing: the port of the service, from 1 to 32767");
  ExpectRefused({KORVO_QUERY, "--port", "1", "--macro", "m", "a"}, 64,
                "--group (or KORVO_GROUP) is missing: a request names a group and a macro");
  EXPECT_FALSE(service.Called());
}

TEST(QueryTool, ClosedStandardOutput_DoesNotReachTheService) {
  const Manager service;
  Tool tool(Query(service.Port(), {"hello", "world"}), [] { close(0), close(1); });
  Socket client = service.Accept();
  EXPECT_EQ(kLine, client.ReadLine());
  client.Send("page");
  EXPECT_EQ("", client.ReadAll());
  EXPECT_EQ(74, tool.Status());
}

// A terminal as standard output, whose text arrives as it was written.
class Terminal {
 public:
  Terminal() : master_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    if (master_ >= 0 && grantpt(master_) == 0 && unlockpt(master_) == 0)
      slave_ = open(ptsname(master_), O_RDWR | O_NOCTTY | O_CLOEXEC);
  }
  ~Terminal() { close(master_), close(slave_); }
  bool Works() const { return slave_ >= 0; }
  void Use() const { dup2(slave_, 1); }
  std::string Read(std::size_t size) const {
    std::string text;
    char buffer[1000];
    pollfd ready = {master_, POLLIN, 0};
    while (text.size() < size && poll(&ready, 1, kPatienceMs) > 0) {
      const ssize_t got = read(master_, buffer, sizeof buffer);
      if (got <= 0) break;
      text.append(buffer, static_cast<std::size_t>(got));
    }
    return text;
  }

 private:
  int master_;
  int slave_ = -1;
};

std::string OnTerminal(const Terminal &terminal, const Arguments &more, std::size_t size) {
  const Manager service;
  Tool tool(Query(service.Port(), more), [&] { terminal.Use(); });
  Socket client = service.Accept();
  client.ReadLine();
  client.Send("a\n\x1b[31mred");
  client.Close();
  EXPECT_EQ(0, tool.Status());
  return terminal.Read(size);
}

TEST(QueryTool, Terminal_IsShownControlCharacters) {
  const Terminal terminal;
  if (!terminal.Works()) GTEST_SKIP() << "no pseudo-terminals here";
  const std::string wanted = "a\r\n\\x1b[31mred\r\n";  // the terminal makes line ends of its own
  EXPECT_EQ(wanted, OnTerminal(terminal, {"a"}, wanted.size()));
}

TEST(QueryTool, TerminalAndRaw_GetsTheAnswerAsItCame) {
  const Terminal terminal;
  if (!terminal.Works()) GTEST_SKIP() << "no pseudo-terminals here";
  const std::string wanted = "a\r\n\x1b[31mred";
  EXPECT_EQ(wanted, OnTerminal(terminal, {"--raw", "a"}, wanted.size()));
}

TEST(QueryTool, RealService_AnswersWithAPage) {
  Daemon daemon;
  const Manager search, documents;
  daemon.Announce('S', "sm1", search);
  daemon.Announce('D', "dm1", documents);
  const std::string macro = daemon.Files().Path() + "/page";
  daemon.Files().Write("page.hdr", "[");
  daemon.Files().Write("page.tail", "]\n");
  EXPECT_EQ(0, RunTool({KORVO_MACRO, "asm", "-", "-o", macro + ".mo"}, "value \"Name\"\n").status);

  Tool tool({KORVO_QUERY, "--port", std::to_string(daemon.ClientPort()), "--group", "sm1",
             "--macro", macro, "hello"});
  Socket query = search.Accept();
  EXPECT_EQ("\t@COMMAND=QUERY\t@SEARCHGROUP=sm1\t@MACROFILE=" + macro + "\thello\n",
            query.ReadLine());
  query.Send("\t@COMMAND=HIT\t@SEARCHGROUP=dm1\t@DOCNUM=5\n\t@COMMAND=SEARCHCOMPLETE\n");
  Socket fetch = documents.Accept();
  fetch.ReadLine();
  fetch.Send("\t@COMMAND=HIT\tName=five\t\n");
  EXPECT_EQ(0, tool.Status());
  EXPECT_EQ("[five]\n", tool.Output());
}

TEST(QueryTool, RealService_SaysWhatIsWrong) {
  const Daemon daemon;
  const std::string macro = daemon.Files().Path() + "/page",
                    port = std::to_string(daemon.ClientPort());
  const Outcome lost =
      RunTool({KORVO_QUERY, "--port", port, "--group", "sm1", "--macro", macro, "a"});
  EXPECT_EQ(66, lost.status);
  EXPECT_EQ("korvo-query: 127.0.0.1/" + port + " gave an empty answer: it cannot open the macro " +
                macro + ", or nothing was found and the macro has no frames\n",
            lost.errors);
  daemon.Files().Write("page.mo", "");
  const Outcome query =
      RunTool({KORVO_QUERY, "--port", port, "--group", "sm1", "--macro", macro, "a"});
  EXPECT_EQ(1, query.status);
  EXPECT_EQ("\t@COMMAND=ERROR\tUnable to locate SearchMgr\n", query.output);
  const Outcome getdoc =
      RunTool({KORVO_QUERY, "--port", port, "--group", "dm1", "--macro", macro, "--doc", "1"});
  EXPECT_EQ(1, getdoc.status);
  EXPECT_EQ("\t@COMMAND=ERROR\tUnable to locate Document Server.", getdoc.output);
}

}  // namespace
