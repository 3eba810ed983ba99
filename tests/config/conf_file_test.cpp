#include "config/conf_file.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/log_capture.h"
#include "tests/support/loopback.h"
#include "tests/support/syscall_seams.h"

namespace {

class ConfFileTest : public ::testing::Test {
 protected:
  void Write(const std::string &text) { std::ofstream(path_, std::ios::binary) << text; }

  // Looks for web1 of type C; log_ keeps what shows at 104, where nothing may show at 105.
  int Conf(const std::string &text, const char *id = "web1", char type = 'C') {
    Write(text);
    int result = -1;
    log_ = MessagesAt(104, [&] { result = Init_ReadConf(path_.c_str(), id, type, &config_); });
    return result;
  }

  int DB(const std::string &text, const char *id = "eng1") {
    Write(text);
    int result = -1;
    log_ = MessagesAt(104, [&] { result = Init_ReadDB(path_.c_str(), id, &db_); });
    return result;
  }

  std::string ConfIncomplete(int line) const {
    return "[Init: ReadConf] Error reading '" + path_ + "': Incomplete line [" +
           std::to_string(line) + "].\n";
  }
  std::string ConfMissing(const std::string &id) const {
    return "[Init: ReadConf] Could not locate id = '" + id + "' in file '" + path_ + "'\n";
  }
  std::string DBMissing(const std::string &id) const {
    return "[Init: ReadDB] Could not locate id = '" + id + "' in file '" + path_ + "'\n";
  }

  TempDir dir_;
  std::string path_ = dir_.Path() + "/korvo.conf";
  std::string log_;
  ConfigInfo config_ = {};
  DBInfo db_ = {};
};

using ReadConf = ConfFileTest;
using ReadDB = ConfFileTest;
using HasConf = ConfFileTest;

constexpr char kWeb[] = "web1 C 10.1.2.3 6000 6001 -\n";
constexpr char kEngine[] = "eng1 News /idx/news /doc/news\n";

std::string Padded(const std::string &line, std::size_t size) {
  return line + std::string(size - line.size(), ' ');
}

int CountOf(const std::string &text, const std::string &piece) {
  int count = 0;
  for (std::size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + 1))
    ++count;
  return count;
}

void ExpectCleared(const ConfigInfo &config) {
  EXPECT_EQ(std::string(config.ID, sizeof config.ID), std::string(64, '\0'));
  EXPECT_EQ(config.Type, '\0');
  EXPECT_EQ(std::string(config.IP, sizeof config.IP), std::string(16, '\0'));
  EXPECT_EQ(config.ClientPort, 0);
  EXPECT_EQ(config.AdminPort, 0);
  EXPECT_EQ(std::string(config.ParentID, sizeof config.ParentID), std::string(64, '\0'));
}

void ExpectCleared(const DBInfo &db) {
  EXPECT_EQ(std::string(db.ID, sizeof db.ID), std::string(64, '\0'));
  EXPECT_EQ(std::string(db.DBName, sizeof db.DBName), std::string(64, '\0'));
  EXPECT_EQ(std::string(db.SearchLocation, sizeof db.SearchLocation), std::string(128, '\0'));
  EXPECT_EQ(std::string(db.DocLocation, sizeof db.DocLocation), std::string(128, '\0'));
  EXPECT_EQ(db.FieldList, nullptr);
}

// ---- the records

TEST(Records, FieldSizes_AreThoseOfTheFiles) {
  EXPECT_EQ(sizeof ConfigInfo::ID, 64u);
  EXPECT_EQ(sizeof ConfigInfo::IP, 16u);
  EXPECT_EQ(sizeof ConfigInfo::ClientPort, 2u);
  EXPECT_EQ(sizeof ConfigInfo::AdminPort, 2u);
  EXPECT_EQ(sizeof ConfigInfo::ParentID, 64u);
  EXPECT_EQ(sizeof DBInfo::ID, 64u);
  EXPECT_EQ(sizeof DBInfo::DBName, 64u);
  EXPECT_EQ(sizeof DBInfo::SearchLocation, 128u);
  EXPECT_EQ(sizeof DBInfo::DocLocation, 128u);
}

// ---- Init_ReadConf: arguments and the file

TEST_F(ReadConf, Filename_NullOrEmpty_IsRefusedFirst) {
  for (const char *filename : {static_cast<const char *>(nullptr), ""}) {
    int result = -1;
    EXPECT_EQ(MessagesAt(104, [&] { result = Init_ReadConf(filename, nullptr, 'C', nullptr); }),
              "[Init: ReadConf] Filename NULL or zero-length.\n");
    EXPECT_EQ(result, 0);
  }
}

TEST_F(ReadConf, Id_NullOrEmpty_IsRefusedSecond) {
  for (const char *id : {static_cast<const char *>(nullptr), ""}) {
    int result = -1;
    EXPECT_EQ(MessagesAt(104, [&] { result = Init_ReadConf("/no/file", id, 'C', nullptr); }),
              "[Init: ReadConf] ID NULL or zero-length.\n");
    EXPECT_EQ(result, 0);
  }
}

