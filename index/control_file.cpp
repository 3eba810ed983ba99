#include "index/control_file.h"

namespace {

std::string_view Trim(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r";
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

void AppendFolded(std::string *value, std::string_view text) {
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    *value += byte < 0x20 || byte == 0x7f ? ' ' : c;
  }
}

bool BeginField(Fields *fields, std::string_view line) {
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos || !Field_IsName(line.substr(0, colon))) return false;
  fields->push_back({std::string(line.substr(0, colon)), ""});
  AppendFolded(&fields->back().value, Trim(line.substr(colon + 1)));
  return true;
}

bool ContinueField(Fields *fields, std::string_view line) {
  if (fields->empty()) return false;
  const std::string_view text = Trim(line);
  if (text == ".") return true;
  std::string *value = &fields->back().value;
  if (!value->empty()) *value += ' ';
  AppendFolded(value, text);
  return true;
}

bool TakeLine(Fields *fields, std::string_view line) {
  const bool continues = line.front() == ' ' || line.front() == '\t';
  return continues ? ContinueField(fields, line) : BeginField(fields, line);
}

}  // namespace

ControlResult ControlFile_Read(ControlReader *reader, Fields *fields) {
  fields->clear();
  std::string line;
  while (std::getline(*reader->in, line)) {
    ++reader->line;
    if (!Trim(line).empty()) {
      if (!TakeLine(fields, line)) return ControlResult::kBadLine;
    } else if (!fields->empty()) {
      return ControlResult::kDocument;
    }
  }
  if (reader->in->bad()) return ControlResult::kFailed;
  return fields->empty() ? ControlResult::kEnd : ControlResult::kDocument;
}
