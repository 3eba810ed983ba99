#include "protocol/cmd_hdr.h"

#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <string>

#include "debug/log.h"
#include "tests/support/log_capture.h"

namespace {

// One parse: the record, where the predicate begins (-1: null), and the whole log.
struct Parsed {
  CmdHdr hdr = {};
  int predicate = -1;
  std::string log;
};

Parsed Parse(const std::string &text, int level = 101) {
  Parsed parsed;
  parsed.log = Capture(level, [&] {
                 const char *at = Util_IntCmdHdr(&parsed.hdr, text.c_str());
                 if (at != nullptr) parsed.predicate = static_cast<int>(at - text.c_str());
               }).log;
  return parsed;
}

std::string Format(const CmdHdr &hdr) {
  static char out[kMessageSize];
  std::memset(out, 'x', sizeof out);
  const int length = Util_FormatCmdHdr(&hdr, out);
  EXPECT_EQ(static_cast<std::size_t>(length), std::strlen(out));
  return out;
}

constexpr struct TextField {
  const char *name;
  char (CmdHdr::*field)[kHdrText];
} kTextFields[] = {
    {"COMMAND", &CmdHdr::Command},   {"SEARCHGROUP", &CmdHdr::SearchGroup},
    {"RECTYPE", &CmdHdr::RecType},   {"MACROFILE", &CmdHdr::MacroFile},
    {"SCRIPT", &CmdHdr::Script},     {"AUTHCODE", &CmdHdr::AuthCode},
    {"FILENAME", &CmdHdr::FileName},
};

constexpr struct NumberField {
  const char *name;
  std::int32_t CmdHdr::*field;
  const char *refusal;  // what is logged before and behind the value
} kNumberFields[] = {
    {"BESTFIT", &CmdHdr::BestFit, "[Util: IntCmdHdr] BestFit -1 not recognized\n"},
    {"DOCNUM", &CmdHdr::DocNum, "[Util: IntCmdHdr] RecType -1 not recognized\n"},
    {"MAXHITS", &CmdHdr::MaxHits, "[Util: IntCmdHdr] MaxHits value -1 not recognized\n"},
    {"SEQNUM", &CmdHdr::SeqNum, "[Util: IntCmdHdr] SeqNum -1 not recognized\n"},
    {"EXPDATE", &CmdHdr::ExpDate, "[Util: IntCmdHdr] ExpDate -1 not recognized\n"},
};

std::string FieldOf(const char *name, const std::string &value) {
  return std::string("\t@") + name + "=" + value;
}

const std::string kDisplayOfZeros =
    "[Util: Display] CmdHdr->Command       = \n"
    "[Util: Display] CmdHdr->BestFit       = 0\n"
    "[Util: Display] CmdHdr->SearchGroup   = \n"
    "[Util: Display] CmdHdr->RecType       = \n"
    "[Util: Display] CmdHdr->MacroFile     = \n"
    "[Util: Display] CmdHdr->DocNum        = 0\n"
    "[Util: Display] CmdHdr->Script        = \n"
    "[Util: Display] CmdHdr->SeqNum        = 0\n"
    "[Util: Display] CmdHdr->AuthCode      = \n"
    "[Util: Display] CmdHdr->FileName      = \n";

}  // namespace

TEST(CmdHdr, Record_FieldsHaveTheirSizes) {
  EXPECT_EQ(sizeof(CmdHdr::Command), 128U);
  EXPECT_EQ(sizeof(CmdHdr::FileName), 128U);
  EXPECT_EQ(sizeof(CmdHdr::ExpDate), 4U);
}

TEST(CmdHdr, IntCmdHdr_Ping_IsReadAndHasNoPredicate) {
  const Parsed parsed = Parse("\t@COMMAND=PING\t@SEQNUM=7\n");
  EXPECT_STREQ(parsed.hdr.Command, "PING");
  EXPECT_EQ(parsed.hdr.SeqNum, 7);
  EXPECT_EQ(parsed.predicate, -1);
  EXPECT_EQ(parsed.log, "");
}

