#include "index/control_file.h"

namespace {

bool BeginField(Fields *fields, std::string_view line) {
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos || !Field_IsName(line.substr(0, colon))) return false;
  fields->push_back({std::string(line.substr(0, colon)), ""});
  Reader_Append(&fields->back().value, Reader_Trim(line.substr(colon + 1)));
  return true;
}

bool ContinueField(Fields *fields, std::string_view line) {
  if (fields->empty()) return false;
  const std::string_view text = Reader_Trim(line);
  if (text == ".") return true;
  std::string *value = &fields->back().value;
  if (!value->empty()) *value += ' ';
  Reader_Append(value, text);
  return true;
}

bool TakeLine(Fields *fields, std::string_view line) {
  const bool continues = line.front() == ' ' || line.front() == '\t';
  return continues ? ContinueField(fields, line) : BeginField(fields, line);
}

// What is wrong with a line, which is not in fields then; null: nothing.
const char *Fault(Fields *fields, std::string_view line, std::size_t size) {
  if (size > kMostRecord) return kExpectedSize;
  if (!TakeLine(fields, line)) return "expected \"Name: value\"";
  return fields->size() > kMostValues ? kExpectedValues : nullptr;
}

}  // namespace

ReadResult ControlFile_Read(Reader *reader, Fields *fields) {
  fields->clear();
  std::string_view line;
  std::size_t size = 0;
  for (;;) {
    const LineResult result = Lines_Next(&reader->lines, kMostRecord, &line);
    if (result == LineResult::kFailed) return ReadResult::kFailed;
    if (result == LineResult::kEnd)
      return fields->empty() ? ReadResult::kEnd : ReadResult::kDocument;
    if (result == LineResult::kLine && Reader_Trim(line).empty()) {
      reader->in_bad_document = false;
      if (!fields->empty()) return ReadResult::kDocument;
      continue;
    }
    if (reader->in_bad_document) continue;
    if (fields->empty()) reader->line = reader->lines.number;
    size += result == LineResult::kTooLong ? kMostRecord : line.size();
    const char *fault = result == LineResult::kTooLong ? kExpectedSize : Fault(fields, line, size);
    if (fault == nullptr) continue;
    reader->in_bad_document = true;
    reader->line = reader->lines.number;
    return Reader_Bad(reader, fault);
  }
}