TEST_F(ReadConf, Config_Null_IsRefusedBeforeTheFileIsOpened) {
  int result = -1;
  EXPECT_EQ(MessagesAt(104, [&] { result = Init_ReadConf("/no/file", "web1", 'C', nullptr); }),
            "[Init: ReadConf] ConfigInfo NULL.\n");
  EXPECT_EQ(result, 0);
}

TEST_F(ReadConf, RefusedArgument_LeavesTheRecord) {
  config_.Type = 'X';
  Capture(104, [&] { Init_ReadConf("", "web1", 'C', &config_); });
  Capture(104, [&] { Init_ReadConf(path_.c_str(), "", 'C', &config_); });
  EXPECT_EQ(config_.Type, 'X');
}

TEST_F(ReadConf, Search_IsTracedAt101) {
  Write(kWeb);
  EXPECT_EQ(MessagesAt(101, [&] { Init_ReadConf(path_.c_str(), "web1", 'C', &config_); }),
            "[Init: ReadConf] Searching '" + path_ + "' for 'web1' (type 'C').\n");
}

TEST_F(ReadConf, Search_IsTracedBeforeTheFileIsOpened) {
  EXPECT_EQ(Capture(101, [&] { Init_ReadConf("/no/file", "web1", 'C', &config_); }).log,
            "[Init: ReadConf] Searching '/no/file' for 'web1' (type 'C').\n"
            "[Init: ReadConf] Unable to open '/no/file': errno = 2\n");
}

TEST_F(ReadConf, MissingFile_IsLoggedWithItsErrorAndClearsTheRecord) {
  std::memset(static_cast<void *>(&config_), 'x', sizeof config_);
  int result = -1;
  EXPECT_EQ(MessagesAt(104, [&] { result = Init_ReadConf("/no/file", "web1", 'C', &config_); }),
            "[Init: ReadConf] Unable to open '/no/file': errno = 2\n");
  EXPECT_EQ(result, 0);
  ExpectCleared(config_);
}

TEST_F(ReadConf, FailingOpen_ShowsTheErrorOfTheSystem) {
  Write(kWeb);
  Seams seams;
  seams.Fail(Call::kFopen, EMFILE);
  std::string trace;
  const Output output = Capture(102, [&] {
    Init_ReadConf(path_.c_str(), "web1", 'C', &config_);
    trace = seams.Trace();
  });
  EXPECT_EQ(output.log, "[Init: ReadConf] Unable to open '" + path_ + "': errno = 24\n");
  EXPECT_EQ(trace, "fopen(" + path_ + ", r)\n");
}

TEST_F(ReadConf, Directory_CannotBeRead) {
  int result = -1;
  EXPECT_EQ(MessagesAt(104, [&] { result = Init_ReadConf("/", "web1", 'C', &config_); }),
            "[Init: ReadConf] Unable to open '/': errno = 21\n");
  EXPECT_EQ(result, 0);
}

TEST_F(ReadConf, Stream_StaysOpenOnEveryPath) {
  for (const char *text : {kWeb, "other C 10.1.2.3 1 2 -\n", "web1 C\n"}) {
    Write(text);
    const int before = OpenDescriptors();
    Capture(105, [&] { Init_ReadConf(path_.c_str(), "web1", 'C', &config_); });
    EXPECT_EQ(OpenDescriptors(), before + 1) << text;
  }
}

TEST_F(ReadConf, SecondCall_SearchesTheFileAfresh) {
  EXPECT_EQ(Conf("a C 1.1.1.1 1 2 -\nb C 2.2.2.2 3 4 -\n", "b"), 1);
  EXPECT_EQ(Conf("a C 1.1.1.1 1 2 -\nb C 2.2.2.2 3 4 -\n", "a"), 1);
  EXPECT_EQ(Conf("a C 9.9.9.9 1 2 -\n", "a"), 1);
  EXPECT_STREQ(config_.IP, "9.9.9.9");
}

// ---- Init_ReadConf: what is found

TEST_F(ReadConf, CompleteLine_FillsTheRecord) {
  EXPECT_EQ(Conf("grp1 S 10.1.2.3 6000 6001 web1\n", "grp1", 'S'), 1);
  EXPECT_EQ(log_, "");
  EXPECT_STREQ(config_.ID, "grp1");
  EXPECT_EQ(config_.Type, 'S');
  EXPECT_STREQ(config_.IP, "10.1.2.3");
  EXPECT_EQ(config_.ClientPort, 6000);
  EXPECT_EQ(config_.AdminPort, 6001);
  EXPECT_STREQ(config_.ParentID, "web1");
}