TEST(CmdHdr, IntCmdHdr_ErrorReply_PointsAtTheTabBeforeItsText) {
  const Parsed parsed = Parse("\t@COMMAND=ERROR\tUnable to locate SearchMgr\n");
  EXPECT_STREQ(parsed.hdr.Command, "ERROR");
  EXPECT_EQ(parsed.predicate, 15);
  EXPECT_EQ(parsed.log, "");
}

TEST(CmdHdr, IntCmdHdr_LastFieldWithoutNewline_IsNotRead) {
  const Parsed parsed = Parse("\t@COMMAND=PING\t@SEQNUM=7");
  EXPECT_STREQ(parsed.hdr.Command, "PING");
  EXPECT_EQ(parsed.hdr.SeqNum, 0);
  EXPECT_EQ(parsed.predicate, -1);
  EXPECT_STREQ(Parse("\t@COMMAND=PING").hdr.Command, "");
}

TEST(CmdHdr, IntCmdHdr_NoSeparatorFirst_ParsesNothing) {
  for (const char *text : {"@COMMAND=PING\n", "COMMAND=PING\n", " \t@COMMAND=PING\n", "x", ""}) {
    const Parsed parsed = Parse(text);
    EXPECT_EQ(parsed.predicate, -1) << text;
    EXPECT_STREQ(parsed.hdr.Command, "") << text;
    EXPECT_EQ(parsed.log, "") << text;
  }
}

TEST(CmdHdr, IntCmdHdr_NullText_IsNull) {
  CmdHdr hdr = {};
  EXPECT_EQ(Util_IntCmdHdr(&hdr, nullptr), nullptr);
}

TEST(CmdHdr, IntCmdHdr_LoneSeparator_IsNull) {
  for (const char *text : {"\t", "\n", "\r"}) EXPECT_EQ(Parse(text).predicate, -1);
}

TEST(CmdHdr, IntCmdHdr_NoField_ThePredicateIsTheWholeText) {
  for (const char *text : {"\tfree text\n", "\t\n", "\n\n", "\r\n", "\tID=a\t@SEQNUM=7\n",
                           "\t\t@SEQNUM=7\n", "\t@OPER=AND\t@SEQNUM=7\n"}) {
    const Parsed parsed = Parse(text);
    EXPECT_EQ(parsed.predicate, 0) << text;
    EXPECT_EQ(parsed.hdr.SeqNum, 0) << text;
    EXPECT_EQ(parsed.log, "") << text;
  }
}

TEST(CmdHdr, IntCmdHdr_CarriageReturnAndNewline_AreThePredicate) {
  const std::string text = "\t@COMMAND=PING\t@SEQNUM=7\r\n";
  const Parsed parsed = Parse(text);
  EXPECT_EQ(parsed.hdr.SeqNum, 7);
  ASSERT_EQ(parsed.predicate, 24);
  EXPECT_EQ(text.substr(24), "\r\n");
}

TEST(CmdHdr, IntCmdHdr_TwoTabs_StartThePredicateAtTheFirst) {
  const Parsed parsed = Parse("\t@COMMAND=PING\t\t@SEQNUM=7\n");
  EXPECT_EQ(parsed.predicate, 14);
  EXPECT_EQ(parsed.hdr.SeqNum, 0);
}

TEST(CmdHdr, IntCmdHdr_WhatStandsBehindAnEmptyText_IsNotRead) {
  CmdHdr hdr = {};
  EXPECT_EQ(Util_IntCmdHdr(&hdr, "\0@SEQNUM=1\tx\n"), nullptr);
  EXPECT_EQ(hdr.SeqNum, 0);
}

