#include "tools/ctl/survey.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <tuple>

#include "tools/common/tool.h"
#include "tools/ctl/places.h"
#include "tools/ctl/user.h"

namespace {

void TakeId(Survey *survey, const std::string &name) {
  survey->own = Conf_Named(survey->conf, name);
  survey->ids = {name};
  for (const ConfLine *line : survey->own) {
    survey->ids.insert(line->words[0]);
    for (const ConfLine *parent : Conf_Parents(survey->conf, *line)) {
      survey->ids.insert(parent->words[0]);
      survey->above.push_back(parent);
    }
  }
  if (survey->own.empty())
    Survey_Report(survey, survey->conf.path, 1, Weight::kFatal,
                  Tool_Format("has no program %s; add its line, or name another", name.c_str()));
}

// What this user may do about it; about what another one cannot read that one has to be let.
std::string ReadFault(const Survey &survey, int err, const char *remedy) {
  if (survey.reader.empty())
    return Tool_Format("cannot be read: %s; %s", std::strerror(err), remedy);
  return Tool_Format("cannot be read: %s; let %s read it", std::strerror(err),
                     survey.reader.c_str());
}

bool IsOfThePrograms(const std::string &dir) {
  std::error_code error;
  return std::filesystem::equivalent(dir, kCtlDir, error);
}

// Nothing of the file concerns this machine.
void CheckPlaces(Survey *survey) {
  const std::vector<const ConfLine *> programs = Conf_Programs(survey->conf);
  if (programs.empty())
    Survey_Report(survey, survey->conf.path, 1, Weight::kSurvived,
                  "has no program, and nothing starts; add a line for each");
  else if (std::none_of(programs.begin(), programs.end(),
                        [](const ConfLine *line) { return Conf_IsHere(*line); }))
    Survey_Report(survey, survey->conf.path, 1, Weight::kSurvived,
                  "has no program with an address of this machine, and nothing starts here; write "
                  "its address in the lines of those that shall");
}

void Read(Survey *survey, const std::string &dir) {
  int err = 0;
  survey->conf.path = dir + "/korvo.conf";
  survey->pieces = Conf_Pieces(survey->conf.path, &err);
  survey->conf.lines = Conf_Lines(survey->pieces);
  if (err != 0)
    Survey_Report(survey, survey->conf.path, 1, Weight::kFatal,
                  ReadFault(*survey, err, "--dir names its folder"));
  survey->db_path = dir + "/korvo.db";
  survey->db_pieces = Conf_Pieces(survey->db_path, &err);
  if (err != 0 && err != ENOENT)
    Survey_Report(survey, survey->db_path, 1, Weight::kFatal,
                  ReadFault(*survey, err, "let this user read it"));
}

void CheckPieces(Survey *survey, const std::string &path, const std::vector<ConfPiece> &pieces) {
  for (const ConfPiece &piece : pieces) {
    const std::string id = piece.words.empty() ? "" : piece.words[0];
    const bool is_wanted = piece.words.empty() || Survey_IsWanted(*survey, id);
    if (!is_wanted) continue;
    if (piece.is_cut)
      Survey_Report(
          survey, path, piece.number, Weight::kSurvived,
          "is longer than 1023 characters, and the rest is read as another line; shorten it");
    if (piece.has_nul)
      Survey_Report(survey, path, piece.number, Weight::kSurvived,
                    "holds a NUL character, and the programs do not see what is behind it; delete "
                    "it");
    if (piece.words.empty()) continue;
    if (!piece.is_seen)
      Survey_Report(
          survey, path, piece.number, Weight::kFatal,
          "does not end in a newline, and the programs do not see it; end the file with one");
    if (piece.words.back().back() == '\r')
      Survey_Report(
          survey, path, piece.number, Weight::kSurvived,
          "ends in a carriage return, which belongs to its last word; end lines in a newline "
          "alone");
  }
}

// By file and line.  What the pieces of a line, or the programs that share one, have in common is
// said once.
void Sort(Survey *survey) {
  std::set<std::tuple<std::string, int, std::string>> seen;
  std::erase_if(survey->findings, [&seen](const Remark &remark) {
    return !seen.insert({remark.path, remark.number, remark.text}).second;
  });
  std::stable_sort(survey->findings.begin(), survey->findings.end(),
                   [](const Remark &a, const Remark &b) {
                     return a.path != b.path ? a.path < b.path : a.number < b.number;
                   });
}

}  // namespace

void Survey_Report(Survey *survey, const std::string &path, int number, Weight weight,
                   const std::string &text) {
  survey->findings.push_back({path, number, weight == Weight::kFatal, text});
}

bool Survey_IsWanted(const Survey &survey, const std::string &id) {
  return survey.ids.empty() || survey.ids.count(id) == 1;
}

bool Survey_IsOwn(const Survey &survey, const ConfLine &line) {
  return survey.own.empty() || std::count(survey.own.begin(), survey.own.end(), &line) == 1;
}

Survey Survey_All(const std::string &dir, const std::string &name,
                  const std::vector<std::string> &folders) {
  Survey survey;
  const UserGuard user(IsOfThePrograms(dir) ? kUserOfPrograms : nullptr);
  if (user.IsOther()) survey.reader = Tool_Format("user %s", kUserOfPrograms);
  Read(&survey, dir);
  if (!survey.findings.empty()) return survey;  // nothing else can be told
  if (name.empty())
    CheckPlaces(&survey);
  else
    TakeId(&survey, name);
  CheckPieces(&survey, survey.conf.path, survey.pieces);
  CheckPieces(&survey, survey.db_path, survey.db_pieces);
  Survey_Conf(&survey);
  Survey_Databases(&survey);
  for (const std::string &folder : folders) Survey_Pages(&survey, folder);
  Sort(&survey);
  return survey;
}
