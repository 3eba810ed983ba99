#include "config/announce.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cerrno>
#include <fstream>
#include <string>

#include "tests/support/log_capture.h"
#include "tests/support/loopback.h"
#include "tests/support/syscall_seams.h"

namespace {

ConfigInfo Manager() { return {"grp1", 'S', "10.1.2.3", 6000, 6001, "web1"}; }

constexpr char kManagerFields[] = "\tID=grp1\tTYPE=S\tIP=10.1.2.3\tCLIENTPORT=6000\tADMINPORT=6001";

std::string Announcement() {
  return std::string("\t@COMMAND=STARTUPANNOUNCEMENT") + kManagerFields;
}

std::string Received(int sock) {
  char bytes[4096];
  const ssize_t count = recv(sock, bytes, sizeof bytes, MSG_DONTWAIT);
  return count < 0 ? "nothing" : std::string(bytes, static_cast<std::size_t>(count));
}

// ---- Init_TCPIPSetup

struct Addresses {
  int result = -1;
  std::string log;
  SockAddr client = {}, admin = {};
};

Addresses FillFrom(const ConfigInfo *config, bool with_client = true, bool with_admin = true) {
  Addresses got;
  got.log = MessagesAt(104, [&] {
    got.result = Init_TCPIPSetup(config, with_client ? &got.client : nullptr,
                                 with_admin ? &got.admin : nullptr);
  });
  return got;
}

TEST(TCPIPSetup, ValidRecord_FillsBothAddresses) {
  const ConfigInfo config = Manager();
  const Addresses got = FillFrom(&config);
  EXPECT_EQ(got.result, 1);
  EXPECT_EQ(got.log, "");
  EXPECT_STREQ(got.client.IP, "10.1.2.3");
  EXPECT_STREQ(got.admin.IP, "10.1.2.3");
  EXPECT_EQ(got.client.Port, 6000);
  EXPECT_EQ(got.admin.Port, 6001);
}

TEST(TCPIPSetup, ValidRecord_LogsNothing) {
  const ConfigInfo config = Manager();
  SockAddr client = {}, admin = {};
  EXPECT_EQ(Capture(101, [&] { Init_TCPIPSetup(&config, &client, &admin); }).log, "");
}

TEST(TCPIPSetup, LongestTextAndHighestPorts_AreAccepted) {
  const ConfigInfo config = {"a", 'C', "255.255.255.255", 32767, 1, ""};
  const Addresses got = FillFrom(&config);
  EXPECT_EQ(got.result, 1);
  EXPECT_STREQ(got.client.IP, "255.255.255.255");
  EXPECT_STREQ(got.admin.IP, "255.255.255.255");
  EXPECT_EQ(got.client.Port, 32767);
  EXPECT_EQ(got.admin.Port, 1);
}

TEST(TCPIPSetup, NullRecord_IsRefusedFirst) {
  const Addresses got = FillFrom(nullptr, false, false);
  EXPECT_EQ(got.result, 0);
  EXPECT_EQ(got.log, "[Init: TCPIPSetup] ConfigInfo is NULL.\n");
}

TEST(TCPIPSetup, BadField_IsRefusedInTheOrderOfTheRecord) {
  const struct {
    const char *ip;
    int client, admin;
    const char *log;
  } rows[] = {
      {"", 0, 0, "[Init: TCPIPSetup] IP is blank.\n"},
      {"10.1.2.3", 0, 0, "[Init: TCPIPSetup] Invalid client port = 0.\n"},
      {"10.1.2.3", -32768, 0, "[Init: TCPIPSetup] Invalid client port = -32768.\n"},
      {"10.1.2.3", -1, 6001, "[Init: TCPIPSetup] Invalid client port = -1.\n"},
      {"10.1.2.3", 6000, 0, "[Init: TCPIPSetup] Invalid admin port = 0.\n"},
      {"10.1.2.3", 6000, -5, "[Init: TCPIPSetup] Invalid admin port = -5.\n"},
      {"10.1.2.3", 1, 1, "[Init: TCPIPSetup] Either Client, Admin or Parent pointer is NULL.\n"}};
  for (const auto &row : rows) {
    ConfigInfo config = {
        "a", 'C', "", static_cast<std::int16_t>(row.client), static_cast<std::int16_t>(row.admin),
        ""};
    std::string(row.ip).copy(config.IP, sizeof config.IP - 1);
    const Addresses got = FillFrom(&config, false, false);
    EXPECT_EQ(got.result, 0) << row.log;
    EXPECT_EQ(got.log, row.log);
  }
}

TEST(TCPIPSetup, BadField_FillsNeitherAddress) {
  ConfigInfo no_ip = Manager(), no_client = Manager(), no_admin = Manager();
  no_ip.IP[0] = '\0';
  no_client.ClientPort = 0;
  no_admin.AdminPort = 0;
  for (const ConfigInfo *config : {&no_ip, &no_client, &no_admin}) {
    const Addresses got = FillFrom(config);
    EXPECT_EQ(got.result, 0);
    for (const SockAddr *addr : {&got.client, &got.admin}) {
      EXPECT_STREQ(addr->IP, "") << got.log;
      EXPECT_EQ(addr->Port, 0) << got.log;
    }
  }
}

TEST(TCPIPSetup, EitherAddressNull_IsRefused) {
  const ConfigInfo config = Manager();
  for (const bool client_given : {false, true}) {
    const Addresses got = FillFrom(&config, client_given, !client_given);
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(got.log, "[Init: TCPIPSetup] Either Client, Admin or Parent pointer is NULL.\n");
    EXPECT_STREQ(got.client.IP, "");
    EXPECT_STREQ(got.admin.IP, "");
  }
}

TEST(TCPIPSetup, PortOfTheConfigurationFile_IsRefusedWhenItWraps) {
  const struct {
    const char *port;
    const char *log;
  } rows[] = {{"0", "[Init: TCPIPSetup] Invalid client port = 0.\n"},
              {"32768", "[Init: TCPIPSetup] Invalid client port = -32768.\n"},
              {"40000", "[Init: TCPIPSetup] Invalid client port = -25536.\n"}};
  const TempDir dir;
  const std::string path = dir.Path() + "/korvo.conf";
  for (const auto &row : rows) {
    std::ofstream(path) << "web1 C 10.1.2.3 " << row.port << " 6001 -\n";
    ConfigInfo config = {};
    Capture(105, [&] { Init_ReadConf(path.c_str(), "web1", 'C', &config); });
    EXPECT_EQ(FillFrom(&config).log, row.log);
  }
}

// ---- Init_Announce

class Announce : public ::testing::Test {
 protected:
  // log_ keeps what the call wrote at the given level, out_ its standard output.
  int Send(const DBInfo *db = nullptr, int level = 103) {
    int result = -1;
    const Output output = Capture(level, [&] { result = Init_Announce(&parent_, &config_, db); });
    log_ = output.log;
    out_ = output.out;
    return result;
  }