TEST(CmdHdr, IntCmdHdr_EverySeparator_PartsFields) {
  const Parsed parsed = Parse("\n@COMMAND=PING\r@SEQNUM=7\n@BESTFIT=2\t@DOCNUM=3\r");
  EXPECT_STREQ(parsed.hdr.Command, "PING");
  EXPECT_EQ(parsed.hdr.SeqNum, 7);
  EXPECT_EQ(parsed.hdr.BestFit, 2);
  EXPECT_EQ(parsed.hdr.DocNum, 3);
}

TEST(CmdHdr, IntCmdHdr_Oper_EndsTheHeaderAtItsTab) {
  for (const char *oper : {"AND", "OR", ""}) {
    const Parsed parsed =
        Parse("\t@COMMAND=QUERY\t@OPER=" + std::string(oper) + "\t@SEQNUM=7\tx\n");
    EXPECT_EQ(parsed.predicate, 15) << oper;
    EXPECT_EQ(parsed.hdr.SeqNum, 0) << oper;
    EXPECT_EQ(parsed.log, "") << oper;
  }
}

TEST(CmdHdr, IntCmdHdr_OperWithoutSeparatorBehind_IsNull) {
  EXPECT_EQ(Parse("\t@COMMAND=QUERY\t@OPER=AND").predicate, -1);
}

TEST(CmdHdr, IntCmdHdr_PredicateWithoutSeparatorBehind_IsNull) {
  EXPECT_EQ(Parse("\t@COMMAND=QUERY\tfree text").predicate, -1);
}

TEST(CmdHdr, IntCmdHdr_FieldsBehindThePredicate_AreNotRead) {
  const Parsed parsed = Parse("\t@COMMAND=QUERY\tTITLE=x\t@SEQNUM=7\n");
  EXPECT_EQ(parsed.predicate, 15);
  EXPECT_EQ(parsed.hdr.SeqNum, 0);
}

TEST(CmdHdr, IntCmdHdr_SecondEqualsSign_BelongsToTheValue) {
  EXPECT_STREQ(Parse("\t@COMMAND=a=b\n").hdr.Command, "a=b");
  EXPECT_STREQ(Parse("\t@COMMAND==\n").hdr.Command, "=");
}

TEST(CmdHdr, IntCmdHdr_EveryTextField_IsCopiedAsItStands) {
  for (const TextField &row : kTextFields) {
    const Parsed parsed = Parse(FieldOf(row.name, " Some @value, <1> %s ") + "\n");
    EXPECT_STREQ(parsed.hdr.*row.field, " Some @value, <1> %s ") << row.name;
    EXPECT_EQ(parsed.predicate, -1) << row.name;
    EXPECT_EQ(parsed.log, "") << row.name;
  }
}

TEST(CmdHdr, IntCmdHdr_EmptyValue_IsCopiedToo) {
  const Parsed parsed = Parse("\t@COMMAND=PING\t@COMMAND=\t@SEQNUM=7\t@SEQNUM=\n");
  EXPECT_STREQ(parsed.hdr.Command, "");
  EXPECT_EQ(parsed.hdr.SeqNum, 0);
  EXPECT_EQ(parsed.log, "");
}

TEST(CmdHdr, IntCmdHdr_RepeatedField_OverwritesTheEarlierValue) {
  const Parsed parsed = Parse("\t@COMMAND=QUERY\t@SEQNUM=7\t@COMMAND=HI\t@SEQNUM=8\n");
  EXPECT_STREQ(parsed.hdr.Command, "HI");
  EXPECT_EQ(parsed.hdr.SeqNum, 8);
}

