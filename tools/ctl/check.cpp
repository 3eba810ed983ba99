#include "tools/macro/check.h"

#include <arpa/inet.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>

#include "debug/text.h"
#include "tools/common/tool.h"
#include "tools/ctl/commands.h"
#include "tools/macro/asm.h"

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMaxId = sizeof ConfigInfo::ID - 1;
constexpr std::size_t kMaxName = sizeof DBInfo::DBName - 1;
constexpr std::size_t kMaxLocation = sizeof DBInfo::SearchLocation - 1;
constexpr std::uintmax_t kMaxFrame = 10238;
constexpr int kExitSurvived = 1;  // the exit status when all programs would start

struct Remark {
  std::string path;
  int number;
  bool is_fatal;  // a program would not start, or not be found
  std::string text;
};

struct Check {
  Conf conf;
  std::vector<ConfPiece> pieces;
  std::string db_path;
  std::vector<ConfPiece> db_pieces;
  std::vector<const ConfLine *> own;    // the programs that were named; none: all of them
  std::vector<const ConfLine *> above;  // their parents
  std::set<std::string> ids;            // of both; none: all
  std::vector<Remark> findings;
};

enum class Weight { kSurvived, kFatal };

void Report(Check *check, const std::string &path, int number, Weight weight,
            const std::string &text) {
  check->findings.push_back({path, number, weight == Weight::kFatal, text});
}

void ReportLine(Check *check, const ConfLine &line, Weight weight, const std::string &text) {
  Report(check, check->conf.path, line.number, weight, text);
}

void ReportDb(Check *check, int number, Weight weight, const std::string &text) {
  Report(check, check->db_path, number, weight, text);
}

bool IsWanted(const Check &check, const std::string &id) {
  return check.ids.empty() || check.ids.count(id) == 1;
}

// Whether what it is, not what others take from it, is asked for.
bool IsOwn(const Check &check, const ConfLine &line) {
  return check.own.empty() || std::count(check.own.begin(), check.own.end(), &line) == 1;
}

// Whether one of those that were named cannot start without it; a line without a type could be any.
bool IsConcerned(const Check &check, const ConfLine &line) {
  const auto is_same = [&line](const ConfLine *other) {
    return other->words[0] == line.words[0] && other->words[1] == line.words[1];
  };
  return check.own.empty() || line.words.size() < 2 || !line.is_complete ||
         std::any_of(check.own.begin(), check.own.end(), is_same) ||
         std::any_of(check.above.begin(), check.above.end(), is_same);
}

// Either file.

void CheckPieces(Check *check, const std::string &path, const std::vector<ConfPiece> &pieces) {
  int cut = 0;
  for (const ConfPiece &piece : pieces) {
    const std::string id = piece.words.empty() ? "" : piece.words[0];
    if (piece.is_cut && piece.number != cut && (IsWanted(*check, id) || piece.words.empty())) {
      cut = piece.number;
      Report(check, path, piece.number, Weight::kSurvived,
             "is longer than 1023 characters, and the rest is read as another line; shorten it");
    }
    if (piece.words.empty() || !IsWanted(*check, id)) continue;
    if (!piece.is_seen)
      Report(check, path, piece.number, Weight::kFatal,
             "does not end in a newline, and the programs do not see it; end the file with one");
    if (piece.words.back().back() == '\r')
      Report(check, path, piece.number, Weight::kSurvived,
             "ends in a carriage return, which belongs to its last word; end lines in a newline "
             "alone");
  }
}

// A line of korvo.conf.

bool IsType(const std::string &word) {
  return word == "C" || word == "S" || word == "D" || word == "E";
}