TEST_F(ReadConf, Record_IsClearedBeforeTheSearch) {
  std::memset(static_cast<void *>(&config_), 'x', sizeof config_);
  EXPECT_EQ(Conf(kWeb, "nobody"), 0);
  ExpectCleared(config_);
}

TEST_F(ReadConf, SharedId_IsToldApartByTheType) {
  const std::string file =
      "web1 C 1.1.1.1 11 12 -\ngrp1 S 2.2.2.2 21 22 web1\n"
      "grp1 D 3.3.3.3 31 32 web1\ngrp1 E 4.4.4.4 41 42 grp1\n";
  const struct {
    const char *id;
    char type;
    int port;
    const char *parent;
  } rows[] = {{"web1", 'C', 11, ""},
              {"grp1", 'S', 21, "web1"},
              {"grp1", 'D', 31, "web1"},
              {"grp1", 'E', 41, "grp1"}};
  for (const auto &row : rows) {
    EXPECT_EQ(Conf(file, row.id, row.type), 1) << row.id << row.type;
    EXPECT_EQ(config_.Type, row.type);
    EXPECT_EQ(config_.ClientPort, row.port);
    EXPECT_STREQ(config_.ParentID, row.parent);
  }
}

TEST_F(ReadConf, SeveralMatches_TheFirstDecides) {
  EXPECT_EQ(Conf("web1 C 1.1.1.1 1 2 -\nweb1 C 2.2.2.2 3 4 -\n"), 1);
  EXPECT_STREQ(config_.IP, "1.1.1.1");
}

TEST_F(ReadConf, Separators_AreRunsOfBlanksAndTabs) {
  EXPECT_EQ(Conf(" \t web1\t\tC  \t10.1.2.3\t6000   6001\t-\t \n"), 1);
  EXPECT_STREQ(config_.IP, "10.1.2.3");
  EXPECT_EQ(config_.AdminPort, 6001);
}

TEST_F(ReadConf, CarriageReturn_IsNoSeparator) {
  EXPECT_EQ(Conf("web1 C 10.1.2.3 6000 6001 up\r\n"), 1);
  EXPECT_STREQ(config_.ParentID, "up\r");
  EXPECT_EQ(Conf("web1 C\r 10.1.2.3 6000 6001 -\n"), 0);
  EXPECT_EQ(log_, ConfIncomplete(1));
}

TEST_F(ReadConf, Id_IsComparedWholeAndWithItsCase) {
  const char *files[] = {"WEB1 C 1.1.1.1 1 2 -\n", "web11 C 1.1.1.1 1 2 -\n",
                         "web C 1.1.1.1 1 2 -\n", ""};
  for (const char *file : files) {
    EXPECT_EQ(Conf(file), 0) << file;
    EXPECT_EQ(log_, ConfMissing("web1")) << file;
  }
}

TEST_F(ReadConf, Type_IsComparedWithItsCase) {
  EXPECT_EQ(Conf("web1 c 1.1.1.1 1 2 -\n"), 0);
  EXPECT_EQ(log_, ConfMissing("web1"));
}

TEST_F(ReadConf, OtherTypeOnly_IsNotFoundAndLeavesTheId) {
  EXPECT_EQ(Conf("web1 S 1.1.1.1 1 2 -\nweb1 D\n"), 0);
  EXPECT_EQ(log_, ConfMissing("web1"));
  EXPECT_STREQ(config_.ID, "web1");
  EXPECT_EQ(config_.Type, '\0');
  EXPECT_STREQ(config_.IP, "");
}

TEST_F(ReadConf, OtherTypeFirst_IsSkipped) {
  EXPECT_EQ(Conf(std::string("web1 S 1.1.1.1 1 2 up\nweb1 D\n") + kWeb), 1);
  EXPECT_STREQ(config_.IP, "10.1.2.3");
  EXPECT_STREQ(config_.ParentID, "");
}

TEST_F(ReadConf, Comments_AreSkippedWhereverTheyBegin) {
  EXPECT_EQ(Conf("#web1 C 1.1.1.1 1 2 -\n  \t# web1 C\n# web1\n"), 0);
  EXPECT_EQ(log_, ConfMissing("web1"));
  EXPECT_EQ(Conf("#id C 1.1.1.1 1 2 -\n", "#id"), 0);
  EXPECT_EQ(log_, ConfMissing("#id"));
}

TEST_F(ReadConf, HashMark_BehindTheFirstTokenMeansNothing) {
  EXPECT_EQ(Conf("web1 C 10.1.2.3 6000 6001 #up\n"), 1);
  EXPECT_STREQ(config_.ParentID, "#up");
  EXPECT_EQ(Conf("web1 C 10.1.2.3 6000 6001 up # the portal\n"), 1);
  EXPECT_STREQ(config_.ParentID, "up");
  EXPECT_EQ(Conf("we#b C 10.1.2.3 6000 6001 up\n", "we#b"), 1);
}

