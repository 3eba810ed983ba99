#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <thread>

#include "tests/tools/run.h"

namespace {

constexpr const char *kAnswer =
    "searchmgr < record QUERY\n"
    "searchmgr > \"\\t@COMMAND=HIT\\t@DOCNUM=1\\n\\t@COMMAND=SEARCHCOMPLETE\\n\"\n"
    "searchmgr closes\n";
constexpr const char *kQuery = "\t@COMMAND=QUERY\tx\n";
constexpr const char *kHit = "\t@COMMAND=HIT\t@DOCNUM=1\n";
constexpr const char *kComplete = "\t@COMMAND=SEARCHCOMPLETE\n";

std::string At(int port) { return "127.0.0.1:" + std::to_string(port); }

bool Listens(int port) {
  const Socket sock(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in addr = {};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  addr.sin_port = htons(static_cast<std::uint16_t>(port));
  return connect(sock.Fd(), reinterpret_cast<const sockaddr *>(&addr), sizeof addr) == 0;
}

// What a client gets from a Search Manager that is played with those options.
std::string AnswerOf(const Arguments &options, int *status = nullptr) {
  const Folder folder;
  const int port = ReservePort();
  Arguments argv = {KORVO_WIRE, "play", "--times", "2", "--port", std::to_string(port)};
  argv.insert(argv.end(), options.begin(), options.end());
  argv.push_back(folder.Write("a.transcript", kAnswer));
  Tool tool(argv);
  EXPECT_TRUE(Eventually([&] { return Listens(port); }));  // the first of two connections
  const Socket client = ConnectTo(port);
  client.Send(kQuery);
  std::string answer;
  if (std::find(options.begin(), options.end(), "hangs") != options.end()) {
    answer = std::string(kHit).substr(0, 25);
    for (const char byte : answer) {
      char got = 0;
      EXPECT_EQ(1, recv(client.Fd(), &got, 1, 0));
      EXPECT_EQ(byte, got);
    }
    EXPECT_FALSE(client.Readable(50));
    shutdown(client.Fd(), SHUT_WR);
  } else {
    answer = client.ReadAll();
    shutdown(client.Fd(), SHUT_WR);
  }
  const int ended = tool.Status();
  if (status != nullptr) *status = ended;
  ReleasePort(port);
  return answer;
}

TEST(WirePlay, ASearchManager_AnswersAsWritten) {
  EXPECT_EQ(std::string(kHit) + kComplete, AnswerOf({}));
  EXPECT_EQ(std::string(kHit) + kComplete, AnswerOf({"--misbehave", "drips"}));
}

// The first record has that size and is right but for it: no field is too long, and the last ones
// are those of the transcript.
void ExpectFilled(std::size_t size) {
  const std::string answer = AnswerOf({"--misbehave", std::to_string(size) + "-bytes"});
  const std::string record = answer.substr(0, answer.find('\n') + 1);
  EXPECT_EQ(size, record.size());
  EXPECT_TRUE(record.starts_with("\t@Y=yyy"));
  EXPECT_TRUE(record.ends_with(kHit));
  EXPECT_EQ(kComplete, answer.substr(record.size()));
  for (std::size_t at = 0; at + 1 < record.size();) {
    const std::size_t end = record.find_first_of("\t\n", at + 1);
    EXPECT_EQ("\t@", record.substr(at, 2));
    EXPECT_GE(1024u, end - at - 1);
    at = end;
  }
}

TEST(WirePlay, Misbehaviours_AreWhatTheySay) {
  const std::string all = std::string(kHit) + kComplete;
  AnswerOf({"--misbehave", "hangs"});
  EXPECT_EQ(all, AnswerOf({"--misbehave", "half-closes"}));
  // A reset may take what was not read yet.
  EXPECT_EQ(0u, all.substr(0, all.size() / 2).find(AnswerOf({"--misbehave", "resets"})));
  EXPECT_EQ("\t@COMMAND=HIT\t@DOCNUM=1", AnswerOf({"--misbehave", "no-newline"}));
  EXPECT_EQ("\t@COMMAND=UNKNOWN\tx\n" + all, AnswerOf({"--misbehave", "unknown-words"}));
  std::string nul = all;
  nul.insert(nul.find('\n'), 1, '\0');
  EXPECT_EQ(nul, AnswerOf({"--misbehave", "nuls"}));
  ExpectFilled(40960);
  ExpectFilled(40961);
  std::string many;
  for (int i = 0; i < 10000; ++i) many += kHit;
  EXPECT_EQ(many + kComplete, AnswerOf({"--misbehave", "10000-hits"}));
}

TEST(WirePlay, ARecordThatIsFilled_NamesItsDocument) {
  const Folder folder;
  Daemon daemon;
  const Manager documents;
  daemon.Announce('D', "packages", documents);
  const std::string macro = folder.Write("page.mo", TextOp("x") + EndOp());
  daemon.SetLevel("INFO");
  const int port = ReservePort();
  Tool tool({KORVO_WIRE, "play", "--misbehave", "40960-bytes", "--port", std::to_string(port),
             "--announce", At(daemon.AdminPort()),
             folder.Write("a.transcript",
                          "searchmgr > \"\\t@COMMAND=HIT\\t@SEARCHGROUP=packages"
                          "\\t@DOCNUM=17\\n\"\nsearchmgr closes\n")});
  // It listens before it announces itself.
  EXPECT_TRUE(daemon.Program().WaitForLog("[Init: RecvAnn] Child ID       = packages\n"));
  daemon.Ping();
  const Socket client = daemon.Client();
  client.Send("\t@COMMAND=QUERY\t@SEARCHGROUP=packages\t@MACROFILE=" +
              macro.substr(0, macro.size() - 3) + "\tx\n");
  EXPECT_NE(std::string::npos, documents.Accept().ReadLine().find("\t@DOCNUM=17\t"));
  tool.Signal(SIGTERM);
  tool.Wait();
  ReleasePort(port);
}

TEST(WirePlay, AClient_SaysWhatDiffers) {
  const Folder folder;
  const std::string file =
      folder.Write("a.transcript", "case a\nclient > \"x\\n\"\nclient < \"y\\n\"\nclient < end\n");
  for (const bool same : {true, false}) {
    const Manager manager;
    Tool tool({KORVO_WIRE, "play", "--case", "a", "--as", "client", "--patience", "5000", "--to",
               At(manager.Port()), file});
    {
      const Socket sock = manager.Accept();
      EXPECT_EQ("x\n", sock.ReadLine());
      sock.Send(same ? "y\n" : "z\n");
    }
    EXPECT_EQ(same ? 0 : 1, tool.Status());
    EXPECT_EQ(same ? "" : "korvo-wire: " + file + ":3: expected \"y\\n\"; came \"z\\n\"\n",
              tool.Errors());
  }
}

TEST(WirePlay, AManager_AnnouncesItself) {
  const Folder folder;
  Daemon daemon;
  daemon.SetLevel("INFO");
  const int port = ReservePort();
  Tool tool({KORVO_WIRE, "play", "--port", std::to_string(port), "--announce",
             At(daemon.AdminPort()), folder.Write("a.transcript", kAnswer)});
  EXPECT_TRUE(daemon.Program().WaitForLog("[Init: RecvAnn] Child ID       = packages\n"));
  tool.Signal(SIGTERM);
  tool.Wait();
  ReleasePort(port);
}

// A tap before a manager; what a client gets, and what the tap says with 0 for every time.
struct Tapped {
  std::string answer, line;
};

Tapped Through(const Arguments &options, const Manager &manager, bool answers = true) {
  const int port = ReservePort();
  Arguments argv = {KORVO_WIRE, "tap"};
  argv.insert(argv.end(), options.begin(), options.end());
  argv.insert(argv.end(), {At(port), At(answers ? manager.Port() : ReservePort())});
  Tool tap(argv);
  EXPECT_TRUE(Eventually([&] { return Listens(port); }));
  if (answers) {
    // The connection that has found the tap ready.
    const Socket probe = manager.Accept();
  }
  EXPECT_TRUE(Eventually([&] { return tap.Output().find('\n') != std::string::npos; }));
  const std::size_t before = tap.Output().size();
  const Socket client = ConnectTo(port);
  client.Send("\t@COMMAND=QUERY\t@SEARCHGROUP=packages\t@SCRIPT=html mark:x\tsecret words\n");
  shutdown(client.Fd(), SHUT_WR);
  if (answers) {
    const Socket server = manager.Accept();
    EXPECT_EQ("\t@COMMAND=QUERY\t@SEARCHGROUP=packages\t@SCRIPT=html mark:x\tsecret words\n",
              server.ReadLine());
    EXPECT_EQ("", server.ReadAll());
    server.Send(std::string(kHit) + "\t@COMMAND=ERROR\tno\n");
  }
  Tapped tapped = {client.ReadAll(), ""};
  EXPECT_TRUE(Eventually([&] {
    tapped.line = tap.Output().substr(before);
    return tapped.line.ends_with("\n");
  }));
  tapped.line =
      std::regex_replace(tapped.line, std::regex("\"time\":\"[^\"]*\""), "\"time\":\"T\"");
  tapped.line = std::regex_replace(tapped.line, std::regex("\"number\":\\d+"), "\"number\":0");
  tapped.line = std::regex_replace(tapped.line, std::regex("_ms\":[0-9.]+"), "_ms\":0");
  tap.Signal(SIGTERM);
  tap.Wait();
  ReleasePort(port);
  return tapped;
}

// The transcript of the last exchange, from its second line on.
std::string LastRecord(const Folder &folder) {
  std::string last;
  for (const auto &entry : std::filesystem::directory_iterator(folder.Path() + "/r"))
    last = std::max(last, entry.path().string());
  EXPECT_EQ(folder.Path() + "/r" + "/000002.transcript", last);
  const std::string text = ReadFile(last);
  EXPECT_TRUE(std::regex_search(text, std::regex("^wait \\d+ ms\n")));
  return text.substr(text.find('\n') + 1);
}

TEST(WireTap, AnExchange_IsALineAndATranscript) {
  const Folder folder;
  const Manager manager;
  const Tapped tapped = Through({"--record", folder.Path() + "/r"}, manager);
  EXPECT_EQ(std::string(kHit) + "\t@COMMAND=ERROR\tno\n", tapped.answer);
  EXPECT_EQ(
      "{\"time\":\"T\",\"number\":0,\"command\":\"QUERY\",\"group\":\"packages\",\"request\":\"\\t@COMMAND=QUERY\\t@SEARCHGROUP=packages\\t@SCRIPT=html mark:x\\tsecret words\\n\",\"request_bytes\":71,\"answer_bytes\":43,\"hits\":1,\"errors\":1,\"connected_ms\":0,\"request_ms\":0,\"first_ms\":0,\"end_ms\":0,\"end\":\"closed\"}\n",
      tapped.line);
  EXPECT_EQ(
      "client > \"\\t@COMMAND=QUERY\\t@SEARCHGROUP=packages\\t@SCRIPT=html mark:x\\tsecret words\\n\"\n"
      "client half-closes\n"
      "client < \"\\t@COMMAND=HIT\\t@DOCNUM=1\\n\\t@COMMAND=ERROR\\tno\\n\"\n"
      "client < end\n",
      LastRecord(folder));
}

TEST(WireTap, Redacted_NothingOfTheUserIsLeft) {
  const Folder folder;
  const Manager manager;
  const Tapped tapped = Through({"--redact", "--record", folder.Path() + "/r"}, manager);
  EXPECT_EQ(std::string::npos, tapped.line.find("secret"));
  EXPECT_NE(std::string::npos, tapped.line.find("\\t@SCRIPT=xxxxxxxxxxx\\txxxxxxxxxxxx\\n"));
  EXPECT_EQ(
      "client > \"\\t@COMMAND=QUERY\\t@SEARCHGROUP=packages\\t@SCRIPT=xxxxxxxxxxx\\txxxxxxxxxxxx\\n\"\n"
      "client half-closes\n"
      "client < bytes 43\n"
      "client < end\n",
      LastRecord(folder));
}

TEST(WireTap, ATargetThatIsGone_IsRefused) {
  const Manager manager;
  const Tapped tapped = Through({}, manager, false);
  EXPECT_NE(std::string::npos, tapped.line.find("\"end\":\"refused\"}\n")) << tapped.line;
}

struct Redaction {
  const char *request;
  const char *written;  // as in a transcript
};

// A line of a client and what is left of it; a name of a field is shown when the wire knows it, a
// value when the client, and not a person, chose it.
constexpr Redaction kRedactions[] = {
    {"\t@COMMAND=QUERY\t@SEARCHGROUP=g\t@MACROFILE=/m\t@MAXHITS=2\t@FIRSTHIT=20\tsecret words\n",
     "\\t@COMMAND=QUERY\\t@SEARCHGROUP=g\\t@MACROFILE=/m\\t@MAXHITS=2\\t@FIRSTHIT=20\\txxxxxxxxxxxx\\n"},
    {"\t@COMMAND=GETDOC\t@SEARCHGROUP=g\t@RECTYPE=r\t@DOCNUM=17\n",
     "\\t@COMMAND=GETDOC\\t@SEARCHGROUP=g\\t@RECTYPE=r\\t@DOCNUM=17\\n"},
    {"\t@COMMAND=QUERY\t@RECTYPE=secret\n", "\\t@COMMAND=QUERY\\t@RECTYPE=xxxxxx\\n"},
    {"\t@COMMAND=QUERY\t@AUTHCODE=bob:secret\t@FILENAME=bob\t@SORT=bob\tsecret\n",
     "\\t@COMMAND=QUERY\\t@AUTHCODE=xxxxxxxxxx\\t@FILENAME=xxx\\t@SORT=xxx\\txxxxxx\\n"},
    {"\t@COMMAND=QUERY\t@secret words\t@MAXHITS=2\n",
     "\\t@COMMAND=QUERY\\txxxxxxxxxxxxx\\txxxxxxxxxx\\n"},
    {"\t@COMMAND=QUERY\t@bob=secret\r@MAXHITS=2\r\n",
     "\\t@COMMAND=QUERY\\t@xxx=xxxxxx\\x0d@MAXHITS=2\\x0d\\n"},
    {"\t@COMMAND=QUERY\t@SEARCHGROUP=g\t@SEARCHGROUP=secret\t@COMMAND=secret\n",
     "\\t@COMMAND=QUERY\\t@SEARCHGROUP=g\\t@SEARCHGROUP=xxxxxx\\t@COMMAND=xxxxxx\\n"},
    {"\t@COMMAND=QUERY\t@DEADLINE=500\t@STATUS=1\t@BESTFIT=bob\n",
     "\\t@COMMAND=QUERY\\t@DEADLINE=500\\t@STATUS=1\\t@BESTFIT=xxx\\n"},
    {"\t@COMMAND=secret\t@MAXHITS=2 bob\t@DOCNUM=\n",
     "\\t@COMMAND=xxxxxx\\t@MAXHITS=xxxxx\\t@DOCNUM=\\n"},
    {"\t@COMMAND=QUERY\t@OPER=secret\t@MAXHITS=2\n",
     "\\t@COMMAND=QUERY\\txxxxxxxxxxxx\\txxxxxxxxxx\\n"},
    {"secret\t@COMMAND=QUERY\n", "xxxxxx\\txxxxxxxxxxxxxx\\n"},
    {"\t@COMMAND=QUERY\tsec\nbob\n\t@MACROFILE=bob\n", "\\t@COMMAND=QUERY\\txxx\\n"},
};

TEST(WireTap, Redacted_ALineInAnyFormAndInPieces) {
  for (const std::size_t piece : {std::size_t{4096}, std::size_t{5}}) {
    const Folder folder;
    const Manager manager;
    const int port = ReservePort();
    Tool tap({KORVO_WIRE, "tap", "--redact", "--record", folder.Path() + "/r", At(port),
              At(manager.Port())});
    EXPECT_TRUE(Eventually([&] { return Listens(port); }));
    manager.Accept().ReadAll();  // the connection that has found the tap ready
    std::size_t number = 1;
    for (const Redaction &redaction : kRedactions) {
      const std::string request = redaction.request;
      {
        const Socket client = ConnectTo(port);
        for (std::size_t at = 0; at < request.size(); at += piece)
          client.Send(request.substr(at, piece));
        shutdown(client.Fd(), SHUT_WR);
        EXPECT_EQ(request, manager.Accept().ReadAll());
        client.ReadAll();
      }
      ++number;
      const std::string path = folder.Path() + "/r/" + std::string(number < 10 ? "00000" : "0000") +
                               std::to_string(number) + ".transcript";
      EXPECT_TRUE(Eventually([&] { return std::filesystem::exists(path); }));
      const std::string record = ReadFile(path);
      EXPECT_NE(std::string::npos,
                record.find("\nclient > \"" + std::string(redaction.written) + "\"\n"))
          << redaction.written << "\n"
          << record;
    }
    EXPECT_EQ(std::string::npos, tap.Output().find("secret"));
    EXPECT_EQ(std::string::npos, tap.Output().find("bob"));
    tap.Signal(SIGTERM);
    tap.Wait();
    ReleasePort(port);
  }
}

// A manager that answers each of so many connections with that.
void Answer(const Manager &manager, int connections, const std::string &bytes) {
  for (int i = 0; i < connections; ++i) {
    const Socket sock = manager.Accept();
    sock.ReadLine();
    sock.Send(bytes);
  }
}

TEST(WireReplay, Answers_AreComparedWithTheRecording) {
  const Folder folder;
  const std::string file = folder.Write(
      "000001.transcript", "wait 5 ms\nclient > \"x\\n\"\nclient < \"abc\"\nclient < end\n");
  for (const char *answer : {"abc", "abd"}) {
    const Manager manager;
    Tool tool({KORVO_WIRE, "replay", "--speed", "10", "--to", At(manager.Port()), folder.Path()});
    Answer(manager, 1, answer);
    const bool same = std::string(answer) == "abc";
    EXPECT_EQ(same ? 0 : 1, tool.Status());
    EXPECT_EQ(same ? "1 exchanges: 1 the same, 0 differ\n"
                   : "differs: " + file +
                         ": byte 3 was \"c\" and is \"d\"\n1 exchanges: 0 the same, 1 differ\n",
              tool.Output());
  }
}

// A tap that forwards to a manager and is ready.
class Relay {
 public:
  explicit Relay(const Manager &manager, const Arguments &options = {},
                 const std::function<void()> &prepare = {}, const std::string &shell = "")
      : port_(ReservePort()), tap_(Command(options, At(manager.Port()), shell), prepare) {
    EXPECT_TRUE(Eventually([&] { return Listens(port_); }));
    manager.Accept().ReadAll();
  }
  ~Relay() {
    tap_.Signal(SIGTERM);
    tap_.Wait();
    ReleasePort(port_);
  }
  int Port() const { return port_; }
  std::string Errors() const { return tap_.Errors(); }
  // The line of JSON of the exchange of that number, when it is there.
  std::string Line(int number) const {
    const std::string wanted = "\"number\":" + std::to_string(number) + ",";
    std::string line;
    EXPECT_TRUE(Eventually([&] {
      const std::string all = tap_.Output();
      const std::size_t at = all.find(wanted);
      if (at == std::string::npos || all.find('\n', at) == std::string::npos) return false;
      line = all.substr(all.rfind('\n', at) + 1, all.find('\n', at) - all.rfind('\n', at) - 1);
      return true;
    }));
    return line;
  }

 private:
  Arguments Command(const Arguments &options, const std::string &forward,
                    const std::string &shell) const {
    Arguments argv = {KORVO_WIRE, "tap"};
    if (!shell.empty()) argv = {"/bin/sh", "-c", "exec $0 $* " + shell, KORVO_WIRE, "tap"};
    argv.insert(argv.end(), options.begin(), options.end());
    argv.insert(argv.end(), {At(port_), forward});
    return argv;
  }

  int port_;
  Tool tap_;
};

// The last of two fields counts, and what stands in the predicate is no field.
TEST(WireTap, CommandAndGroup_AreWhatTheDaemonReads) {
  const Manager manager;
  const Relay relay(manager);
  const Socket client = ConnectTo(relay.Port());
  client.Send("\t@SEARCHGROUP=a\t@COMMAND=X\t@SEARCHGROUP=b\t@COMMAND=QUERY\tx\t@COMMAND=Y\n");
  shutdown(client.Fd(), SHUT_WR);
  manager.Accept().ReadAll();
  EXPECT_NE(std::string::npos, relay.Line(2).find(",\"command\":\"QUERY\",\"group\":\"b\","));
}

TEST(WireTap, HitsAndErrors_AreRecordsOfTheAnswer) {
  const Manager manager;
  const Relay relay(manager);
  const Socket client = ConnectTo(relay.Port());
  client.Send(kQuery);
  {
    const Socket server = manager.Accept();
    server.ReadLine();
    server.Send("\t@DOCNUM=1\t@COMMAND=HIT\n\t@COMMAND=HIT\n\t@COMM");
    EXPECT_TRUE(client.Readable(kPatienceMs));
    server.Send("AND=HIT\t@DOCNUM=2\n\t@COMMAND=RAW\t\t@COMMAND=HIT\t\nx\t@COMMAND=ERROR\ty");
  }
  EXPECT_NE(std::string::npos, relay.Line(2).find("\"hits\":3,\"errors\":1,"));
}

TEST(WireTap, AClientThatResets_IsRecordedAsOne) {
  const Folder folder;
  const Manager manager;
  const Relay relay(manager, {"--record", folder.Path() + "/r"});
  Socket client = ConnectTo(relay.Port());
  client.Send(kQuery);
  const Socket server = manager.Accept();
  EXPECT_EQ(kQuery, server.ReadLine());
  client.Reset();
  server.ReadAll();
  EXPECT_NE(std::string::npos, relay.Line(2).find("\"end\":\"reset\"}"));
  const std::string record = ReadFile(folder.Path() + "/r/000002.transcript");
  EXPECT_TRUE(record.ends_with("\nclient > \"\\t@COMMAND=QUERY\\tx\\n\"\nclient resets\n"))
      << record;
}

// An exchange through the relay is whole.
void ExpectForwarded(const Relay &relay, const Manager &manager, const std::string &request) {
  const Socket client = ConnectTo(relay.Port());
  client.Send(request);
  {
    const Socket server = manager.Accept();
    EXPECT_EQ(request, server.ReadLine());
    server.Send(kComplete);
  }
  EXPECT_EQ(kComplete, client.ReadAll());
}

void ExpectLoss(const Relay &relay, const std::string &what) {
  const std::string line =
      "korvo-wire: cannot write " + what + "; what cannot be written is left out\n";
  EXPECT_TRUE(Eventually([&] { return relay.Errors() == line; })) << relay.Errors();
}

// What stands before the client port holds nobody because its disk is full.
TEST(WireTap, WhatCannotBeWritten_IsSaidOnceAndForwarded) {
  const Folder folder;
  const Manager manager;
  const Relay relay(manager, {"--record", folder.Path() + "/r"});
  relay.Line(1);
  std::filesystem::remove_all(folder.Path() + "/r");
  for (int number = 2; number < 4; ++number) {
    ExpectForwarded(relay, manager, kQuery);
    relay.Line(number);
  }
  ExpectLoss(relay, folder.Path() + "/r/000002.transcript: No such file or directory");
}

// A disk that takes its time: nobody reads the other end of the second recording.
TEST(WireTap, ARecordingThatTakesItsTime_HoldsNobody) {
  const Folder folder;
  std::filesystem::create_directory(folder.Path() + "/r");
  ASSERT_EQ(0, mkfifo((folder.Path() + "/r/000002.transcript.part").c_str(), 0600));
  const Manager manager;
  const Relay relay(manager, {"--record", folder.Path() + "/r"});
  for (int i = 0; i < 3 && !HasFailure(); ++i) ExpectForwarded(relay, manager, kQuery);
}

TEST(WireTap, RecordingsThatWait_AreLimited) {
  const Folder folder;
  const std::string r = folder.Path() + "/r", answer(11 << 20, '\x01');  // four times that, written
  std::filesystem::create_directory(r);
  ASSERT_EQ(0, mkfifo((r + "/000002.transcript.part").c_str(), 0600));
  const Manager manager;
  const Relay relay(manager, {"--record", r});
  for (int i = 0; i < 3 && !HasFailure(); ++i) {
    const Socket client = ConnectTo(relay.Port());
    client.Send(kQuery);
    std::string got;
    std::thread reader([&] { got = client.ReadAll(); });
    {
      const Socket server = manager.Accept();
      EXPECT_EQ(kQuery, server.ReadLine());
      server.Send(answer);
    }
    reader.join();
    EXPECT_TRUE(got == answer);
  }
  ExpectLoss(relay, r + "/000004.transcript: more than 134217728 bytes wait");
  relay.Line(4);
}

TEST(WireTap, Recordings_GoOnBehindTheHighestNumber) {
  const Folder folder;
  std::filesystem::create_directory(folder.Path() + "/r");
  folder.Write("r/000041.transcript", "old");
  folder.Write("r/1000000.notes", "");
  folder.Write("r/7x.transcript", "");
  const Manager manager;
  const Relay relay(manager, {"--record", folder.Path() + "/r"});
  relay.Line(42);
  EXPECT_EQ("old", ReadFile(folder.Path() + "/r/000041.transcript"));
  EXPECT_TRUE(ReadFile(folder.Path() + "/r/000042.transcript").ends_with("client < end\n"));
  EXPECT_FALSE(std::filesystem::exists(folder.Path() + "/r/000001.transcript"));
}

TEST(WireTap, RecordingsAreWritten_ThoughNobodyReadsTheLines) {
  const Folder folder;
  const std::string pipe = folder.Path() + "/pipe", last = folder.Path() + "/r/000101.transcript";
  ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
  const Socket reader(open(pipe.c_str(), O_RDWR | O_CLOEXEC));
  const Manager manager;
  const Relay relay(manager, {"--record", folder.Path() + "/r"}, {}, ">" + pipe);
  const std::string request = "\t@COMMAND=QUERY\t" + std::string(4000, '\x01') + "\n";
  for (int i = 0; i < 100 && !HasFailure(); ++i) ExpectForwarded(relay, manager, request);
  EXPECT_TRUE(Eventually([&] { return std::filesystem::exists(last); }));
}

TEST(WireTap, AStandardOutputThatIsFull_HoldsNobody) {
  const Manager manager;
  const Relay relay(manager, {}, {}, ">/dev/full");
  for (int i = 0; i < 2; ++i) ExpectForwarded(relay, manager, kQuery);
  ExpectLoss(relay, "to standard output: No space left on device");
}

TEST(WireTap, AStandardOutputThatNobodyReads_HoldsNobody) {
  for (const bool gone : {false, true}) {
    const Folder folder;
    const std::string pipe = folder.Path() + "/pipe";
    ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
    Socket reader(open(pipe.c_str(), O_RDWR | O_CLOEXEC));
    const Manager manager;
    const Relay relay(manager, {}, {}, ">" + pipe);
    if (gone) reader.Close();
    const std::string request = "\t@COMMAND=QUERY\t" + std::string(4000, '\x01') + "\n";
    for (int i = 0; i < (gone ? 2 : 100) && !HasFailure(); ++i)
      ExpectForwarded(relay, manager, request);
    ExpectLoss(relay,
               gone ? "to standard output: Broken pipe" : "to standard output: nobody reads it");
  }
}

// Whoever finds no descriptor free waits for one.
TEST(WireTap, MoreConnectionsThanDescriptors_AreServedInTurn) {
  const Manager manager;
  const Relay relay(manager, {}, [] {
    const rlimit few = {12, 12};
    setrlimit(RLIMIT_NOFILE, &few);
  });
  std::vector<Socket> clients;
  for (int i = 0; i < 20; ++i) {
    clients.push_back(ConnectTo(relay.Port()));
    clients.back().Send(kQuery);
  }
  for (const Socket &client : clients) {
    const Socket server = manager.Accept();
    EXPECT_EQ(kQuery, server.ReadLine());
    server.Send(kComplete);
    shutdown(server.Fd(), SHUT_WR);
    EXPECT_EQ(kComplete, client.ReadAll());
  }
}

TEST(WireReplay, AClientThatLeftEarly_LeavesAgain) {
  const Folder folder;
  folder.Write("000001.transcript",
               "client > \"x\"\nclient half-closes\nclient > \"\"\nclient < end\n");
  folder.Write("000002.transcript", "client > \"y\\n\"\nclient < \"ab\"\nclient resets\n");
  const Manager manager;
  Tool tool(
      {KORVO_WIRE, "replay", "--patience", "5000", "--to", At(manager.Port()), folder.Path()});
  std::vector<Socket> open;
  for (int i = 0; i < 2; ++i) {
    open.push_back(manager.Accept());
    const std::string line = open.back().ReadLine();
    if (line == "x")
      open.pop_back();
    else
      open.back().Send("abcdef");  // and goes on
  }
  EXPECT_EQ(0, tool.Status());
  EXPECT_EQ("2 exchanges: 2 the same, 0 differ\n", tool.Output());
}

TEST(WireReplay, AnAnswerThatIsReset_DiffersFromOneThatEnds) {
  for (const bool resets : {true, false}) {
    const Folder folder;
    const std::string file =
        folder.Write("000001.transcript", std::string("client > \"x\\n\"\nclient < ") +
                                              (resets ? "end" : "reset") + "\n");
    const Manager manager;
    Tool tool({KORVO_WIRE, "replay", "--to", At(manager.Port()), folder.Path()});
    Socket server = manager.Accept();
    EXPECT_EQ("x\n", server.ReadLine());
    resets ? server.Reset() : server.Close();
    EXPECT_EQ(1, tool.Status());
    EXPECT_EQ("differs: " + file + ": " +
                  (resets ? "it ends in a reset now" : "it ended in a reset then") +
                  "\n1 exchanges: 0 the same, 1 differ\n",
              tool.Output());
  }
}

// A recording goes on for longer than a step may wait.
TEST(WireReplay, WaitsInFrontAreAddedUp) {
  const Folder folder;
  folder.Write("000001.transcript",
               "wait 3600000 ms\nclient > \"x\\n\"\nclient < \"a\"\nclient < end\n");
  folder.Write("000002.transcript",
               "wait 3600000 ms\nwait 3600000 ms\nclient > \"y\\n\"\nclient < end\n");
  const Manager manager;
  Tool tool({KORVO_WIRE, "replay", "--to", At(manager.Port()), folder.Path()});
  Answer(manager, 1, "a");
  EXPECT_FALSE(Eventually([&] { return manager.Called(); }, 200));
  tool.Signal(SIGTERM);
  tool.Wait();
  Tool fast({KORVO_WIRE, "replay", "--speed", "100000", "--to", At(manager.Port()), folder.Path()});
  Answer(manager, 1, "a");
  Answer(manager, 1, "");
  EXPECT_EQ("2 exchanges: 2 the same, 0 differ\n", (fast.Wait(), fast.Output()));
}

// The second relay that recorded into the folder began to count anew.
TEST(WireReplay, ALaterRecording_FollowsTheEarlierOne) {
  const Folder folder;
  folder.Write("000001.transcript", "wait 3600000 ms\nclient > \"x\\n\"\nclient < end\n");
  folder.Write("000002.transcript", "wait 0 ms\nclient > \"y\\n\"\nclient < end\n");
  folder.Write("000003.transcript", "wait 3600000 ms\nclient > \"z\\n\"\nclient < end\n");
  const Manager manager;
  Tool tool({KORVO_WIRE, "replay", "--to", At(manager.Port()), folder.Path()});
  for (int i = 0; i < 2; ++i) Answer(manager, 1, "");
  EXPECT_FALSE(Eventually([&] { return manager.Called(); }, 200));
  tool.Signal(SIGTERM);
  tool.Wait();
}

TEST(WireReplay, WhatIsNoRecording_IsRefused) {
  const Folder folder;
  const std::string file = folder.Write("a.transcript", "case a\nsays x\nwait 0 ms\n");
  ExpectRefused({KORVO_WIRE, "replay", "--to", "9", folder.Path()}, 65,
                file + " is no recording: it has no step of a client");
}

TEST(WireReplay, AnAnswerWithPatterns_IsHeldAgainstThem) {
  const Folder folder;
  folder.Write("000001.transcript",
               "client > \"x\\n\"\nclient < \"ms=\" digits \"\\n\"\nclient < end\n");
  const Manager manager;
  Tool tool({KORVO_WIRE, "replay", "--to", At(manager.Port()), folder.Path()});
  Answer(manager, 1, "ms=42\n");
  EXPECT_EQ(0, tool.Status());
  EXPECT_EQ("1 exchanges: 1 the same, 0 differ\n", tool.Output());
}

TEST(WireReplay, ARedactedAnswer_IsComparedByItsLength) {
  const Folder folder;
  const std::string file =
      folder.Write("000001.transcript", "client > \"x\\n\"\nclient < bytes 3\n");
  const Manager manager;
  Tool tool({KORVO_WIRE, "replay", "--to", At(manager.Port()), folder.Path()});
  Answer(manager, 1, "abcd");
  EXPECT_EQ(1, tool.Status());
  EXPECT_EQ("differs: " + file + ": it has 4 bytes now\n1 exchanges: 0 the same, 1 differ\n",
            tool.Output());
}

TEST(WireReplay, TwoDaemons_AreComparedWithEachOther) {
  const Folder folder;
  const std::string file =
      folder.Write("000001.transcript", "client > \"x\\n\"\nclient < \"abc\"\n");
  const Manager one, other;
  Tool tool(
      {KORVO_WIRE, "replay", "--to", At(one.Port()), "--to", At(other.Port()), folder.Path()});
  Answer(one, 1, "new");
  Answer(other, 1, "newer");
  EXPECT_EQ(1, tool.Status());
  EXPECT_EQ(
      "differs: " + file + ": byte 4 was \"\" and is \"er\"\n1 exchanges: 0 the same, 1 differ\n",
      tool.Output());
}

TEST(WireReplay, AnAnswerWithoutAnEnd_IsOne) {
  const Folder folder;
  const std::string file =
      folder.Write("000001.transcript", "client > \"x\\n\"\nclient < \"abc\"\n");
  const Manager manager;
  Tool tool({KORVO_WIRE, "replay", "--patience", "50", "--to", At(manager.Port()), folder.Path()});
  const Socket sock = manager.Accept();
  EXPECT_EQ(1, tool.Status());
  EXPECT_EQ("differs: " + file + ": the answer does not end\n1 exchanges: 0 the same, 1 differ\n",
            tool.Output());
}

TEST(WireVerbs, WrongUse_IsRefused) {
  const Folder folder;
  const std::string nothing = folder.Write("n.transcript", "case a\nstatus 0\n");
  ExpectRefused({KORVO_WIRE, "play", nothing}, 64,
                "play takes a file, and --to HOST:PORT or --port PORT");
  ExpectRefused({KORVO_WIRE, "play", "--to", "9", nothing}, 65,
                nothing + " has nothing that is to be played");
  const std::string one = folder.Write("o.transcript", "case a\nclient > \"x\"\n");
  ExpectRefused({KORVO_WIRE, "play", "--to", "9", "--case", "nosuch", one}, 66,
                "there is no case nosuch in " + one);
  ExpectRefused({KORVO_WIRE, "play", "--to", "9", "/no/such"}, 66,
                "cannot read /no/such: No such file or directory");
  ExpectRefused({KORVO_WIRE, "play", "--to", "9", "/proc"}, 66,
                "cannot read /proc: Is a directory");
  ExpectRefused(
      {KORVO_WIRE, "play", "--to", "9", "--misbehave", "sings", nothing}, 64,
      "--misbehave takes drips, hangs, resets, half-closes, 40960-bytes, 40961-bytes, no-newline, nuls, 10000-hits or unknown-words, not 'sings'");
  ExpectRefused({KORVO_WIRE, "play", "--to", "x", nothing}, 64,
                "--to takes a number from 1 to 32767, not 'x'");
  ExpectRefused({KORVO_WIRE, "play", "--announce", "x", nothing}, 64,
                "--announce takes a number from 1 to 32767, not 'x'");
  ExpectRefused({KORVO_WIRE, "play", "--port", "x", nothing}, 64,
                "--port takes a number from 1 to 32767, not 'x'");
  ExpectRefused({KORVO_WIRE, "play", "--times", "x", nothing}, 64,
                "--times takes a number from 1 to 100000, not 'x'");
  ExpectRefused({KORVO_WIRE, "play", "--patience", "x", nothing}, 64,
                "--patience takes a number from 1 to 3600000, not 'x'");
  ExpectRefused({KORVO_WIRE, "tap", "9"}, 64,
                "tap takes where to listen and where to forward to, both HOST:PORT");
  ExpectRefused({KORVO_WIRE, "tap", "x", "9"}, 64,
                "LISTEN takes a number from 1 to 32767, not 'x'");
  ExpectRefused({KORVO_WIRE, "tap", "9", "x"}, 64,
                "FORWARD takes a number from 1 to 32767, not 'x'");
  ExpectRefused({KORVO_WIRE, "replay", folder.Path()}, 64,
                "replay takes a folder, and --to HOST:PORT once or twice");
  ExpectRefused({KORVO_WIRE, "replay", "--speed", "0", "--to", "9", folder.Path()}, 64,
                "--speed takes a number from 1 to 1000000, not '0'");
  ExpectRefused({KORVO_WIRE, "replay", "--to", "9", "/no/such"}, 66,
                "there is no transcript in /no/such");
  const Manager taken;
  ExpectRefused(
      {KORVO_WIRE, "tap", At(taken.Port()), "9"}, 69,
      "cannot listen on port " + std::to_string(taken.Port()) + ": Address already in use");
  ExpectRefused({KORVO_WIRE, "tap", "--record", "/proc/no/such", At(ReservePort()), "9"}, 73,
                "cannot make /proc/no/such: No such file or directory");
}

TEST(WireVerbs, HelpAndVersion) {
  ExpectVersion(KORVO_WIRE);
  ExpectHelp(
      KORVO_WIRE,
      "usage: korvo-wire check [OPTION]... daemon|client COMMAND\n"
      "       korvo-wire check [OPTION]... searchmgr|docmgr HOST:PORT\n"
      "       korvo-wire play [OPTION]... --to HOST:PORT|--port PORT FILE\n"
      "       korvo-wire tap [OPTION]... LISTEN FORWARD\n"
      "       korvo-wire replay [OPTION]... --to HOST:PORT FOLDER\n"
      "\n"
      "  --cases PATH       folder with the cases, or one file of them; those that are installed\n"
      "  --case NAME        this case alone; with check once or more\n"
      "  --format FORMAT    of check: text, tap or junit\n"
      "  --jobs NUMBER      cases at the same time; twice the number of processors\n"
      "  --patience MS      what has to come comes in that time; 10000 with check, else 60000\n"
      "  --admin HOST:PORT  the admin port of a manager, for the cases with datagrams\n"
      "  --as ACTOR         who is played; the first of the file\n"
      "  --to HOST:PORT     connects to it; replay takes two, and compares them with each other\n"
      "  --port PORT        listens there, for one connection behind the other\n"
      "  --announce HOST:PORT\n"
      "                     says so to the admin port of a daemon\n"
      "  --misbehave HOW    drips, hangs, resets, half-closes, 40960-bytes, 40961-bytes,\n"
      "                     no-newline, nuls, 10000-hits or unknown-words\n"
      "  --times NUMBER     ends behind so many connections\n"
      "  --record FOLDER    writes each exchange there, as a transcript\n"
      "  --redact           without what users typed, and without the answers\n"
      "  --speed NUMBER     so many times as fast as it was recorded; 1\n"
      "  --help, --version  show this; show the version\n");
}

}  // namespace
