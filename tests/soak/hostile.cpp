#include "tests/soak/hostile.h"

#include <cstring>

namespace {

using Words = std::vector<std::string>;

// A message with a NUL is seen whole or not at all: it fits one packet.
constexpr std::size_t kPacket = 8000;

const std::string &Choose(Random &random, const Words &words) {
  return words[static_cast<std::size_t>(Between(random, 0, static_cast<int>(words.size()) - 1))];
}

std::string Bytes(Random &random, int low, int high) {
  std::string bytes(static_cast<std::size_t>(Between(random, low, high)), ' ');
  for (char &byte : bytes) byte = static_cast<char>(Between(random, 0, 255));
  return bytes;
}

std::string Letters(Random &random, int low, int high) {
  std::string text(static_cast<std::size_t>(Between(random, low, high)), ' ');
  for (char &byte : text) byte = static_cast<char>(Between(random, ' ', '~'));
  return text;
}

std::string Number(Random &random) {
  static const Words kNumbers = {"0",          "1",           "2",
                                 "3",          "-1",          "-0",
                                 "+5",         " 7",          "12abc",
                                 "",           "x",           "2147483647",
                                 "2147483648", "-2147483648", "-2147483649",
                                 "4294967296", "4294967297",  "99999999999999999999",
                                 "0x10",       "1e3"};
  return OneIn(random, 4) ? Choose(random, kNumbers) : std::to_string(Between(random, 0, 100000));
}

std::string Name(Random &random) {
  static const Words kNames = {
      "search", "docs",
      "search", "docs",
      "a",      "",
      "b",      "an id of more than sixty-four characters, which is cut where the field ends"};
  return OneIn(random, 20) ? Letters(random, 1, 300) : Choose(random, kNames);
}

std::string Separator(Random &random) { return OneIn(random, 60) ? "\r" : "\t"; }

std::string Field(Random &random, const Words &macros) {
  static const Words kNumbers = {"BESTFIT", "DOCNUM", "MAXHITS", "SEQNUM", "EXPDATE"};
  static const Words kTexts = {"RECTYPE", "SCRIPT", "AUTHCODE", "FILENAME", "OTHER", "@", "OPER"};
  switch (Between(random, 0, 9)) {
    case 0:
    case 1:
    case 2: return "@" + Choose(random, kNumbers) + "=" + Number(random);
    case 3:
    case 4: return "@SEARCHGROUP=" + Name(random);
    case 5:
    case 6: return macros.empty() ? "@MACROFILE=x" : "@MACROFILE=" + Choose(random, macros);
    case 7:
      return "@" + Letters(random, 0, OneIn(random, 10) ? 200 : 10) + "=" + Letters(random, 0, 20);
    default:
      return "@" + Choose(random, kTexts) + "=" + Letters(random, 0, OneIn(random, 20) ? 1200 : 30);
  }
}

void Mutate(Random &random, std::string *text) {
  for (int changes = Between(random, 1, 4); changes > 0 && !text->empty(); --changes) {
    const auto at =
        static_cast<std::size_t>(Between(random, 0, static_cast<int>(text->size()) - 1));
    const auto byte = static_cast<char>(Between(random, 0, 255));
    switch (Between(random, 0, 4)) {
      case 0: (*text)[at] = byte; break;
      case 1: text->insert(at, 1, byte); break;
      case 2: text->erase(at, static_cast<std::size_t>(Between(random, 1, 8))); break;
      case 3:
        text->insert(at, text->substr(at, static_cast<std::size_t>(Between(random, 1, 300))));
        break;
      default: text->insert(at, 1, "\t\n\r=@"[Between(random, 0, 4)]);
    }
  }
}

// What is behind the line that is served would be lost, and a page with it.
void CutBehindLine(std::string *text) {
  const std::size_t line = text->find('\n');
  if (line == std::string::npos || text->find('\0') < line) return;
  const std::size_t end = line < 4096 ? line : text->find('\n', line + 1);
  if (end != std::string::npos) text->resize(end + 1);
}

std::string Header(Random &random, const std::string &command, const Words &macros) {
  std::string text = Separator(random) + "@COMMAND=" + command;
  for (int fields = Between(random, 0, 4); fields > 0; --fields)
    text.insert(OneIn(random, 8) ? 0 : text.size(), Separator(random) + Field(random, macros));
  return text;
}

std::string Record(Random &random) {
  static const Words kCommands = {
      "HIT", "HIT", "HIT", "HIT", "RAW", "RAW", "ERROR", "SEARCHCOMPLETE", "NONE"};
  std::string record = Header(random, Choose(random, kCommands), {});
  if (OneIn(random, 2)) record += "\t@SEARCHGROUP=docs";
  if (!OneIn(random, 8)) record += "\t" + Letters(random, 0, 200);
  if (OneIn(random, 100))
    record.resize(static_cast<std::size_t>(Between(random, 40957, 40961)), 'r');
  return record + "\n";
}

std::string Pair(Random &random) {
  static const Words kNames = {"NAME", "BODY", "NUM", "X", "NAME", "BODY"};
  if (OneIn(random, 4))
    return "\tFETCH=" + Name(random) + Choose(random, {" ", ",", ", ", "|"}) + "text " +
           Number(random);
  const int size = OneIn(random, 30) ? 5000 : 40;
  return "\t" + Choose(random, kNames) + "=" +
         (OneIn(random, 3) ? Number(random) : Letters(random, 0, size));
}

std::string Operand(const std::string &text) { return static_cast<char>(text.size()) + text; }

std::string Little(std::uint32_t number) {
  std::string bytes;
  for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(number >> shift & 255);
  return bytes;
}

// One instruction.  The macro that op 13 names is empty: when its field is missing the name runs as
// code, and an empty one ends the macro.
std::string Instruction(Random &random) {
  static const Words kNames = {"NAME", "BODY", "NUM", "X", "FETCH", "\tNAME", "MISSING"};
  const std::string name = Operand(Choose(random, kNames));
  const std::string some(1, static_cast<char>(Between(random, 0, 17)));
  switch (Between(random, 0, 15)) {
    case 0: return "\x01" + Little(20) + Letters(random, 20, 20);
    case 1: return "\x02" + Little(4) + "BODY";
    case 2: return "\x03" + Little(static_cast<std::uint32_t>(Between(random, -5, 200)));
    case 3: return "\x07";
    case 4: return "\x08";
    case 5: return "\x09";
    case 6: return "\x0a" + some;
    case 7: return "\x0b" + some;
    case 8: return "\x0c" + name;
    case 9: return "\x0d" + name + std::string(1, '\0');
    case 10: return "\x0e" + name;
    case 11: return "\x0f" + some + name;
    case 12: return "\x42" + name;
    case 13: return "\x43" + some + name;
    case 14: return "\x44" + name;
    default: return "\x41" + Operand(Letters(random, 0, 60));
  }
}

}  // namespace