TEST_F(ReadConf, TokensBehindTheSixth_AreIgnored) {
  EXPECT_EQ(Conf("web1 C 10.1.2.3 6000 6001 up and more of it\n"), 1);
  EXPECT_STREQ(config_.ParentID, "up");
}

TEST_F(ReadConf, ParentThatBeginsWithAHyphen_IsNone) {
  for (const char *parent : {"-", "--", "-none", "-web2"}) {
    EXPECT_EQ(Conf(std::string("web1 C 10.1.2.3 6000 6001 ") + parent + "\n"), 1) << parent;
    EXPECT_STREQ(config_.ParentID, "") << parent;
  }
}

TEST_F(ReadConf, ParentWithAHyphenInside_IsAnId) {
  EXPECT_EQ(Conf("web1 C 10.1.2.3 6000 6001 a-b\n"), 1);
  EXPECT_STREQ(config_.ParentID, "a-b");
}

TEST_F(ReadConf, Ports_AreReadAs32BitsAndKeptAs16) {
  const struct {
    const char *text;
    int port;
  } rows[] = {{"6000", 6000}, {"32767", 32767},   {"32768", -32768},  {"65535", -1},
              {"65536", 0},   {"70000", 4464},    {"0", 0},           {"-5", -5},
              {"+7", 7},      {"007", 7},         {"abc", 0},         {"12x", 12},
              {"x12", 0},     {"2147483647", -1}, {"4294967296", -1}, {"4294967297", -1},
              {"-", 0},       {"-2147483648", 0}, {"-4294967297", 0}, {"99999999999999999999", -1}};
  for (const auto &row : rows) {
    const std::string port = row.text;
    EXPECT_EQ(Conf("web1 C 10.1.2.3 " + port + " " + port + " -\n"), 1) << port;
    EXPECT_EQ(config_.ClientPort, row.port) << port;
    EXPECT_EQ(config_.AdminPort, row.port) << port;
  }
}

// ---- Init_ReadConf: incomplete lines

TEST_F(ReadConf, LineThatEndsTooEarly_IsIncompleteEvenIfALaterOneMatches) {
  const char *lines[] = {"web1", "web1 C", "web1 C 10.1.2.3", "web1 C 10.1.2.3 6000",
                         "web1 C 10.1.2.3 6000 6001"};
  for (const char *line : lines) {
    EXPECT_EQ(Conf(std::string("# first\n") + line + "\n" + kWeb), 0) << line;
    EXPECT_EQ(log_, ConfIncomplete(2)) << line;
  }
}

TEST_F(ReadConf, LineThatEndsTooEarly_LeavesWhatStoodBeforeItsEnd) {
  const struct {
    const char *line;
    ConfigInfo left;
  } rows[] = {{"web1", {"web1", '\0', "", 0, 0, ""}},
              {"web1 CC 10.1.2.3 6000 6001 up", {"web1", '\0', "", 0, 0, ""}},
              {"web1 C", {"web1", 'C', "", 0, 0, ""}},
              {"web1 C 10.1.2.3", {"web1", 'C', "10.1.2.3", 0, 0, ""}},
              {"web1 C 10.1.2.3 6000", {"web1", 'C', "10.1.2.3", 6000, 0, ""}},
              {"web1 C 10.1.2.3 6000 6001", {"web1", 'C', "10.1.2.3", 6000, 6001, ""}}};
  for (const auto &row : rows) {
    std::memset(static_cast<void *>(&config_), 'x', sizeof config_);
    EXPECT_EQ(Conf(std::string(row.line) + "\n"), 0) << row.line;
    EXPECT_STREQ(config_.ID, row.left.ID) << row.line;
    EXPECT_EQ(config_.Type, row.left.Type) << row.line;
    EXPECT_STREQ(config_.IP, row.left.IP) << row.line;
    EXPECT_EQ(config_.ClientPort, row.left.ClientPort) << row.line;
    EXPECT_EQ(config_.AdminPort, row.left.AdminPort) << row.line;
    EXPECT_STREQ(config_.ParentID, row.left.ParentID) << row.line;
  }
}

TEST_F(ReadConf, TypeOfTwoCharacters_IsIncompleteEvenIfALaterLineMatches) {
  for (const char *type : {"CC", "Cx", "Sx", "SC"}) {
    EXPECT_EQ(Conf(std::string("web1 ") + type + " 10.1.2.3 6000 6001 -\n" + kWeb), 0) << type;
    EXPECT_EQ(log_, ConfIncomplete(1)) << type;
  }
}

TEST_F(ReadConf, IncompleteLineOfAnotherId_IsSkipped) {
  EXPECT_EQ(Conf(std::string("web2\nweb3 CC\n") + kWeb), 1);
}

TEST_F(ReadConf, LineNumber_CountsEmptyLinesAndComments) {
  EXPECT_EQ(Conf("\n \t\n# note\nother C 1.1.1.1 1 2 -\nweb1 C\n"), 0);
  EXPECT_EQ(log_, ConfIncomplete(5));
}

