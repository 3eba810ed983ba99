#include "tools/ctl/messages.h"

#include <algorithm>
#include <fstream>

#include "debug/text.h"

namespace {

constexpr std::size_t kFields = 6;

std::string Unescape(std::string_view text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\' || i + 1 == text.size()) {
      plain += text[i];
      continue;
    }
    const char code = text[++i];
    plain += code == 'n' ? '\n' : code == 't' ? '\t' : code;
  }
  return plain;
}

// Flags, width, precision and length come before the letter that ends a conversion.
std::size_t ConversionEnd(std::string_view text, std::size_t at) {
  constexpr char kBefore[] = {'-', '+', ' ', '#', '0', '1', '2', '3', '4', '5',
                              '6', '7', '8', '9', '.', 'h', 'l', 'z', '\0'};
  at = text.find_first_not_of(kBefore, at + 1);
  return at == std::string_view::npos ? text.size() : at + 1;
}

std::vector<std::string> PiecesOf(std::string_view text) {
  std::vector<std::string> pieces(1);
  for (std::size_t at = 0; at < text.size();) {
    if (text[at] != '%') {
      pieces.back() += text[at++];
      continue;
    }
    const std::size_t end = ConversionEnd(text, at);
    if (text[end - 1] == '%')
      pieces.back() += '%';
    else
      pieces.emplace_back();
    at = end;
  }
  return pieces;
}

bool Matches(const std::vector<std::string> &pieces, std::string_view text) {
  if (pieces.size() == 1) return text == pieces[0];
  if (!text.starts_with(pieces.front())) return false;
  text.remove_prefix(pieces.front().size());
  for (std::size_t i = 1; i + 1 < pieces.size(); ++i) {
    const std::size_t at = text.find(pieces[i]);
    if (at == std::string_view::npos) return false;
    text.remove_prefix(at + pieces[i].size());
  }
  return text.ends_with(pieces.back());
}

std::size_t FixedBytes(const Message &message) {
  std::size_t count = 0;
  for (const std::string &piece : message.pieces) count += piece.size();
  return count;
}

// A message ends with its line, unless it has more.
std::string_view Compared(const Message &message, std::string_view text) {
  if (message.text.find("\\n") == std::string::npos) text = text.substr(0, text.find('\n'));
  while (!text.empty() && text.back() == '\n') text.remove_suffix(1);
  while (!text.empty() && text.front() == '\n') text.remove_prefix(1);
  return text;
}

}  // namespace

bool Messages_Read(const std::string &path, std::vector<Message> *messages) {
  std::ifstream file(path);
  if (!file) return false;
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line[0] == '#') continue;
    std::vector<std::string> fields;
    std::string_view rest = line;
    for (std::string_view field; !(field = Text_Token(&rest, "\t")).empty();)
      fields.emplace_back(field);
    if (fields.size() != kFields) continue;
    messages->push_back({fields[0], Text_ToInt32(fields[1]), fields[2],
                         PiecesOf(Unescape(fields[2])), fields[3], fields[4], fields[5]});
  }
  return true;
}

std::string_view Messages_Module(std::string_view body) {
  const std::size_t end = body.find("] ");
  if (body.empty() || body[0] != '[' || end == std::string_view::npos) return "-";
  return body.substr(1, end - 1);
}

std::string_view Messages_Text(std::string_view body) {
  const std::string_view module = Messages_Module(body);
  return module == "-" ? body : body.substr(module.size() + 3);
}

std::vector<const Message *> Messages_Find(const std::vector<Message> &messages,
                                           std::string_view body) {
  const std::string_view module = Messages_Module(body);
  const std::string_view text = Messages_Text(body);
  std::vector<const Message *> best;
  for (const Message &message : messages) {
    if (message.module != module || !Matches(message.pieces, Compared(message, text))) continue;
    const bool is_other = !best.empty() && message.text != best[0]->text;
    if (is_other && FixedBytes(message) <= FixedBytes(*best[0])) continue;
    if (is_other) best.clear();
    best.push_back(&message);
  }
  std::sort(best.begin(), best.end(),
            [](const Message *a, const Message *b) { return a->level > b->level; });
  return best;
}