TEST(CmdHdr, IntCmdHdr_AllFieldsInAnyOrder_AreRead) {
  const Parsed parsed = Parse(
      "\t@EXPDATE=11\t@FILENAME=f\t@AUTHCODE=a\t@SEQNUM=10\t@SCRIPT=s\t@MAXHITS=9\t@DOCNUM=8\t@MACROFILE=m"
      "\t@RECTYPE=r\t@SEARCHGROUP=g\t@BESTFIT=7\t@COMMAND=c\n");
  const CmdHdr &hdr = parsed.hdr;
  EXPECT_EQ(std::string(hdr.Command) + hdr.SearchGroup + hdr.RecType + hdr.MacroFile + hdr.Script +
                hdr.AuthCode + hdr.FileName,
            "cgrmsaf");
  EXPECT_EQ(hdr.BestFit, 7);
  EXPECT_EQ(hdr.DocNum, 8);
  EXPECT_EQ(hdr.MaxHits, 9);
  EXPECT_EQ(hdr.SeqNum, 10);
  EXPECT_EQ(hdr.ExpDate, 11);
}

TEST(CmdHdr, IntCmdHdr_Number_IsReadLikeA32BitStrtol) {
  static constexpr struct {
    const char *text;
    std::int32_t number;
  } kRows[] = {
      {"0", 0},
      {"-0", 0},
      {"12", 12},
      {"+12", 12},
      {"  12", 12},
      {"12abc", 12},
      {"abc", 0},
      {"0x10", 0},
      {"2147483647", 2147483647},
      {"2147483648", 2147483647},
      {"4294967295", 2147483647},
      {"4294967297", 2147483647},
      {"99999999999999999999", 2147483647},
  };
  for (const auto &row : kRows) {
    for (const NumberField &field : kNumberFields) {
      const Parsed parsed = Parse(FieldOf(field.name, row.text) + "\tx\n");
      EXPECT_EQ(parsed.hdr.*field.field, row.number) << field.name << "=" << row.text;
      EXPECT_NE(parsed.predicate, -1) << field.name << "=" << row.text;
      EXPECT_EQ(parsed.log, "") << field.name << "=" << row.text;
    }
  }
}

TEST(CmdHdr, IntCmdHdr_NegativeNumber_IsRefusedAt103InItsOwnWords) {
  for (const NumberField &row : kNumberFields) {
    const std::string text = "\t@COMMAND=PING" + FieldOf(row.name, "-1") + "\tpredicate\n";
    const Parsed parsed = Parse(text, 103);
    EXPECT_EQ(parsed.log, row.refusal);
    EXPECT_EQ(parsed.predicate, -1) << row.name;
    EXPECT_EQ(Parse(text, 104).log, "") << row.name;
  }
}

TEST(CmdHdr, IntCmdHdr_RefusedNumber_IsLoggedAsItsWholeText) {
  EXPECT_EQ(Parse("\t@SEQNUM=  -12x y\n").log,
            "[Util: IntCmdHdr] SeqNum   -12x y not recognized\n");
  EXPECT_EQ(Parse("\t@MAXHITS=-99999999999\n").log,
            "[Util: IntCmdHdr] MaxHits value -99999999999 not recognized\n");
}

TEST(CmdHdr, IntCmdHdr_RefusedField_KeepsTheFieldsBeforeAndStops) {
  const Parsed parsed = Parse("\t@COMMAND=PING\t@DOCNUM=3\t@SEQNUM=-1\t@RECTYPE=late\n");
  EXPECT_STREQ(parsed.hdr.Command, "PING");
  EXPECT_EQ(parsed.hdr.DocNum, 3);
  EXPECT_STREQ(parsed.hdr.RecType, "");
}

TEST(CmdHdr, IntCmdHdr_UnknownName_IsSkippedWithoutAMessage) {
  for (const char *name :
       {"COLOUR", "command", "Command", "COMMAN", "COMMANDX", "", " COMMAND", "oper"}) {
    const Parsed parsed = Parse(FieldOf(name, "red") + "\t@SEQNUM=7\n");
    EXPECT_EQ(parsed.hdr.SeqNum, 7) << name;
    EXPECT_STREQ(parsed.hdr.Command, "") << name;
    EXPECT_EQ(parsed.log, "") << name;
  }
}