// ---- Init_ReadConf: how lines are read

TEST_F(ReadConf, UnterminatedLastLine_IsNotExamined) {
  EXPECT_EQ(Conf("# note\nweb1 C 10.1.2.3 6000 6001 -"), 0);
  EXPECT_EQ(log_, ConfMissing("web1"));
}

TEST_F(ReadConf, UnterminatedLastLineThatIsIncomplete_IsNotReportedAsSuch) {
  EXPECT_EQ(Conf("web1 C"), 0);
  EXPECT_EQ(log_, ConfMissing("web1"));
  ExpectCleared(config_);
}

TEST_F(ReadConf, UnterminatedLastLineOf1023Characters_IsExamined) {
  const std::string line = "web1 C 10.1.2.3 6000 6001 -";
  EXPECT_EQ(Conf(Padded(line, 1022)), 0);
  EXPECT_EQ(Conf(Padded(line, 1023)), 1);
  EXPECT_EQ(Conf(Padded(line, 1024)), 1) << "the first piece of a longer line was complete";
}

TEST_F(ReadConf, UnterminatedPiece_IsExaminedOnlyIfItFillsTheRead) {
  const std::string first(1023, '#'), line = "web1 C 10.1.2.3 6000 6001 -";
  EXPECT_EQ(Conf(first + line), 0);
  EXPECT_EQ(Conf(first + Padded(line, 1023)), 1);
}

TEST_F(ReadConf, LineOf1500Characters_CountsAsTwo) {
  EXPECT_EQ(Conf("#" + std::string(1499, 'x') + "\nweb1 C\n"), 0);
  EXPECT_EQ(log_, ConfIncomplete(3));
}

TEST_F(ReadConf, LineOf1022CharactersAndItsNewline_CountsAsOne) {
  EXPECT_EQ(Conf("#" + std::string(1021, 'x') + "\nweb1 C\n"), 0);
  EXPECT_EQ(log_, ConfIncomplete(2));
}

TEST_F(ReadConf, NewlineBehind1023Characters_IsAPieceOfItsOwn) {
  EXPECT_EQ(Conf("#" + std::string(1022, 'x') + "\nweb1 C\n"), 0);
  EXPECT_EQ(log_, ConfIncomplete(3));
}

TEST_F(ReadConf, PieceOfALongerLine_MayMatch) {
  EXPECT_EQ(Conf("#" + std::string(1022, 'x') + kWeb), 1);
  EXPECT_STREQ(config_.IP, "10.1.2.3");
}

TEST_F(ReadConf, LineCutInTheMiddle_IsIncomplete) {
  EXPECT_EQ(Conf("web1 C 10.1.2.3 6000" + std::string(1010, ' ') + "6001 -\n"), 0);
  EXPECT_EQ(log_, ConfIncomplete(1));
}

// ---- Init_ReadConf: what does not fit

TEST_F(ReadConf, TextsThatFillTheirFields_AreKeptWhole) {
  const std::string id(63, 'i'), parent(63, 'p'), ip = "255.255.255.255";
  EXPECT_EQ(Conf(id + " C " + ip + " 1 2 " + parent + "\n", id.c_str()), 1);
  EXPECT_EQ(config_.ID, id);
  EXPECT_EQ(config_.IP, ip);
  EXPECT_EQ(config_.ParentID, parent);
}

TEST_F(ReadConf, TextsThatFillTheirFields_AreNotReported) {
  const std::string id(63, 'i');
  Write(id + " C 255.255.255.255 1 2 " + std::string(63, 'p') + "\n");
  EXPECT_EQ(Capture(103, [&] { Init_ReadConf(path_.c_str(), id.c_str(), 'C', &config_); }).log, "");
}

TEST_F(ReadConf, LongTexts_AreCutAndReportedOnceEachAt103) {
  const std::string id(64, 'i'), ip = "255.255.255.2551", parent(64, 'p');
  Write(id + " C " + ip + " 1 2 " + parent + "\n");
  EXPECT_EQ(MessagesAt(103, [&] { Init_ReadConf(path_.c_str(), id.c_str(), 'C', &config_); }),
            "[Init: ReadConf] ID cut to '" + id.substr(1) + "'\n" +
                "[Init: ReadConf] IP cut to '255.255.255.255'\n" +
                "[Init: ReadConf] PARENTID cut to '" + parent.substr(1) + "'\n");
  EXPECT_EQ(config_.ID, id.substr(1));
  EXPECT_STREQ(config_.IP, "255.255.255.255");
  EXPECT_EQ(config_.ClientPort, 1);
  EXPECT_EQ(config_.ParentID, parent.substr(1));
}