std::vector<std::string> Hostile_Macros(Random &random, const Folder &folder) {
  Words macros = {"none", "/nowhere/none", "", "/" + std::string(126, 'l')};
  for (int number = 0; number < 24; ++number) {
    std::string code;
    for (int count = Between(random, 0, 8); count > 0; --count) code += Instruction(random);
    // An end, none, or an operand that runs past it.
    code += number % 3 == 0 ? EndOp() : number % 3 == 1 ? "" : OneIn(random, 3) ? "\x41\x7f" : "";
    const std::string name = "macro" + std::to_string(number);
    folder.Write(name + ".mo", code);
    if (!OneIn(random, 4)) folder.Write(name + ".hdr", Letters(random, 0, 300));
    if (!OneIn(random, 4)) folder.Write(name + ".tail", Bytes(random, 0, 300));
    for (int often = 0; often < 3; ++often) macros.push_back(folder.Path() + "/" + name);
  }
  return macros;
}

std::string Hostile_Line(Random &random, const std::vector<std::string> &macros) {
  static const Words kCommands = {"QUERY", "QUERY", "QUERY", "GETDOC", "GETDOC", "FIND", ""};
  std::string line = Header(random, Choose(random, kCommands), macros);
  // Most reach a manager.
  if (!OneIn(random, 3)) line += "\t@MACROFILE=" + Choose(random, macros);
  if (!OneIn(random, 3))
    line +=
        line.find("GETDOC") != std::string::npos ? "\t@SEARCHGROUP=docs" : "\t@SEARCHGROUP=search";
  line += "\t" + Letters(random, 0, 60);
  if (OneIn(random, 60)) line.resize(static_cast<std::size_t>(Between(random, 4090, 6000)), 'w');
  line += "\n";
  if (OneIn(random, 4)) Mutate(random, &line);
  if (OneIn(random, 40)) line = Bytes(random, 0, 300);
  CutBehindLine(&line);
  return line;
}