void CheckWords(Check *check, const ConfLine &line) {
  const std::vector<std::string> &words = line.words;
  if (words[0].size() > kMaxId)
    ReportLine(check, line, Weight::kSurvived,
               Tool_Format("ID is longer than %d characters and is cut; shorten it",
                           static_cast<int>(kMaxId)));
  if (words.size() > 1 && !IsType(words[1]))
    ReportLine(check, line, Weight::kFatal,
               Tool_Format("TYPE %s is none of C, S, D and E; take one of them", words[1].c_str()));
  if (words.size() < 6)
    ReportLine(check, line, Weight::kFatal,
               Tool_Format("has %d of the 6 words ID TYPE IP CLIENTPORT ADMINPORT PARENTID; add "
                           "the rest",
                           static_cast<int>(words.size())));
}

void CheckAddress(Check *check, const ConfLine &line) {
  const char *word = line.words[2].c_str();
  in_addr address = {inet_addr(line.config.IP)};
  if (address.s_addr == INADDR_NONE || address.s_addr == INADDR_ANY)
    return ReportLine(check, line, Weight::kFatal,
                      Tool_Format("IP %s is no address to listen on; take an IPv4 address of the "
                                  "machine",
                                  word));
  char text[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &address, text, sizeof text);
  if (std::strcmp(text, word) != 0)
    ReportLine(check, line, Weight::kSurvived,
               Tool_Format("IP %s is read as %s; write it so", word, text));
  if (!check->own.empty() && IsOwn(*check, line) && !Conf_IsHere(line))
    ReportLine(check, line, Weight::kFatal,
               Tool_Format("IP %s is no address of this machine; start the program where it is, "
                           "or change it",
                           word));
}

void CheckPort(Check *check, const ConfLine &line, const char *name, const std::string &word) {
  const std::int16_t port = Text_ToPort(word);
  if (port <= 0)
    ReportLine(
        check, line, Weight::kFatal,
        Tool_Format("%s %s cannot be used; take a number from 1 to 32767", name, word.c_str()));
  else if (word != std::to_string(port))
    ReportLine(check, line, Weight::kSurvived,
               Tool_Format("%s %s is read as %d; write it so", name, word.c_str(), port));
}

// Two programs at one port: the second does not start.
void CheckTaken(Check *check, const ConfLine &line) {
  for (const ConfLine &other : check->conf.lines) {
    if (&other == &line) return;
    if (!other.is_complete || std::strcmp(other.config.IP, line.config.IP) != 0) continue;
    for (const bool is_client : {true, false}) {
      const auto port = is_client ? &ConfigInfo::ClientPort : &ConfigInfo::AdminPort;
      if (other.config.*port != line.config.*port) continue;
      ReportLine(check, line, Weight::kFatal,
                 Tool_Format("%s %d of %s is that of %s in line %d, too; take another",
                             is_client ? "CLIENTPORT" : "ADMINPORT", line.config.*port,
                             line.config.IP, Conf_Name(other).c_str(), other.number));
    }
  }
}

void ReportNoParent(Check *check, const ConfLine &line) {
  const char *parent = line.config.ParentID;
  const char *shown = *parent != '\0' ? parent : "-";
  if (line.config.Type == 'E')
    ReportLine(check, line, Weight::kFatal,
               Tool_Format("there is no Search Manager %s (type S) for PARENTID; add its line, or "
                           "name another",
                           shown));
  else
    ReportLine(check, line, Weight::kFatal,
               Tool_Format("there is no Communications Manager %s (type C) for PARENTID; add its "
                           "line, or name another",
                           shown));
}

void CheckParents(Check *check, const ConfLine &line) {
  const std::vector<const ConfLine *> parents = Conf_Parents(check->conf, line);
  if (line.config.Type == 'C') {
    if (line.config.ParentID[0] != '\0')
      ReportLine(check, line, Weight::kSurvived,
                 Tool_Format("a Communications Manager has no parent; put - for %s",
                             line.config.ParentID));
    return;
  }
  const bool is_engine = line.config.Type == 'E';
  if (parents.empty() || parents[0]->config.Type != (is_engine ? 'S' : 'C'))
    return ReportNoParent(check, line);
  if (is_engine && parents.size() < 2)
    ReportLine(check, line, Weight::kSurvived,
               Tool_Format("there is no Document Manager %s (type D) for PARENTID, and its "
                           "documents cannot be fetched; add its line",
                           line.config.ParentID));
  for (const ConfLine *parent : parents)
    if (parent->number > line.number)
      ReportLine(check, line, Weight::kSurvived,
                 Tool_Format("stands before its parent %s in line %d, and has to start behind it; "
                             "move it there",
                             Conf_Name(*parent).c_str(), parent->number));
}