TEST_F(ReadConf, LongHyphenParent_IsNoneWithoutAReport) {
  Write("web1 C 1.1.1.1 1 2 -" + std::string(200, 'x') + "\n");
  EXPECT_EQ(Capture(103, [&] { Init_ReadConf(path_.c_str(), "web1", 'C', &config_); }).log, "");
  EXPECT_STREQ(config_.ParentID, "");
}

TEST_F(ReadConf, TokenThatFillsALine_StaysInItsField) {
  EXPECT_EQ(Conf("web1 C " + std::string(1000, '1') + "\n"), 0);
  EXPECT_EQ(log_, ConfIncomplete(1));
  EXPECT_EQ(std::strlen(config_.IP), 15u);
}

// ---- Init_ReadDB

TEST_F(ReadDB, Filename_NullOrEmpty_IsRefusedFirst) {
  for (const char *filename : {static_cast<const char *>(nullptr), ""}) {
    int result = -1;
    EXPECT_EQ(MessagesAt(104, [&] { result = Init_ReadDB(filename, nullptr, nullptr); }),
              "[Init: ReadDB] Filename NULL or zero-length.\n");
    EXPECT_EQ(result, 0);
  }
}

TEST_F(ReadDB, Id_NullOrEmpty_IsRefusedSecond) {
  for (const char *id : {static_cast<const char *>(nullptr), ""}) {
    int result = -1;
    EXPECT_EQ(MessagesAt(104, [&] { result = Init_ReadDB("/no/file", id, nullptr); }),
              "[Init: ReadDB] ID NULL or zero-length.\n");
    EXPECT_EQ(result, 0);
  }
}

TEST_F(ReadDB, Record_Null_IsRefusedBeforeTheFileIsOpened) {
  int result = -1;
  EXPECT_EQ(MessagesAt(104, [&] { result = Init_ReadDB("/no/file", "eng1", nullptr); }),
            "[Init: ReadDB] DBInfo NULL.\n");
  EXPECT_EQ(result, 0);
}

TEST_F(ReadDB, RefusedArgument_LeavesTheRecord) {
  db_.DBName[0] = 'X';
  Capture(104, [&] { Init_ReadDB("", "eng1", &db_); });
  Capture(104, [&] { Init_ReadDB(path_.c_str(), "", &db_); });
  EXPECT_STREQ(db_.DBName, "X");
}

TEST_F(ReadDB, Search_IsTracedBeforeTheFileIsOpened) {
  EXPECT_EQ(Capture(101, [&] { Init_ReadDB("/no/file", "eng1", &db_); }).log,
            "[Init: ReadConf] Searching '/no/file' for 'eng1'.\n"
            "[Init: ReadDB] Unable to open '/no/file': errno = 2\n");
}

TEST_F(ReadDB, Search_IsTracedAt101UnderTheOtherReadersName) {
  Write(kEngine);
  EXPECT_EQ(MessagesAt(101, [&] { Init_ReadDB(path_.c_str(), "eng1", &db_); }),
            "[Init: ReadConf] Searching '" + path_ + "' for 'eng1'.\n");
}

TEST_F(ReadDB, MissingFile_IsLoggedWithItsErrorAndClearsTheRecord) {
  std::memset(static_cast<void *>(&db_), 'x', sizeof db_);
  int result = -1;
  EXPECT_EQ(MessagesAt(104, [&] { result = Init_ReadDB("/no/file", "eng1", &db_); }),
            "[Init: ReadDB] Unable to open '/no/file': errno = 2\n");
  EXPECT_EQ(result, 0);
  ExpectCleared(db_);
}

TEST_F(ReadDB, FailingOpen_ShowsTheErrorOfTheSystem) {
  Write(kEngine);
  Seams seams;
  seams.Fail(Call::kFopen, ENFILE);
  std::string trace;
  const Output output = Capture(102, [&] {
    Init_ReadDB(path_.c_str(), "eng1", &db_);
    trace = seams.Trace();
  });
  EXPECT_EQ(output.log, "[Init: ReadDB] Unable to open '" + path_ + "': errno = 23\n");
  EXPECT_EQ(trace, "fopen(" + path_ + ", r)\n");
}

TEST_F(ReadDB, Directory_CannotBeRead) {
  int result = -1;
  EXPECT_EQ(MessagesAt(104, [&] { result = Init_ReadDB("/", "eng1", &db_); }),
            "[Init: ReadDB] Unable to open '/': errno = 21\n");
  EXPECT_EQ(result, 0);
}

TEST_F(ReadDB, Stream_StaysOpenOnEveryPath) {
  for (const char *text : {kEngine, "other a b c\n", "eng1\n", "eng1 a\n", "eng1 a b\n"}) {
    Write(text);
    const int before = OpenDescriptors();
    Capture(105, [&] { Init_ReadDB(path_.c_str(), "eng1", &db_); });
    EXPECT_EQ(OpenDescriptors(), before + 1) << text;
  }
}

