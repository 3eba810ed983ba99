// tools/ctl/conf.h: korvo.conf and korvo.db, read as the programs read them and with the numbers
// that an editor gives their lines.
#ifndef TOOLS_CTL_CONF_H
#define TOOLS_CTL_CONF_H

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "config/conf_file.h"

// What a program reads at once: a line, or 1023 characters of a longer one.
struct ConfPiece {
  int number;                      // of its line, from 1
  bool is_seen;                    // false: the end of the file cuts it off, so no program sees it
  bool is_cut;                     // the line goes on in the next piece
  bool has_nul;                    // which ends the text for a program
  std::vector<std::string> words;  // none for a comment
};

// Those of a file; none and *err set when it cannot be read.
std::vector<ConfPiece> Conf_Pieces(const std::string &path, int *err);

// A piece with words that the programs see.  Config is filled when it is complete: six words and a
// type of one letter.
struct ConfLine {
  int number;
  std::vector<std::string> words;
  bool is_complete;
  ConfigInfo config;
};

struct Conf {
  std::string path;
  std::vector<ConfLine> lines;
};

// The folder's korvo.conf, or the end of the process with EX_NOINPUT.
Conf Conf_Read(const std::string &dir);
std::vector<ConfLine> Conf_Lines(const std::vector<ConfPiece> &pieces);

// The line that a program of that id and type takes, or null.
const ConfLine *Conf_Find(const Conf &conf, std::string_view id, char type);

// The programs that "ID" names, of all types, or "ID:TYPE"; none: there is no such line.
std::vector<const ConfLine *> Conf_Named(const Conf &conf, const std::string &name);

// The same, or the end of the process with EX_CONFIG.
std::vector<const ConfLine *> Conf_Take(const Conf &conf, const std::string &name);

// The only one of lines that the name stands for, or the end of the process with EX_USAGE.
const ConfLine *Conf_TakeOnly(const std::vector<const ConfLine *> &lines, const std::string &name);

// Every line that is a program: of those with the same id and type the first.
std::vector<const ConfLine *> Conf_Programs(const Conf &conf);

// The programs that this one announces itself to.
std::vector<const ConfLine *> Conf_Parents(const Conf &conf, const ConfLine &line);

// All that announce themselves to a program, in the order of the file.
std::map<const ConfLine *, std::vector<const ConfLine *>> Conf_Children(const Conf &conf);

// "ID:TYPE".
std::string Conf_Name(const ConfLine &line);

// Whether the address of the line is one of this machine's.
bool Conf_IsHere(const ConfLine &line);

#endif