void CheckDoubled(Check *check, const ConfLine &line) {
  for (const ConfLine &other : check->conf.lines) {
    if (&other == &line) return;
    if (other.words[0] != line.words[0] || other.words.size() < 2 || line.words.size() < 2 ||
        other.words[1] != line.words[1])
      continue;
    return ReportLine(check, line, Weight::kSurvived,
                      Tool_Format("line %d has this id and type, and only korvoctl announce takes "
                                  "a second one, as a standby; delete it unless it is one",
                                  other.number));
  }
}

void CheckLine(Check *check, const ConfLine &line) {
  if (!IsWanted(*check, line.words[0]) || !IsConcerned(*check, line)) return;
  CheckWords(check, line);
  CheckDoubled(check, line);
  if (!line.is_complete || !IsType(line.words[1])) return;
  CheckAddress(check, line);
  CheckPort(check, line, "CLIENTPORT", line.words[3]);
  CheckPort(check, line, "ADMINPORT", line.words[4]);
  CheckTaken(check, line);
  if (IsOwn(*check, line)) CheckParents(check, line);
}

// korvo.db.

const ConfPiece *FindDb(const Check &check, const std::string &id) {
  for (const ConfPiece &piece : check.db_pieces)
    if (piece.is_seen && !piece.words.empty() && piece.words[0] == id) return &piece;
  return nullptr;
}

bool HasEngine(const Check &check, const ConfLine &manager) {
  return std::any_of(check.conf.lines.begin(), check.conf.lines.end(), [&](const ConfLine &line) {
    return line.is_complete && line.config.Type == 'E' && line.words[5] == manager.words[0];
  });
}

// What is wrong with the database at that place, or nothing: this tool does not know its format.
std::string LookAtDatabase(const std::string &path) {
  if (path[0] != '/')
    return "is looked for from where its program is started; write the whole path";
  std::error_code error;
  const bool is_folder = fs::is_directory(path, error);
  std::string file = path;  // a stub names databases
  if (is_folder) {
    file = path + "/iamglass";
    for (const char *other : {"/iamhoney", "/XAPIANDB"})
      if (!fs::exists(file, error)) file = path + other;
    if (access(path.c_str(), X_OK) == 0 && !fs::exists(file, error))
      return "holds no database; make one with korvo-index";
  }
  if (access(file.c_str(), R_OK) == 0) return "";
  return Tool_Format("cannot be read: %s; make it, or let this user read it", std::strerror(errno));
}

void CheckLocation(Check *check, const ConfLine &line, const ConfPiece &piece) {
  const bool is_search = line.config.Type != 'D';
  const char *name = is_search ? "SEARCHLOC" : "DOCLOC";
  const std::string &path = piece.words[is_search ? 2 : 3];
  if (path == "-") {
    if (line.config.Type == 'E')
      ReportDb(check, piece.number, Weight::kSurvived,
               Tool_Format("%s is missing for %s; a Search Engine serves a database", name,
                           Conf_Name(line).c_str()));
    else if (!HasEngine(*check, line))
      ReportDb(check, piece.number, Weight::kSurvived,
               Tool_Format("%s has neither a database nor an engine, and finds nothing; name a "
                           "database, or add an engine",
                           Conf_Name(line).c_str()));
    return;
  }
  const std::string fault = path.size() > kMaxLocation
                                ? Tool_Format("is longer than %d characters and is cut; shorten it",
                                              static_cast<int>(kMaxLocation))
                                : LookAtDatabase(path);
  if (!fault.empty())
    ReportDb(check, piece.number, Weight::kSurvived,
             Tool_Format("%s %s %s", name, path.c_str(), fault.c_str()));
}

