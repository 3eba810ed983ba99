#include "tools/ctl/conf.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "debug/text.h"
#include "tools/common/peer.h"
#include "tools/common/tool.h"

namespace {

constexpr std::size_t kPieceSize = 1023;  // bytes of one read of a program
constexpr std::string_view kBlanks = " \t\n";
constexpr std::size_t kWords = 6;
constexpr char kTypes[] = {'C', 'S', 'D', 'E'};

std::vector<std::string> WordsOf(std::string_view text) {
  std::vector<std::string> words;
  for (std::string_view word; !(word = Text_Token(&text, kBlanks)).empty();)
    words.emplace_back(word);
  if (!words.empty() && words[0][0] == '#') words.clear();
  return words;
}

ConfLine LineOf(const ConfPiece &piece) {
  ConfLine line = {piece.number, piece.words, false, {}};
  const std::vector<std::string> &words = line.words;
  if (words.size() < kWords || words[1].size() != 1) return line;
  line.is_complete = true;
  // What is cut here is cut in the programs too.
  (void)Text_Copy(line.config.ID, words[0]);
  line.config.Type = words[1][0];
  (void)Text_Copy(line.config.IP, words[2]);
  line.config.ClientPort = Text_ToPort(words[3]);
  line.config.AdminPort = Text_ToPort(words[4]);
  if (words[5][0] != '-') (void)Text_Copy(line.config.ParentID, words[5]);
  return line;
}

// What could be read of it.
std::string TextOf(const std::string &path, int *err) {
  std::string text;
  std::FILE *file = std::fopen(path.c_str(), "r");
  *err = file == nullptr ? errno : 0;
  if (file == nullptr) return text;
  char buffer[65536];
  for (std::size_t got; (got = std::fread(buffer, 1, sizeof buffer, file)) > 0;)
    text.append(buffer, got);
  if (std::ferror(file) != 0) *err = errno;
  std::fclose(file);
  return text;
}

void Add(std::vector<const ConfLine *> *lines, const ConfLine *line) {
  if (line != nullptr) lines->push_back(line);
}

std::vector<const ConfLine *> OfAllTypes(const Conf &conf, std::string_view id) {
  std::vector<const ConfLine *> lines;
  for (const char type : kTypes) Add(&lines, Conf_Find(conf, id, type));
  return lines;
}

}  // namespace

std::vector<ConfPiece> Conf_Pieces(const std::string &path, int *err) {
  std::vector<ConfPiece> pieces;
  const std::string text = TextOf(path, err);
  int number = 1;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t line_end = text.find('\n', at);
    const std::size_t left = (line_end == std::string::npos ? text.size() : line_end + 1) - at;
    const std::string_view piece = std::string_view(text).substr(at, std::min(left, kPieceSize));
    at += piece.size();
    const bool is_line_end = piece.back() == '\n';
    const bool is_full = piece.size() == kPieceSize;
    const std::size_t nul = piece.find('\0');
    pieces.push_back({number, is_line_end || is_full, is_full && !is_line_end,
                      nul != std::string_view::npos, WordsOf(piece.substr(0, nul))});
    if (is_line_end) ++number;
  }
  return pieces;
}

std::vector<ConfLine> Conf_Lines(const std::vector<ConfPiece> &pieces) {
  std::vector<ConfLine> lines;
  for (const ConfPiece &piece : pieces)
    if (piece.is_seen && !piece.words.empty()) lines.push_back(LineOf(piece));
  return lines;
}

Conf Conf_Read(const std::string &dir) {
  Conf conf;
  conf.path = dir + "/korvo.conf";
  int err = 0;
  conf.lines = Conf_Lines(Conf_Pieces(conf.path, &err));
  if (err != 0)
    Tool_Fail(EX_NOINPUT, "cannot read %s: %s; --dir names its folder", conf.path.c_str(),
              std::strerror(err));
  return conf;
}

const ConfLine *Conf_Find(const Conf &conf, std::string_view id, char type) {
  for (const ConfLine &line : conf.lines) {
    if (line.words[0] != id) continue;
    // Whoever looks for it ends here: a type that is no letter could be any.
    if (line.words.size() < 2 || line.words[1].size() != 1) return nullptr;
    if (line.words[1][0] == type) return line.is_complete ? &line : nullptr;
  }
  return nullptr;
}

std::vector<const ConfLine *> Conf_Named(const Conf &conf, const std::string &name) {
  std::vector<const ConfLine *> lines = OfAllTypes(conf, name);
  const std::size_t colon = name.rfind(':');
  if (lines.empty() && colon != std::string::npos && colon + 2 == name.size())
    Add(&lines, Conf_Find(conf, name.substr(0, colon), name[colon + 1]));
  return lines;
}

std::vector<const ConfLine *> Conf_Take(const Conf &conf, const std::string &name) {
  std::vector<const ConfLine *> lines = Conf_Named(conf, name);
  if (lines.empty())
    Tool_Fail(EX_CONFIG, "%s has no program %s; korvoctl list shows all", conf.path.c_str(),
              name.c_str());
  return lines;
}

const ConfLine *Conf_TakeOnly(const std::vector<const ConfLine *> &lines, const std::string &name) {
  if (lines.size() > 1)
    Tool_Fail(EX_USAGE, "%s names %d programs; take one, such as %s", name.c_str(),
              static_cast<int>(lines.size()), Conf_Name(*lines[0]).c_str());
  return lines[0];
}

std::vector<const ConfLine *> Conf_Programs(const Conf &conf) {
  std::vector<const ConfLine *> programs;
  for (const ConfLine &line : conf.lines)
    if (line.is_complete &&
        std::count(std::begin(kTypes), std::end(kTypes), line.config.Type) == 1 &&
        Conf_Find(conf, line.words[0], line.config.Type) == &line)
      programs.push_back(&line);
  return programs;
}

std::vector<const ConfLine *> Conf_Parents(const Conf &conf, const ConfLine &line) {
  std::vector<const ConfLine *> parents;
  const bool is_engine = line.config.Type == 'E';
  if (line.config.Type == 'C') return parents;
  Add(&parents, Conf_Find(conf, line.config.ParentID, is_engine ? 'S' : 'C'));
  if (is_engine) Add(&parents, Conf_Find(conf, line.config.ParentID, 'D'));
  return parents;
}

std::map<const ConfLine *, std::vector<const ConfLine *>> Conf_Children(const Conf &conf) {
  std::map<const ConfLine *, std::vector<const ConfLine *>> children;
  for (const ConfLine *line : Conf_Programs(conf))
    for (const ConfLine *parent : Conf_Parents(conf, *line)) children[parent].push_back(line);
  return children;
}

std::string Conf_Name(const ConfLine &line) { return line.words[0] + ":" + line.config.Type; }

bool Conf_IsHere(const ConfLine &line) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = inet_addr(line.config.IP);
  if (address.sin_addr.s_addr == INADDR_NONE || address.sin_addr.s_addr == INADDR_ANY) return false;
  // A machine lets a program have those addresses that are its own.
  const int sock = Peer_Socket(SOCK_DGRAM);
  const bool is_here =
      bind(sock, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
  close(sock);
  return is_here;
}