TEST(CmdHdr, IntCmdHdr_TokenWithoutEqualsSign_MakesTwoLinesAndIsNull) {
  const std::string text = "\t@SEQNUM=7\t@COMMAND\t@DOCNUM=3\n";
  const std::string split = "[Util: SplitPair] delim '=' not found in pair 'COMMAND'\n";
  const Parsed parsed = Parse(text, 101);
  EXPECT_EQ(parsed.log,
            split + "[Util: IntCmdHdr] Token is not a NAME=VALUE pair: token = @COMMAND\n");
  EXPECT_EQ(parsed.predicate, -1);
  EXPECT_EQ(parsed.hdr.SeqNum, 7);
  EXPECT_EQ(parsed.hdr.DocNum, 0);
  EXPECT_EQ(Parse(text, 102).log, split);
  EXPECT_EQ(Parse(text, 103).log, split);
  EXPECT_EQ(Parse(text, 104).log, "");
}

TEST(CmdHdr, IntCmdHdr_LongestTokenWithoutEqualsSign_IsShownWhole) {
  const std::string name(1023, 'N');
  EXPECT_EQ(Parse("\t@" + name + "\n").log,
            "[Util: SplitPair] delim '=' not found in pair '" + name +
                "'\n"
                "[Util: IntCmdHdr] Token is not a NAME=VALUE pair: token = @" +
                name + "\n");
}

TEST(CmdHdr, IntCmdHdr_LoneAt_IsNoPair) {
  EXPECT_EQ(Parse("\t@\n").log,
            "[Util: SplitPair] delim '=' not found in pair ''\n"
            "[Util: IntCmdHdr] Token is not a NAME=VALUE pair: token = @\n");
}

TEST(CmdHdr, IntCmdHdr_OperWithoutEqualsSign_IsNoPredicate) {
  const Parsed parsed = Parse("\t@OPER\tx\n");
  EXPECT_EQ(parsed.predicate, -1);
  EXPECT_NE(parsed.log.find("token = @OPER\n"), std::string::npos);
}

TEST(CmdHdr, IntCmdHdr_ValueOf127Characters_IsWhole) {
  const std::string value(127, 'v');
  for (const TextField &row : kTextFields) {
    const Parsed parsed = Parse(FieldOf(row.name, value) + "\n");
    EXPECT_EQ(parsed.hdr.*row.field, value) << row.name;
    EXPECT_EQ(parsed.log, "") << row.name;
  }
}

TEST(CmdHdr, IntCmdHdr_ValueOf128Characters_IsCutAndItsFieldNamedOnce) {
  for (const TextField &row : kTextFields) {
    const std::string text = FieldOf(row.name, std::string(128, 'v')) + "\t@SEQNUM=7\n";
    const Parsed parsed = Parse(text, 103);
    EXPECT_EQ(parsed.hdr.*row.field, std::string(127, 'v'));
    EXPECT_EQ(parsed.hdr.SeqNum, 7);
    EXPECT_EQ(parsed.log,
              "[Util: IntCmdHdr] Value of " + std::string(row.name) + " cut to 127 characters\n");
    EXPECT_EQ(Parse(text, 104).log, "");
  }
}

TEST(CmdHdr, IntCmdHdr_TokenOf1024Characters_IsRead) {
  const std::string token = "@SEQNUM=" + std::string(1015, '0') + "7";
  ASSERT_EQ(token.size(), 1024U);
  const Parsed parsed = Parse("\t" + token + "\n");
  EXPECT_EQ(parsed.hdr.SeqNum, 7);
  EXPECT_EQ(parsed.log, "");
}

TEST(CmdHdr, IntCmdHdr_TokenOf1025Characters_IsRefusedAndLoggedOnce) {
  const std::string token = "@SEQNUM=" + std::string(1016, '0') + "7";
  const std::string text = "\t@COMMAND=PING\t" + token + "\t@DOCNUM=3\tx\n";
  const Parsed parsed = Parse(text, 101);
  EXPECT_EQ(parsed.predicate, -1);
  EXPECT_STREQ(parsed.hdr.Command, "PING");
  EXPECT_EQ(parsed.hdr.SeqNum, 0);
  EXPECT_EQ(parsed.hdr.DocNum, 0);
  EXPECT_EQ(parsed.log, "[Util: IntCmdHdr] Token of 1025 characters is longer than 1024\n");
  EXPECT_EQ(Parse(text, 103).log, parsed.log);
  EXPECT_EQ(Parse(text, 104).log, "");
}