// The database of a program that runs here.
void CheckDatabase(Check *check, const ConfLine &line) {
  if (line.config.Type == 'C') return;
  const bool is_engine = line.config.Type == 'E';
  const Weight weight = is_engine ? Weight::kFatal : Weight::kSurvived;
  const ConfPiece *piece = FindDb(*check, line.words[0]);
  if (piece == nullptr) {
    if (is_engine || !HasEngine(*check, line))
      ReportDb(check, 1, weight,
               Tool_Format("no line has the id of %s, which has no database then; add ID DBNAME "
                           "SEARCHLOC DOCLOC",
                           Conf_Name(line).c_str()));
    return;
  }
  if (piece->words.size() < 4)
    return ReportDb(check, piece->number, weight,
                    Tool_Format("has %d of the 4 words ID DBNAME SEARCHLOC DOCLOC; add the rest",
                                static_cast<int>(piece->words.size())));
  if (piece->words[1].size() > kMaxName)
    ReportDb(check, piece->number, Weight::kSurvived,
             Tool_Format("DBNAME is longer than %d characters and is cut; shorten it",
                         static_cast<int>(kMaxName)));
  CheckLocation(check, line, *piece);
}

void CheckDbIds(Check *check) {
  for (const ConfPiece &piece : check->db_pieces) {
    if (!piece.is_seen || piece.words.empty() || !IsWanted(*check, piece.words[0])) continue;
    const std::string &id = piece.words[0];
    if (const ConfPiece *first = FindDb(*check, id); first != &piece)
      ReportDb(check, piece.number, Weight::kSurvived,
               Tool_Format("line %d has this id, and no program reads a second one; delete it",
                           first->number));
    if (Conf_Named(check->conf, id).empty())
      ReportDb(check, piece.number, Weight::kSurvived,
               Tool_Format("korvo.conf has no program %s; delete the line, or add one there",
                           id.c_str()));
  }
}

// Frames and macros.

void CheckFrame(Check *check, const std::string &path) {
  std::error_code error;
  const std::uintmax_t size = fs::file_size(path, error);
  if (!error && size > kMaxFrame)
    Report(check, path, 1, Weight::kSurvived,
           Tool_Format("has %d characters, of which the first %d are sent; shorten it",
                       static_cast<int>(size), static_cast<int>(kMaxFrame)));
}

// What fields documents have is not known here; korvo-macro check can be told.
void CheckMacro(Check *check, const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  std::string code(kMacroLimit, '\0');
  file.read(code.data(), static_cast<std::streamsize>(code.size()));
  code.resize(static_cast<std::size_t>(file.gcount()));
  for (const Finding &finding : Check_Macro(code, Documents_For(code)))
    if (Check_IsFault(finding) && finding.fault != Fault::kFetchLacks &&
        finding.fault != Fault::kWords)
      Report(check, path, 1, Weight::kSurvived,
             Tool_Format("offset %zu: %s; see korvo-macro check", finding.offset,
                         finding.what.c_str()));
}

void CheckPages(Check *check, const std::string &folder) {
  std::error_code error;
  fs::recursive_directory_iterator file(folder, error);
  if (error) Tool_Fail(EX_NOINPUT, "cannot read %s: %s", folder.c_str(), error.message().c_str());
  std::vector<fs::path> paths;
  for (; file != fs::recursive_directory_iterator(); file.increment(error))
    if (file->is_regular_file(error)) paths.push_back(file->path());
  std::sort(paths.begin(), paths.end());
  for (const fs::path &path : paths) {
    if (path.extension() == ".hdr" || path.extension() == ".tail") CheckFrame(check, path.string());
    if (path.extension() == ".mo") CheckMacro(check, path.string());
  }
}