TEST_F(ReadDB, CompleteLine_FillsTheRecordWithoutAFieldList) {
  std::memset(static_cast<void *>(&db_), 'x', sizeof db_);
  EXPECT_EQ(DB(kEngine), 1);
  EXPECT_EQ(log_, "");
  EXPECT_STREQ(db_.ID, "eng1");
  EXPECT_STREQ(db_.DBName, "News");
  EXPECT_STREQ(db_.SearchLocation, "/idx/news");
  EXPECT_STREQ(db_.DocLocation, "/doc/news");
  EXPECT_EQ(db_.FieldList, nullptr);
}

TEST_F(ReadDB, Record_IsClearedBeforeTheSearch) {
  std::memset(static_cast<void *>(&db_), 'x', sizeof db_);
  EXPECT_EQ(DB(kEngine, "nobody"), 0);
  EXPECT_EQ(log_, DBMissing("nobody"));
  ExpectCleared(db_);
}

TEST_F(ReadDB, LineThatEndsTooEarly_NamesThePlaceAndItsNumber) {
  const struct {
    const char *line;
    std::string log;
  } rows[] = {
      {"eng1", "[Init: ReadDB:DBName] Error reading '" + path_ + "': Incomplete line [3].\n"},
      {"eng1 News",
       "[Init: ReadDB:SearchLoc] Error reading '" + path_ + "': Incomplete line [3].\n"},
      {"eng1 News /idx",
       "[Init: ReadDB:DocLoc] Error reading '" + path_ + "': Incomplete line [3].\n"},
  };
  for (const auto &row : rows) {
    EXPECT_EQ(DB(std::string("# note\n\n") + row.line + "\n" + kEngine), 0) << row.line;
    EXPECT_EQ(log_, row.log);
  }
}

TEST_F(ReadDB, LineThatEndsTooEarly_LeavesWhatStoodBeforeItsEnd) {
  const struct {
    const char *line;
    DBInfo left;
  } rows[] = {{"eng1", {"eng1", "", "", "", nullptr}},
              {"eng1 News", {"eng1", "News", "", "", nullptr}},
              {"eng1 News /idx", {"eng1", "News", "/idx", "", nullptr}}};
  for (const auto &row : rows) {
    std::memset(static_cast<void *>(&db_), 'x', sizeof db_);
    EXPECT_EQ(DB(std::string(row.line) + "\n"), 0) << row.line;
    EXPECT_STREQ(db_.ID, row.left.ID) << row.line;
    EXPECT_STREQ(db_.DBName, row.left.DBName) << row.line;
    EXPECT_STREQ(db_.SearchLocation, row.left.SearchLocation) << row.line;
    EXPECT_STREQ(db_.DocLocation, row.left.DocLocation) << row.line;
    EXPECT_EQ(db_.FieldList, nullptr) << row.line;
  }
}

TEST_F(ReadDB, SeveralMatches_TheFirstDecides) {
  EXPECT_EQ(DB("eng1 a b c\neng1 d e f\n"), 1);
  EXPECT_STREQ(db_.DBName, "a");
}

TEST_F(ReadDB, SeparatorsCommentsAndMoreTokens_AreThoseOfTheOtherFile) {
  EXPECT_EQ(DB(" # eng1 x y z\n#eng1 x y z\n\n \teng1 \t C\t/idx  /doc # more\n"), 1);
  EXPECT_STREQ(db_.DBName, "C") << "there is no type column";
  EXPECT_STREQ(db_.DocLocation, "/doc");
}

TEST_F(ReadDB, Id_IsComparedWholeAndWithItsCase) {
  EXPECT_EQ(DB("ENG1 a b c\neng11 a b c\neng a b c\n"), 0);
  EXPECT_EQ(log_, DBMissing("eng1"));
  EXPECT_EQ(DB("#id a b c\n", "#id"), 0);
}

TEST_F(ReadDB, UnterminatedLastLine_IsNotExaminedUnlessItFillsTheRead) {
  EXPECT_EQ(DB("eng1 a b c"), 0);
  EXPECT_EQ(log_, DBMissing("eng1"));
  EXPECT_EQ(DB(Padded("eng1 a b c", 1022)), 0);
  EXPECT_EQ(DB(Padded("eng1 a b c", 1023)), 1);
}

TEST_F(ReadDB, LineOf1500Characters_CountsAsTwo) {
  EXPECT_EQ(DB("#" + std::string(1499, 'x') + "\neng1\n"), 0);
  EXPECT_EQ(log_, "[Init: ReadDB:DBName] Error reading '" + path_ + "': Incomplete line [3].\n");
}

TEST_F(ReadDB, TextsThatFillTheirFields_AreKeptWhole) {
  const std::string id(63, 'i'), name(63, 'n'), search(127, 's'), doc(127, 'd');
  Write(id + " " + name + " " + search + " " + doc + "\n");
  EXPECT_EQ(Capture(103, [&] { Init_ReadDB(path_.c_str(), id.c_str(), &db_); }).log, "");
  EXPECT_EQ(db_.ID, id);
  EXPECT_EQ(db_.DBName, name);
  EXPECT_EQ(db_.SearchLocation, search);
  EXPECT_EQ(db_.DocLocation, doc);
}

