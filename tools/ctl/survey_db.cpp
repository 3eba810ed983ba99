#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "tools/common/tool.h"
#include "tools/ctl/survey.h"

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMaxName = sizeof DBInfo::DBName - 1;
constexpr std::size_t kMaxLocation = sizeof DBInfo::SearchLocation - 1;
constexpr std::size_t kStubMost = 64 << 10;  // bytes of a stub that are looked at

void ReportDb(Survey *survey, int number, Weight weight, const std::string &text) {
  Survey_Report(survey, survey->db_path, number, weight, text);
}

const ConfPiece *FindDb(const Survey &survey, const std::string &id) {
  for (const ConfPiece &piece : survey.db_pieces)
    if (piece.is_seen && !piece.words.empty() && piece.words[0] == id) return &piece;
  return nullptr;
}

bool HasEngine(const Survey &survey, const ConfLine &manager) {
  return std::any_of(survey.conf.lines.begin(), survey.conf.lines.end(), [&](const ConfLine &line) {
    return line.is_complete && line.config.Type == 'E' && line.words[5] == manager.words[0];
  });
}

// By the rights that count for open(2), also while root has those of another user.
bool May(const std::string &path, int mode) {
  return faccessat(AT_FDCWD, path.c_str(), mode, AT_EACCESS) == 0;
}

// The first bytes of a file, at most so many.
std::string Beginning(const std::string &path, std::size_t most) {
  std::ifstream file(path, std::ios::binary);
  std::string begin(most, '\0');
  file.read(begin.data(), static_cast<std::streamsize>(most));
  begin.resize(static_cast<std::size_t>(file.gcount()));
  return begin;
}

// A stub names databases, each in a line; "#" begins a comment.
bool IsStub(const std::string &path) {
  std::istringstream text(Beginning(path, kStubMost));
  std::string first;
  for (std::string line; first.empty() && std::getline(text, line);)
    if (line[0] != '#') std::istringstream(line) >> first;
  for (const char *kind : {"auto", "glass", "honey", "chert", "remote", "inmemory"})
    if (first == kind) return true;
  return false;
}

bool IsGlass(const std::string &path) {
  constexpr std::string_view kBegin = "\x0f\x0dXapian Glass";
  return Beginning(path, kBegin.size()) == kBegin;
}

// What is wrong with the database at that place, or nothing: whether it is whole is not told.
std::string LookAtDatabase(const std::string &path, const std::string &reader) {
  if (path[0] != '/')
    return "is looked for from where its program is started; write the whole path";
  std::error_code error;
  const bool is_folder = fs::is_directory(path, error);
  std::string file = path;
  if (is_folder) {
    file = path + "/iamglass";
    for (const char *other : {"/iamhoney", "/XAPIANDB"})
      if (!fs::exists(file, error)) file = path + other;
    if (May(path, X_OK) && !fs::exists(file, error))
      return "holds no database; make one with korvo-index";
  }
  if (!May(file, R_OK))
    return Tool_Format("cannot be read: %s; make it, or let %s read it", std::strerror(errno),
                       reader.empty() ? "this user" : reader.c_str());
  if (file.ends_with("/iamglass"))
    return IsGlass(file) ? "" : "holds no database, whose iamglass begins otherwise; restore it";
  if (!fs::is_regular_file(file, error) || file.ends_with("/iamhoney") || IsStub(file) ||
      IsGlass(file))
    return "";
  return "is a file, but no stub: none of auto, glass, honey, chert, remote and inmemory is its "
         "first word; name a folder that korvo-index has filled";
}

void CheckLocation(Survey *survey, const ConfLine &line, const ConfPiece &piece) {
  const bool is_search = line.config.Type != 'D';
  const char *name = is_search ? "SEARCHLOC" : "DOCLOC";
  const std::string &path = piece.words[is_search ? 2 : 3];
  if (path == "-") {
    if (line.config.Type == 'E')
      ReportDb(survey, piece.number, Weight::kSurvived,
               Tool_Format("%s is missing for %s; a Search Engine serves a database", name,
                           Conf_Name(line).c_str()));
    else if (!HasEngine(*survey, line))
      ReportDb(survey, piece.number, Weight::kSurvived,
               Tool_Format("%s has neither a database nor an engine, and finds nothing; name a "
                           "database, or add an engine",
                           Conf_Name(line).c_str()));
    return;
  }
  const std::string fault = path.size() > kMaxLocation
                                ? Tool_Format("is longer than %d characters and is cut; shorten it",
                                              static_cast<int>(kMaxLocation))
                                : LookAtDatabase(path, survey->reader);
  if (!fault.empty())
    ReportDb(survey, piece.number, Weight::kSurvived,
             Tool_Format("%s %s %s", name, path.c_str(), fault.c_str()));
}

// The database of a program that runs here.
void CheckDatabase(Survey *survey, const ConfLine &line) {
  if (line.config.Type == 'C') return;
  const bool is_engine = line.config.Type == 'E';
  const Weight weight = is_engine ? Weight::kFatal : Weight::kSurvived;
  const ConfPiece *piece = FindDb(*survey, line.words[0]);
  if (piece == nullptr) {
    if (is_engine || !HasEngine(*survey, line))
      ReportDb(survey, 1, weight,
               Tool_Format("no line has the id of %s, which has no database then; add ID DBNAME "
                           "SEARCHLOC DOCLOC",
                           Conf_Name(line).c_str()));
    return;
  }
  if (piece->words.size() < 4)
    return ReportDb(survey, piece->number, weight,
                    Tool_Format("has %d of the 4 words ID DBNAME SEARCHLOC DOCLOC; add the rest",
                                static_cast<int>(piece->words.size())));
  if (piece->words[1].size() > kMaxName)
    ReportDb(survey, piece->number, Weight::kSurvived,
             Tool_Format("DBNAME is longer than %d characters and is cut; shorten it",
                         static_cast<int>(kMaxName)));
  CheckLocation(survey, line, *piece);
}

void CheckDbIds(Survey *survey) {
  for (const ConfPiece &piece : survey->db_pieces) {
    if (!piece.is_seen || piece.words.empty() || !Survey_IsWanted(*survey, piece.words[0]))
      continue;
    const std::string &id = piece.words[0];
    if (const ConfPiece *first = FindDb(*survey, id); first != &piece)
      ReportDb(survey, piece.number, Weight::kSurvived,
               Tool_Format("line %d has this id, and no program reads a second one; delete it",
                           first->number));
    if (Conf_Named(survey->conf, id).empty())
      ReportDb(survey, piece.number, Weight::kSurvived,
               Tool_Format("korvo.conf has no program %s; delete the line, or add one there",
                           id.c_str()));
  }
}

}  // namespace

void Survey_Databases(Survey *survey) {
  for (const ConfLine *line : Conf_Programs(survey->conf))
    if (survey->ids.empty() ? Conf_IsHere(*line)
                            : !survey->own.empty() && Survey_IsOwn(*survey, *line))
      CheckDatabase(survey, *line);
  CheckDbIds(survey);
}