  int port_ = FreePort();
  Fd parent_sock_{BindUDP(port_)};
  SockAddr parent_ = Loopback(port_);
  ConfigInfo config_ = Manager();
  std::string log_, out_;
};

std::string Unsendable(const std::string &where) {
  return "[Init: Announce] Unable to send Startup Announcement to parent 'web1' at " + where + "\n";
}

TEST_F(Announce, NoDatabase_SendsTheFieldsAndANewline) {
  EXPECT_EQ(Send(), 1);
  EXPECT_EQ(log_, "");
  EXPECT_EQ(out_, "");
  EXPECT_EQ(Received(parent_sock_), Announcement() + "\n");
  EXPECT_EQ(Received(parent_sock_), "nothing");
}

TEST_F(Announce, DatabaseWithoutAFieldList_SendsALoneNewline) {
  for (const char *list : {static_cast<const char *>(nullptr), ""}) {
    const DBInfo db = {"eng1", "News", "/idx", "/doc", list};
    EXPECT_EQ(Send(&db), 1);
    EXPECT_EQ(Received(parent_sock_), Announcement() + "\n");
  }
}

TEST_F(Announce, FieldList_StandsBeforeTheNewline) {
  const DBInfo db = {"eng1", "News", "/idx", "/doc", "TITLE,BODY"};
  EXPECT_EQ(Send(&db), 1);
  EXPECT_EQ(Received(parent_sock_), Announcement() + "\tFIELDLIST=TITLE,BODY\n");
}

TEST_F(Announce, Ports_AreSignedDecimal) {
  config_.ClientPort = -32768;
  config_.AdminPort = 0;
  EXPECT_EQ(Send(), 1);
  EXPECT_EQ(
      Received(parent_sock_),
      "\t@COMMAND=STARTUPANNOUNCEMENT\tID=grp1\tTYPE=S\tIP=10.1.2.3\tCLIENTPORT=-32768\tADMINPORT=0\n");
}

TEST_F(Announce, Message_IsTracedWholeAt101) {
  const DBInfo db = {"eng1", "News", "/idx", "/doc", "TITLE"};
  const std::string datagram = Announcement() + "\tFIELDLIST=TITLE\n";
  const std::string text = MessagesAt(101, [&] { Init_Announce(&parent_, &config_, &db); });
  EXPECT_EQ(text, "[Init: Announce] Sending Announcement to 127.0.0.1/" + std::to_string(port_) +
                      ": '" + datagram + "'\n");
}

TEST_F(Announce, Datagram_IsSentOnceFromAnUnboundSocketThatIsClosed) {
  const std::string length = std::to_string(Announcement().size() + 1);
  const int before = OpenDescriptors();
  std::string trace;
  int closed = 0;
  Capture(103, [&] {
    const Seams seams;
    Init_Announce(&parent_, &config_, nullptr);
    trace = seams.Trace();
    closed = seams.Count(Call::kClose);
  });
  EXPECT_EQ(trace, "socket(2, 2, 17)\ninet_addr(127.0.0.1)\nsendto(" + length + ", 0, 16)\n");
  EXPECT_EQ(closed, 1);
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(Announce, FailingSocket_IsReportedAndNothingIsSent) {
  Seams seams;
  seams.Fail(Call::kSocket, EMFILE);
  EXPECT_EQ(Send(), 0);
  EXPECT_EQ(log_,
            "[SOCK: GetError] Uhmm, Houston...We have a problem.\n"
            "[SOCK: GetError] We can't seem to get our socket errors here for sock -1.\n"
            "[SOCK: GetError] The system reports this as errno = 9.\n"
            "[SOCK: GetError] What are your recommendations ?\n"
            "[SOCK: OpenUDP] Error 0 (0x0) from socket().  Unable to get a new socket.\n"
            "[Init: Announce] Unable to open socket to send Startup Announcement.\n");
  EXPECT_EQ(out_, "errno = 24\n");
  EXPECT_EQ(seams.Count(Call::kSendto), 0);
  EXPECT_EQ(Received(parent_sock_), "nothing");
}

TEST_F(Announce, FailingSocket_ComesBehindTheTraceOfTheMessage) {
  Seams seams;
  seams.Fail(Call::kSocket, EMFILE);
  EXPECT_EQ(Send(nullptr, 101), 0);
  EXPECT_EQ(log_, "[Init: Announce] Sending Announcement to 127.0.0.1/" + std::to_string(port_) +
                      ": '" + Announcement() +
                      "\n'\n"
                      "[SOCK: GetError] Uhmm, Houston...We have a problem.\n"
                      "[SOCK: GetError] We can't seem to get our socket errors here for sock -1.\n"
                      "[SOCK: GetError] The system reports this as errno = 9.\n"
                      "[SOCK: GetError] What are your recommendations ?\n"
                      "[SOCK: OpenUDP] Error 0 (0x0) from socket().  Unable to get a new socket.\n"
                      "[Init: Announce] Unable to open socket to send Startup Announcement.\n");
}

TEST_F(Announce, FailingSocket_IsReportedAt104) {
  Seams seams;
  seams.Fail(Call::kSocket, EMFILE, 1, kEveryTime);
  EXPECT_EQ(MessagesAt(104, [&] { Init_Announce(&parent_, &config_, nullptr); }),
            "[Init: Announce] Unable to open socket to send Startup Announcement.\n");
}

TEST_F(Announce, FailingSend_IsReportedAndLeavesTheSocketOpen) {
  const int before = OpenDescriptors();
  const std::string port = std::to_string(port_);
  Seams seams;
  seams.Fail(Call::kSendto, ENETUNREACH);
  EXPECT_EQ(Send(), 0);
  const std::string sock = std::to_string(seams.LastSocket());
  EXPECT_EQ(log_, "[SOCK: SendUDP] Error 101 (0x65) from sendto().  Unable to send on socket " +
                      sock + " to 127.0.0.1:" + port + ".\n" + Unsendable("127.0.0.1:" + port));
  EXPECT_EQ(out_, "errno = 101\n");
  EXPECT_EQ(OpenDescriptors(), before + 1);
  EXPECT_TRUE(IsOpen(seams.LastSocket()));
  EXPECT_EQ(seams.Count(Call::kSendto), 1) << "there is no second try";
}

TEST_F(Announce, FailingSend_IsReportedAt104) {
  Seams seams;
  seams.Fail(Call::kSendto, ENETUNREACH, 1, kEveryTime);
  EXPECT_EQ(MessagesAt(104, [&] { Init_Announce(&parent_, &config_, nullptr); }),
            Unsendable("127.0.0.1:" + std::to_string(port_)));
}

TEST_F(Announce, ParentPortNotAboveZero_IsRefusedWithoutALineOfTheSocketLayer) {
  for (const std::int16_t port : {std::int16_t{0}, std::int16_t{-25536}}) {
    parent_.Port = port;
    EXPECT_EQ(Send(), 0);
    EXPECT_EQ(log_, Unsendable("127.0.0.1:" + std::to_string(port)));
  }
}

TEST_F(Announce, ParentAddressOfZeros_CannotBeConverted) {
  parent_ = AddrOf("0.0.0.0", 6001);
  EXPECT_EQ(Send(), 0);
  EXPECT_EQ(
      log_,
      "[SOCK: ConvertIP] Error converting to network address.  Network Address result is 0.\n" +
          Unsendable("0.0.0.0:6001"));
}

TEST_F(Announce, MessageOf1024Bytes_IsSentWhole) {
  const std::string list(1024 - Announcement().size() - std::string("\tFIELDLIST=\n").size(), 'f');
  const DBInfo db = {"eng1", "News", "/idx", "/doc", list.c_str()};
  EXPECT_EQ(Send(&db), 1);
  EXPECT_EQ(log_, "");
  EXPECT_EQ(Received(parent_sock_), Announcement() + "\tFIELDLIST=" + list + "\n");
}

TEST_F(Announce, LongerMessage_IsCutAndReportedOnceAt103) {
  const std::string list(2000, 'f');
  const DBInfo db = {"eng1", "News", "/idx", "/doc", list.c_str()};
  const std::size_t room = 1024 - Announcement().size() - std::string("\tFIELDLIST=\n").size();
  EXPECT_EQ(MessagesAt(103, [&] { Init_Announce(&parent_, &config_, &db); }),
            "[Init: Announce] Field list cut to " + std::to_string(room) + " characters\n");
  EXPECT_EQ(Received(parent_sock_), Announcement() + "\tFIELDLIST=" + list.substr(0, room) + "\n");
}

TEST_F(Announce, LongestRecord_IsSentWhole) {
  const std::string id(63, 'i');
  id.copy(config_.ID, sizeof config_.ID - 1);
  config_.ClientPort = config_.AdminPort = -32768;
  EXPECT_EQ(Send(), 1);
  EXPECT_EQ(Received(parent_sock_),
            "\t@COMMAND=STARTUPANNOUNCEMENT\tID=" + id +
                "\tTYPE=S\tIP=10.1.2.3\tCLIENTPORT=-32768\tADMINPORT=-32768\n");
}

// ---- Init_RecvAnnounce

struct Parsed {
  int result = -1;
  std::string log;
  INIT_CHILDINFO child = {};
};

Parsed Receive(const std::string &text, int level = 103) {
  Parsed parsed;
  parsed.log =
      Capture(level, [&] { parsed.result = Init_RecvAnnounce(text.c_str(), &parsed.child); }).log;
  return parsed;
}

std::string NotFound(const std::string &tag) {
  return "[Util: Search4Pair] cannot find Selection: 1 of tag: '\t" + tag + "='\n";
}

TEST(RecvAnnounce, CompleteText_FillsTheRecord) {
  const Parsed parsed = Receive(std::string(kManagerFields) + "\n");
  EXPECT_EQ(parsed.result, 1);
  EXPECT_EQ(parsed.log, "");
  EXPECT_STREQ(parsed.child.ID, "grp1");
  EXPECT_EQ(parsed.child.Type, 'S');
  EXPECT_STREQ(parsed.child.ClientAddr.IP, "10.1.2.3");
  EXPECT_STREQ(parsed.child.AdminAddr.IP, "10.1.2.3");
  EXPECT_EQ(parsed.child.ClientAddr.Port, 6000);
  EXPECT_EQ(parsed.child.AdminAddr.Port, 6001);
  EXPECT_EQ(parsed.child.Next, nullptr);
}

TEST(RecvAnnounce, TextNullOrEmpty_IsRefusedFirst) {
  for (const char *text : {static_cast<const char *>(nullptr), ""}) {
    int result = -1;
    EXPECT_EQ(MessagesAt(103, [&] { result = Init_RecvAnnounce(text, nullptr); }),
              "[Init: RecvAnnounce] Command is NULL.\n");
    EXPECT_EQ(result, 0);
  }
}

TEST(RecvAnnounce, RecordNull_IsRefused) {
  int result = -1;
  EXPECT_EQ(MessagesAt(103, [&] { result = Init_RecvAnnounce("\tID=a\n", nullptr); }),
            "[Init: RecvAnnounce] Child struct is NULL.\n");
  EXPECT_EQ(result, 0);
}

TEST(RecvAnnounce, Success_IsTracedAt101) {
  const std::string text = std::string(kManagerFields) + "\n";
  std::string expected;
  const char *pairs[] = {"ID=grp1", "TYPE=S", "IP=10.1.2.3", "CLIENTPORT=6000", "ADMINPORT=6001"};
  for (const std::string pair : pairs) {
    const std::string tag = pair.substr(0, pair.find('='));
    expected += "[Util: Search4Pair] Selection 1 of 1 for tag \t" + tag +
                "= = " + text.substr(text.find("\t" + pair)) +
                "\n[Util: Search4Pair] Selection 2 of 1 for tag " + tag + " yeilds " + pair + "\n";
  }
  INIT_CHILDINFO child = {};
  EXPECT_EQ(MessagesAt(101, [&] { Init_RecvAnnounce(text.c_str(), &child); }),
            expected +
                "[Init: RecvAnn] Child ID       = grp1\n"
                "[Init: RecvAnn] Child Type     = S\n"
                "[Init: RecvAnn] Child ClientIP = 10.1.2.3/6000\n"
                "[Init: RecvAnn] Child AdminIP  = 10.1.2.3/6001\n");
}

TEST(RecvAnnounce, TraceOfTheRecord_IsOneMessage) {
  INIT_CHILDINFO child = {};
  const LogCapture log(101);
  Init_RecvAnnounce((std::string(kManagerFields) + "\n").c_str(), &child);
  const std::string raw = log.Raw();
  EXPECT_EQ(raw.substr(raw.find("[Init: RecvAnn]")),
            "[Init: RecvAnn] Child ID       = grp1\n"
            "[Init: RecvAnn] Child Type     = S\n"
            "[Init: RecvAnn] Child ClientIP = 10.1.2.3/6000\n"
            "[Init: RecvAnn] Child AdminIP  = 10.1.2.3/6001\n");
}

TEST(RecvAnnounce, AnnouncementAsSent_IsUnderstood) {
  const ConfigInfo config = Manager();
  const int port = FreePort();
  const Fd sock(BindUDP(port));
  SockAddr parent = Loopback(port);
  Capture(103, [&] { Init_Announce(&parent, &config, nullptr); });
  const Parsed parsed = Receive(Received(sock));
  EXPECT_EQ(parsed.result, 1);
  EXPECT_STREQ(parsed.child.ID, "grp1");
  EXPECT_EQ(parsed.child.AdminAddr.Port, 6001);
}

TEST(RecvAnnounce, Fields_MayComeInAnyOrderAmongOthers) {
  const Parsed parsed = Receive(
      "\tADMINPORT=2\tX=1\tCLIENTPORT=1\tFIELDLIST=ID=no,TYPE=no\tIP=1.2.3.4\tTYPE=D\tID=grp9\n");
  EXPECT_EQ(parsed.result, 1);
  EXPECT_STREQ(parsed.child.ID, "grp9");
  EXPECT_EQ(parsed.child.Type, 'D');
  EXPECT_EQ(parsed.child.ClientAddr.Port, 1);
  EXPECT_EQ(parsed.child.AdminAddr.Port, 2);
}

TEST(RecvAnnounce, FieldTwice_TheFirstCounts) {
  const Parsed parsed =
      Receive("\tID=first\tID=second" + std::string(kManagerFields).substr(8) + "\n");
  EXPECT_EQ(parsed.result, 1);
  EXPECT_STREQ(parsed.child.ID, "first");
}

TEST(RecvAnnounce, MissingField_EndsWithTheFieldsSoFar) {
  const std::string pairs[] = {"\tID=grp1", "\tTYPE=S", "\tIP=10.1.2.3", "\tCLIENTPORT=6000",
                               "\tADMINPORT=6001"};
  const std::string tags[] = {"ID", "TYPE", "IP", "CLIENTPORT", "ADMINPORT"};
  for (int missing = 0; missing < 5; ++missing) {
    std::string text;
    for (int i = 0; i < 5; ++i) text += i == missing ? "" : pairs[i];
    const Parsed parsed = Receive(text + "\n", 102);
    EXPECT_EQ(parsed.result, 0) << tags[missing];
    EXPECT_EQ(parsed.log, NotFound(tags[missing]));
    EXPECT_STREQ(parsed.child.ID, missing > 0 ? "grp1" : "");
    EXPECT_EQ(parsed.child.Type, missing > 1 ? 'S' : '\0');
    EXPECT_STREQ(parsed.child.ClientAddr.IP, missing > 2 ? "10.1.2.3" : "");
    EXPECT_STREQ(parsed.child.AdminAddr.IP, missing > 2 ? "10.1.2.3" : "");
    EXPECT_EQ(parsed.child.ClientAddr.Port, missing > 3 ? 6000 : 0);
    EXPECT_EQ(parsed.child.AdminAddr.Port, 0);
  }
}

TEST(RecvAnnounce, NoFinalNewline_TheAdminPortHasNoEnd) {
  const Parsed parsed = Receive(kManagerFields);
  EXPECT_EQ(parsed.result, 0);
  EXPECT_EQ(parsed.log, "[Util: Search4Pair] cannot find end of fieldvalpair: ADMINPORT=6001\n");
  EXPECT_EQ(parsed.child.ClientAddr.Port, 6000);
}

TEST(RecvAnnounce, NamesWithoutTheirTabOrInLowerCase_AreNotFound) {
  EXPECT_EQ(Receive("\tXID=a\n", 102).log, NotFound("ID"));
  EXPECT_EQ(Receive("ID=a\n", 102).log, NotFound("ID"));
  EXPECT_EQ(Receive("\tid=a\n", 102).log, NotFound("ID"));
}

TEST(RecvAnnounce, Type_IsTheFirstCharacterOfItsValue) {
  EXPECT_EQ(Receive("\tID=a\tTYPE=Sx\tIP=1.2.3.4\tCLIENTPORT=1\tADMINPORT=2\n").child.Type, 'S');
  EXPECT_EQ(Receive("\tID=a\tTYPE=C\tIP=1.2.3.4\tCLIENTPORT=1\tADMINPORT=2\n").child.Type, 'C');
}

TEST(RecvAnnounce, EmptyValues_AreAccepted) {
  const Parsed parsed = Receive("\tID=\tTYPE=\tIP=\tCLIENTPORT=\tADMINPORT=\n");
  EXPECT_EQ(parsed.result, 1);
  EXPECT_STREQ(parsed.child.ID, "");
  EXPECT_EQ(parsed.child.Type, '\0');
  EXPECT_STREQ(parsed.child.ClientAddr.IP, "");
  EXPECT_EQ(parsed.child.ClientAddr.Port, 0);
}

TEST(RecvAnnounce, Value_BeginsBehindTheFirstEqualsSign) {
  EXPECT_STREQ(Receive("\tID=a=b\tTYPE=S\tIP=1.2.3.4\tCLIENTPORT=1\tADMINPORT=2\n").child.ID,
               "a=b");
}

TEST(RecvAnnounce, Ports_AreReadAs32BitsAndKeptAs16) {
  const struct {
    const char *text;
    int port;
  } rows[] = {{"32767", 32767}, {"32768", -32768}, {"65536", 0},      {"abc", 0},
              {"12x", 12},      {"-3", -3},        {"4294967297", -1}};
  for (const auto &row : rows) {
    const std::string port = row.text;
    const Parsed parsed =
        Receive("\tID=a\tTYPE=S\tIP=1.2.3.4\tCLIENTPORT=" + port + "\tADMINPORT=" + port + "\n");
    EXPECT_EQ(parsed.result, 1) << port;
    EXPECT_EQ(parsed.child.ClientAddr.Port, row.port) << port;
    EXPECT_EQ(parsed.child.AdminAddr.Port, row.port) << port;
  }
}

TEST(RecvAnnounce, TextsThatFillTheirFields_AreKeptWhole) {
  const std::string id(63, 'i');
  const Parsed parsed =
      Receive("\tID=" + id + "\tTYPE=S\tIP=255.255.255.255\tCLIENTPORT=1\tADMINPORT=2\n");
  EXPECT_EQ(parsed.result, 1);
  EXPECT_EQ(parsed.log, "");
  EXPECT_EQ(parsed.child.ID, id);
  EXPECT_STREQ(parsed.child.AdminAddr.IP, "255.255.255.255");
}

TEST(RecvAnnounce, LongTexts_AreCutAndReportedOnceEachAt103) {
  const std::string id(64, 'i');
  const std::string text =
      "\tID=" + id + "\tTYPE=S\tIP=255.255.255.2551\tCLIENTPORT=1\tADMINPORT=2\n";
  const Parsed parsed = Receive(text);
  EXPECT_EQ(parsed.result, 1);
  EXPECT_EQ(parsed.log, "[Init: RecvAnnounce] ID cut to '" + id.substr(1) +
                            "'\n"
                            "[Init: RecvAnnounce] IP cut to '255.255.255.255'\n");
  EXPECT_EQ(parsed.child.ID, id.substr(1));
  EXPECT_STREQ(parsed.child.ClientAddr.IP, "255.255.255.255");
  EXPECT_STREQ(parsed.child.AdminAddr.IP, "255.255.255.255");
  EXPECT_EQ(Receive(text, 104).log, "");
}

TEST(RecvAnnounce, ValueOf256Characters_IsTheLongestThatIsTaken) {
  const std::string rest = "\tTYPE=S\tIP=1.2.3.4\tCLIENTPORT=1\tADMINPORT=2\n", value(256, 'v');
  EXPECT_EQ(Receive("\tID=" + value + rest).result, 1);
  const Parsed refused = Receive("\tID=v" + value + rest);
  EXPECT_EQ(refused.result, 0);
  EXPECT_EQ(refused.log,
            "[Util: SplitPair] pair of 260 characters is too long: 'ID' = '" + value + "'\n");
}

TEST(RecvAnnounce, PairOf321Characters_IsAnOverflow) {
  const std::string rest = "\tTYPE=S\tIP=1.2.3.4\tCLIENTPORT=1\tADMINPORT=2\n";
  const Parsed parsed = Receive("\tID=" + std::string(318, 'v') + rest);
  EXPECT_EQ(parsed.result, 0);
  EXPECT_EQ(parsed.log, "[Util: Search4Pair] fieldvalpair overflow\n");
  EXPECT_STREQ(parsed.child.ID, "");
  EXPECT_NE(Receive("\tID=" + std::string(317, 'v') + rest).log, parsed.log);
}

}  // namespace
