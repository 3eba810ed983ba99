// Both configuration files, each held against a plain reader of its lines.
//
// Parts: the file; an ID; a type letter.
#include <algorithm>
#include <cstdio>
#include <memory>
#include <vector>

#include "config/announce.h"
#include "config/conf_file.h"
#include "tests/fuzz/support/fuzz.h"
#include "tests/fuzz/support/scratch.h"

extern "C" {
std::FILE *__real_fopen(const char *path, const char *mode);
std::FILE *__wrap_fopen(const char *path, const char *mode);
}

namespace {

constexpr std::size_t kPieceSize = 1023;

// The readers leave their file open, and a process reads few; here they are many.
std::FILE *opened = nullptr;

void CloseFile() {
  FUZZ_CHECK(opened != nullptr);
  std::fclose(opened);
  opened = nullptr;
}

// The pieces that are looked at: a last one without its newline is not, unless it fills a read.
std::vector<std::string> Pieces(std::string_view file) {
  std::vector<std::string> pieces;
  while (!file.empty()) {
    const std::size_t end = file.find('\n');
    std::size_t size = end == std::string_view::npos ? file.size() : end + 1;
    if (size > kPieceSize)
      size = kPieceSize;
    else if (end == std::string_view::npos && size < kPieceSize)
      break;
    pieces.push_back(Fuzz_UpToNul(file.substr(0, size)));
    file.remove_prefix(size);
  }
  return pieces;
}

std::vector<std::string> Tokens(const std::string &piece) {
  std::vector<std::string> tokens;
  std::size_t at = 0;
  while ((at = piece.find_first_not_of(" \t\n", at)) != std::string::npos) {
    const std::size_t end = std::min(piece.find_first_of(" \t\n", at), piece.size());
    tokens.push_back(piece.substr(at, end - at));
    at = end;
  }
  return tokens;
}

bool Names(const std::vector<std::string> &tokens, const std::string &id) {
  return !tokens.empty() && tokens[0][0] != '#' && tokens[0] == id;
}

// The line that the reader of korvo.conf takes, complete or not; empty where there is none.
std::vector<std::string> ConfLine(const std::string &file, const std::string &id, char type) {
  for (const std::string &piece : Pieces(file)) {
    const std::vector<std::string> tokens = Tokens(piece);
    if (!Names(tokens, id)) continue;
    if (tokens.size() < 2 || tokens[1].size() != 1 || tokens[1][0] == type) return tokens;
  }
  return {};
}

std::vector<std::string> DBLine(const std::string &file, const std::string &id) {
  for (const std::string &piece : Pieces(file)) {
    const std::vector<std::string> tokens = Tokens(piece);
    if (Names(tokens, id)) return tokens;
  }
  return {};
}

template <std::size_t N>
void CheckField(const char (&field)[N], const std::string &expected) {
  FUZZ_CHECK(Fuzz_IsTerminated(field));
  FUZZ_CHECK(expected.substr(0, N - 1) == field);
}

std::string ReadConf(const std::string &path, const std::string &file, const std::string &id,
                     char type) {
  const auto config = std::make_unique<ConfigInfo>();
  const int result = Init_ReadConf(path.c_str(), id.c_str(), type, config.get());
  if (id.empty()) {
    FUZZ_CHECK(result == 0);
    return "";
  }
  CloseFile();
  const std::vector<std::string> line = ConfLine(file, id, type);
  const bool complete = line.size() >= 6 && line[1].size() == 1;
  FUZZ_CHECK(result == (complete ? 1 : 0));
  FUZZ_CHECK(Fuzz_IsTerminated(config->IP) && Fuzz_IsTerminated(config->ParentID));
  if (complete) {
    CheckField(config->ID, id);
    FUZZ_CHECK(config->Type == type);
    CheckField(config->IP, line[2]);
    CheckField(config->ParentID, line[5][0] == '-' ? "" : line[5]);
  }
  Init_DisplayCfg(config.get());

  SockAddr client = {}, admin = {};
  const bool usable = config->IP[0] != '\0' && config->ClientPort > 0 && config->AdminPort > 0;
  FUZZ_CHECK(Init_TCPIPSetup(config.get(), &client, &admin) == (usable ? 1 : 0));
  return std::string(config->ID) + config->Type + config->IP + '\t' +
         std::to_string(config->ClientPort) + '\t' + std::to_string(config->AdminPort) + '\t' +
         config->ParentID;
}

std::string ReadDB(const std::string &path, const std::string &file, const std::string &id) {
  const auto database = std::make_unique<DBInfo>();
  const int result = Init_ReadDB(path.c_str(), id.c_str(), database.get());
  if (id.empty()) {
    FUZZ_CHECK(result == 0);
    return "";
  }
  CloseFile();
  std::vector<std::string> line = DBLine(file, id);
  FUZZ_CHECK(result == (line.size() >= 4 ? 1 : 0));
  line.resize(4);
  CheckField(database->ID, line[0]);
  CheckField(database->DBName, line[1]);
  CheckField(database->SearchLocation, line[2]);
  CheckField(database->DocLocation, line[3]);
  FUZZ_CHECK(database->FieldList == nullptr);
  Init_DisplayDB(database.get());
  return std::string(database->ID) + '\t' + database->DBName + '\t' + database->SearchLocation +
         '\t' + database->DocLocation;
}

}  // namespace

std::FILE *__wrap_fopen(const char *path, const char *mode) {
  std::FILE *file = __real_fopen(path, mode);
  if (std::string(path).starts_with(Fuzz_ScratchDir())) opened = file;
  return file;
}

std::string Fuzz_Run(const Input &input) {
  const std::string file = input[0].Whole();
  const std::string id = Fuzz_UpToNul(input[1].Whole());
  const std::string letter = input[2].Whole();
  const char type = letter.empty() ? 'C' : letter[0];
  const std::string path = Fuzz_ScratchDir() + "/korvo";
  FUZZ_CHECK(Fuzz_WriteFile(path, file));
  return ReadConf(path, file, id, type) + '\n' + ReadDB(path, file, id);
}