TEST(CmdHdr, IntCmdHdr_NameOf128Characters_IsSkippedLikeAnyUnknownOne) {
  const Parsed parsed = Parse("\t@" + std::string(128, 'N') + "=x\t@SEQNUM=7\n");
  EXPECT_EQ(parsed.hdr.SeqNum, 7);
  EXPECT_EQ(parsed.log, "");
}

TEST(CmdHdr, IntCmdHdr_NameOf129Characters_IsRefusedAndLoggedOnce) {
  const std::string text = "\t@COMMAND=PING\t@" + std::string(129, 'N') + "=x\t@SEQNUM=7\n";
  const Parsed parsed = Parse(text, 101);
  EXPECT_STREQ(parsed.hdr.Command, "PING");
  EXPECT_EQ(parsed.hdr.SeqNum, 0);
  EXPECT_EQ(parsed.log, "[Util: IntCmdHdr] Name of 129 characters is longer than 128\n");
  EXPECT_EQ(Parse(text, 103).log, parsed.log);
  EXPECT_EQ(Parse(text, 104).log, "");
}

TEST(CmdHdr, IntCmdHdr_LongPredicate_IsNoToken) {
  const Parsed parsed = Parse("\t@COMMAND=HIT\tTEXT=" + std::string(30000, 'x') + "\n");
  EXPECT_EQ(parsed.predicate, 13);
  EXPECT_EQ(parsed.log, "");
}

TEST(CmdHdr, IntCmdHdr_Text_IsNotChanged) {
  std::string text = "\t@COMMAND=PING\t@SEQNUM=-1\t@BAD\n";
  const std::string before = text;
  CmdHdr hdr = {};
  Capture(105, [&] { Util_IntCmdHdr(&hdr, text.data()); });
  EXPECT_EQ(text, before);
}

TEST(CmdHdr, FormatCmdHdr_EmptyRecord_WritesElevenFields) {
  EXPECT_EQ(
      Format({}),
      "\t@COMMAND=\t@BESTFIT=0\t@SEARCHGROUP=\t@RECTYPE=\t@MACROFILE=\t@DOCNUM=0\t@SCRIPT=\t@SEQNUM=0"
      "\t@AUTHCODE=\t@FILENAME=\t@EXPDATE=0");
}

TEST(CmdHdr, FormatCmdHdr_FullRecord_LeavesMaxHitsOutAndAddsNoNewline) {
  CmdHdr hdr = {"GETDOC", 1, "group", "rec", "macro", 2, 3, "script", 4, "auth", "file", 5};
  EXPECT_EQ(
      Format(hdr),
      "\t@COMMAND=GETDOC\t@BESTFIT=1\t@SEARCHGROUP=group\t@RECTYPE=rec\t@MACROFILE=macro\t@DOCNUM=2"
      "\t@SCRIPT=script\t@SEQNUM=4\t@AUTHCODE=auth\t@FILENAME=file\t@EXPDATE=5");
}

TEST(CmdHdr, FormatCmdHdr_LargestRecord_IsWritten) {
  CmdHdr hdr = {};
  for (const TextField &row : kTextFields) std::memset(hdr.*row.field, 'v', 127);
  for (const NumberField &row : kNumberFields) hdr.*row.field = INT32_MIN;
  const std::string text = Format(hdr);
  EXPECT_NE(text.find("\t@FILENAME=" + std::string(127, 'v') + "\t@EXPDATE=-2147483648"),
            std::string::npos);
  EXPECT_NE(text.find("\t@DOCNUM=-2147483648\t"), std::string::npos);
}

