// tools/ctl/survey.h: what is wrong in korvo.conf, korvo.db, page frames and macros.
#ifndef TOOLS_CTL_SURVEY_H
#define TOOLS_CTL_SURVEY_H

#include <set>
#include <string>
#include <vector>

#include "tools/ctl/conf.h"

struct Remark {
  std::string path;
  int number;
  bool is_fatal;  // a program would not start, or not be found
  std::string text;
};

struct Survey {
  Conf conf;
  std::vector<ConfPiece> pieces;
  std::string db_path;
  std::vector<ConfPiece> db_pieces;
  std::vector<const ConfLine *> own;    // the programs that were named; none: all of them
  std::vector<const ConfLine *> above;  // their parents
  std::set<std::string> ids;            // of both; none: all
  std::vector<Remark> findings;
  std::string reader;  // who reads it all, for a user
};

// Of both files, and of the frames and macros below the folders.  A name asks for what matters to
// the programs of that id alone.  Findings are in the order of files and lines.  Root reads the
// folder of the installed programs as their user does.
Survey Survey_All(const std::string &dir, const std::string &name,
                  const std::vector<std::string> &folders);

enum class Weight { kSurvived, kFatal };

void Survey_Report(Survey *survey, const std::string &path, int number, Weight weight,
                   const std::string &text);

// Whether that id is asked for.
bool Survey_IsWanted(const Survey &survey, const std::string &id);

// Whether what it is, not what others take from it, is asked for.
bool Survey_IsOwn(const Survey &survey, const ConfLine &line);

// survey_conf.cpp
void Survey_Conf(Survey *survey);

// survey_db.cpp
void Survey_Databases(Survey *survey);

// survey_pages.cpp: all below the folder, or the end of the process with EX_NOINPUT.
void Survey_Pages(Survey *survey, const std::string &folder);

#endif