// All.

void TakeId(Check *check, const std::string &name) {
  check->own = Conf_Named(check->conf, name);
  check->ids = {name};
  for (const ConfLine *line : check->own) {
    check->ids.insert(line->words[0]);
    for (const ConfLine *parent : Conf_Parents(check->conf, *line)) {
      check->ids.insert(parent->words[0]);
      check->above.push_back(parent);
    }
  }
  if (check->own.empty())
    Report(check, check->conf.path, 1, Weight::kFatal,
           Tool_Format("has no program %s; add its line, or name another", name.c_str()));
}

void Read(Check *check, const std::string &dir) {
  int err = 0;
  check->conf.path = dir + "/korvo.conf";
  check->pieces = Conf_Pieces(check->conf.path, &err);
  check->conf.lines = Conf_Lines(check->pieces);
  if (err != 0)
    Report(check, check->conf.path, 1, Weight::kFatal,
           Tool_Format("cannot be read: %s; --dir names its folder", std::strerror(err)));
  check->db_path = dir + "/korvo.db";
  check->db_pieces = Conf_Pieces(check->db_path, &err);
  if (err != 0 && err != ENOENT)
    Report(check, check->db_path, 1, Weight::kFatal,
           Tool_Format("cannot be read: %s; let this user read it", std::strerror(err)));
}

void Sort(Check *check) {
  std::stable_sort(check->findings.begin(), check->findings.end(),
                   [](const Remark &a, const Remark &b) {
                     return a.path != b.path ? a.path < b.path : a.number < b.number;
                   });
}

std::string Plain(const Remark &finding) {
  return Tool_Format("%s:%d: %s\n", finding.path.c_str(), finding.number, finding.text.c_str());
}

std::string Json(const Remark &finding) {
  return Tool_Format("{\"file\": %s, \"line\": %d, \"fatal\": %s, \"text\": %s}",
                     Request_Json(finding.path).c_str(), finding.number,
                     finding.is_fatal ? "true" : "false", Request_Json(finding.text).c_str());
}

std::string Shown(const Check &check, Form form) {
  std::string text;
  for (const Remark &finding : check.findings)
    text += form == Form::kPlain ? Plain(finding) : (text.empty() ? "[" : ",\n ") + Json(finding);
  if (form == Form::kPlain) return text;
  return text.empty() ? "[]\n" : text + "]\n";
}

Check Look(const std::string &dir, const std::string &name, const std::string &macros) {
  Check check;
  Read(&check, dir);
  if (!check.findings.empty()) return check;  // nothing else can be told
  if (!name.empty()) TakeId(&check, name);
  CheckPieces(&check, check.conf.path, check.pieces);
  CheckPieces(&check, check.db_path, check.db_pieces);
  for (const ConfLine &line : check.conf.lines) CheckLine(&check, line);
  for (const ConfLine *line : Conf_Programs(check.conf))
    if (check.own.empty() ? name.empty() && Conf_IsHere(*line) : IsOwn(check, *line))
      CheckDatabase(&check, *line);
  CheckDbIds(&check);
  if (!macros.empty()) CheckPages(&check, macros);
  Sort(&check);
  return check;
}

}  // namespace

int Command_Check(Request *request) {
  const Check check = Look(request->dir, Request_Word(*request, 0), request->macros);
  Tool_Print(Shown(check, request->form));
  int status = EX_OK;
  for (const Remark &finding : check.findings)
    if (status != EX_CONFIG) status = finding.is_fatal ? EX_CONFIG : kExitSurvived;
  return status;
}

std::vector<std::string> Command_Findings(const std::string &dir, const std::string &name) {
  std::vector<std::string> texts;
  for (const Remark &finding : Look(dir, name, "").findings) {
    texts.push_back(Plain(finding));
    texts.back().pop_back();
  }
  return texts;
}