TEST(CmdHdr, FormatCmdHdr_ThenIntCmdHdr_GivesTheRecordBack) {
  const CmdHdr hdr = {"GETDOC", 1, "group", "rec", "macro", 2, 0, "script", 4, "auth", "file", 5};
  const Parsed parsed = Parse(Format(hdr) + "\n");
  EXPECT_EQ(std::memcmp(&parsed.hdr, &hdr, sizeof hdr), 0);
  EXPECT_EQ(parsed.predicate, -1);
}

TEST(CmdHdr, Display_EmptyRecord_IsElevenLinesAt102) {
  const CmdHdr hdr = {};
  const std::time_t epoch = 0;
  EXPECT_EQ(MessagesAt(102, [&] { Util_Display(&hdr, nullptr); }),
            kDisplayOfZeros + "[Util: Display] CmdHdr->ExpDate       = (0) " + std::ctime(&epoch));
}

TEST(CmdHdr, Display_ExpiryDate_IsATimeOfSigned32Bits) {
  for (const std::int32_t date : {INT32_MIN, -1, INT32_MAX}) {
    CmdHdr hdr = {};
    hdr.ExpDate = date;
    const std::time_t expires = date;
    EXPECT_EQ(Capture(102, [&] { Util_Display(&hdr, nullptr); }).log,
              kDisplayOfZeros + "[Util: Display] CmdHdr->ExpDate       = (" + std::to_string(date) +
                  ") " + std::ctime(&expires));
  }
}

TEST(CmdHdr, Display_FullRecord_LeavesMaxHitsOutAndEndsWithThePredicate) {
  const CmdHdr hdr = {"QUERY", 1,        "group", "rec",  "macro", 2,
                      3,       "script", 4,       "auth", "file",  1000000000};
  const std::time_t expires = 1000000000;
  EXPECT_EQ(MessagesAt(102, [&] { Util_Display(&hdr, "\tfree text\n"); }),
            std::string("[Util: Display] CmdHdr->Command       = QUERY\n"
                        "[Util: Display] CmdHdr->BestFit       = 1\n"
                        "[Util: Display] CmdHdr->SearchGroup   = group\n"
                        "[Util: Display] CmdHdr->RecType       = rec\n"
                        "[Util: Display] CmdHdr->MacroFile     = macro\n"
                        "[Util: Display] CmdHdr->DocNum        = 2\n"
                        "[Util: Display] CmdHdr->Script        = script\n"
                        "[Util: Display] CmdHdr->SeqNum        = 4\n"
                        "[Util: Display] CmdHdr->AuthCode      = auth\n"
                        "[Util: Display] CmdHdr->FileName      = file\n"
                        "[Util: Display] CmdHdr->ExpDate       = (1000000000) ") +
                std::ctime(&expires) +
                "[Util: Display] CmdHdr->Predicate (first 255 chars) = \tfree text\n\n");
}

TEST(CmdHdr, Display_EveryLine_IsAMessageWithItsHeader) {
  const LogCapture log(102);
  const CmdHdr hdr = {};
  Util_Display(&hdr, "x");
  const std::string raw = log.Raw();
  int headers = 0;
  for (std::size_t at = 0; (at = raw.find("PID: ", at)) != std::string::npos; ++at) ++headers;
  EXPECT_EQ(headers, 12);
}

TEST(CmdHdr, Display_LongPredicate_ShowsItsFirst255Characters) {
  const CmdHdr hdr = {};
  for (const std::size_t length : {std::size_t{255}, std::size_t{256}, std::size_t{40000}}) {
    const std::string predicate(length, 'p');
    const std::string log = Capture(102, [&] { Util_Display(&hdr, predicate.c_str()); }).log;
    const std::string last =
        "[Util: Display] CmdHdr->Predicate (first 255 chars) = " + std::string(255, 'p') + "\n";
    EXPECT_EQ(log.substr(log.size() - last.size()), last) << length;
  }
}