std::string Hostile_Datagram(Random &random, const Ports &ports) {
  static const Words kLevels = {"INFO",  "INFO", "STATUS", "STATUS", "WARNING",
                                "FATAL", "OFF",  "info",   ""};
  static const Words kHosts = {"127.0.0.1", "127.0.0.1", "127.0.0.1",          "0.0.0.0",
                               "localhost", "",          "127.000.000.0000001"};
  const Words numbers = {std::to_string(ports.search),
                         std::to_string(ports.docs),
                         std::to_string(ports.nobody),
                         "0",
                         "-1",
                         "32768",
                         "65536",
                         "99999",
                         "x"};
  static const Words kOthers = {"PONG", "SHUTDOWNANNOUNCEMENT", "NONE", "", "STARTUPANNOUNCEMENT"};
  std::string text;
  switch (Between(random, 0, 5)) {
    case 0: text = Announcement('S', "search", ports.search); break;
    case 1: text = Announcement('D', "docs", ports.docs); break;
    case 2:
      text = "\t@COMMAND=STARTUPANNOUNCEMENT\tID=" + Name(random) +
             "\tTYPE=" + Choose(random, {"S", "D", "E", "C", "", "SD"}) +
             "\tIP=" + Choose(random, kHosts) + "\tCLIENTPORT=" + Choose(random, numbers) +
             "\tADMINPORT=" + Choose(random, numbers) + "\n";
      break;
    case 3: text = "\t@COMMAND=PING\t@SEQNUM=" + Number(random) + "\n"; break;
    case 4: text = "\t@COMMAND=SETDEBUGLEVEL\tDEBUGLEVEL=" + Choose(random, kLevels) + "\n"; break;
    default:
      text = Header(random, Choose(random, kOthers), {}) + "\t" + Letters(random, 0, 5000) + "\n";
  }
  if (OneIn(random, 5)) Mutate(random, &text);
  if (OneIn(random, 40)) text = Bytes(random, 0, 300);
  const std::size_t end = text.find("SHUTDOWN");
  if (end != std::string::npos && text.compare(end, 12, "SHUTDOWNANNO") != 0) text[end] = 'N';
  return text;
}

std::string Hostile_Search(Random &random) {
  std::string answer;
  for (int records = Between(random, 0, 6); records > 0; --records) answer += Record(random);
  if (answer.size() < kPacket && OneIn(random, 5)) Mutate(random, &answer);
  return answer;
}

std::string Hostile_Document(Random &random) {
  std::string answer = "\t@COMMAND=HIT";
  for (int pairs = Between(random, 0, 8); pairs > 0; --pairs) answer += Pair(random);
  if (OneIn(random, 100))
    answer.resize(static_cast<std::size_t>(Between(random, 38990, 40961)), 'd');
  answer += "\n";
  if (answer.size() < kPacket && OneIn(random, 5)) Mutate(random, &answer);
  return OneIn(random, 20) ? "" : answer;
}