TEST_F(ReadDB, LongTexts_AreCutAndReportedOnceEachAt103) {
  const std::string id(64, 'i'), name(64, 'n'), search(128, 's'), doc(128, 'd');
  Write(id + " " + name + " " + search + " " + doc + "\n");
  EXPECT_EQ(MessagesAt(103, [&] { Init_ReadDB(path_.c_str(), id.c_str(), &db_); }),
            "[Init: ReadDB] ID cut to '" + id.substr(1) + "'\n" + "[Init: ReadDB] DBNAME cut to '" +
                name.substr(1) + "'\n" + "[Init: ReadDB] SEARCHLOC cut to '" + search.substr(1) +
                "'\n" + "[Init: ReadDB] DOCLOC cut to '" + doc.substr(1) + "'\n");
  EXPECT_EQ(db_.DocLocation, doc.substr(1));
  EXPECT_EQ(db_.FieldList, nullptr);
}

// ---- the display of the records

TEST(DisplayCfg, Record_IsOneMessageOfEightLinesAt104) {
  const ConfigInfo config = {"grp1", 'S', "10.1.2.3", 6000, -5, "web1"};
  EXPECT_EQ(MessagesAt(104, [&] { Init_DisplayCfg(&config); }),
            "[Init: DisplayCfg] Configuration Info\n"
            "[Init: DisplayCfg] ------------------\n"
            "[Init: DisplayCfg] ID         = grp1\n"
            "[Init: DisplayCfg] Type       = S\n"
            "[Init: DisplayCfg] ParentID   = web1\n"
            "[Init: DisplayCfg] IP         = 10.1.2.3\n"
            "[Init: DisplayCfg] ClientPort = 6000\n"
            "[Init: DisplayCfg] AdminPort  = -5\n");
}

TEST_F(HasConf, ALineOfThatIdAndType_IsThereAndNothingIsLeftOpen) {
  Write("grp1 S 127.0.0.1 1 2 web1\ngrp1 D 127.0.0.1 3 4 web1\n# eng1 D x\neng2 DD\n");
  const char *file = path_.c_str();
  const int free = dup(0);
  close(free);
  EXPECT_EQ(MessagesAt(101,
                       [&] {
                         EXPECT_TRUE(Init_HasConf(file, "grp1", 'S'));
                         EXPECT_TRUE(Init_HasConf(file, "grp1", 'D'));
                         EXPECT_FALSE(Init_HasConf(file, "grp1", 'E'));
                         EXPECT_FALSE(Init_HasConf(file, "eng1", 'D'));
                         EXPECT_FALSE(Init_HasConf(file, "eng2", 'D'));
                         EXPECT_FALSE(Init_HasConf("/nowhere", "grp1", 'D'));
                       }),
            "");
  const int still_free = dup(0);
  close(still_free);
  EXPECT_EQ(free, still_free);
}

TEST(DisplayCfg, Lines_ShareOneHeader) {
  const ConfigInfo config = {"web1", 'C', "10.1.2.3", 1, 2, ""};
  const LogCapture log(104);
  Init_DisplayCfg(&config);
  EXPECT_EQ(CountOf(log.Raw(), "\nPID: "), 1);
}

constexpr char kDBLines[] =
    "[Init: DisplayDB] Database Info\n"
    "[Init: DisplayDB] -------------\n"
    "[Init: DisplayDB] ID             = eng1\n"
    "[Init: DisplayDB] DBName         = News\n"
    "[Init: DisplayDB] SearchLocation = /idx\n"
    "[Init: DisplayDB] DocLocation    = /doc\n";

TEST(DisplayDB, RecordWithoutAFieldList_IsOneMessageOfSixLinesAt104) {
  for (const char *list : {static_cast<const char *>(nullptr), ""}) {
    const DBInfo db = {"eng1", "News", "/idx", "/doc", list};
    EXPECT_EQ(MessagesAt(104, [&] { Init_DisplayDB(&db); }), kDBLines);
    const LogCapture log(104);
    Init_DisplayDB(&db);
    EXPECT_EQ(CountOf(log.Raw(), "\nPID: "), 1);
  }
}

TEST(DisplayDB, FieldList_IsAMessageOfItsOwn) {
  const DBInfo db = {"eng1", "News", "/idx", "/doc", "TITLE,BODY"};
  EXPECT_EQ(MessagesAt(104, [&] { Init_DisplayDB(&db); }),
            std::string(kDBLines) + "[Init: DisplayDB] FieldList\t= TITLE,BODY\n");
  const LogCapture log(104);
  Init_DisplayDB(&db);
  EXPECT_EQ(CountOf(log.Raw(), "\nPID: "), 2);
}

}  // namespace
