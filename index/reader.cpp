#include "index/reader.h"

#include <array>

#include "index/control_file.h"
#include "index/json_lines.h"
#include "index/table.h"

namespace {

struct Known {
  std::string_view name;
  Format format;
};

constexpr std::array<Known, 4> kFormats = {{{"control", Format::kControl},
                                            {"jsonl", Format::kJsonLines},
                                            {"csv", Format::kCsv},
                                            {"tsv", Format::kTsv}}};

constexpr std::array<Known, 5> kSuffixes = {{{".jsonl", Format::kJsonLines},
                                             {".ndjson", Format::kJsonLines},
                                             {".json", Format::kJsonLines},
                                             {".csv", Format::kCsv},
                                             {".tsv", Format::kTsv}}};

}  // namespace

ReadResult Reader_Next(Reader *reader, Fields *fields) {
  switch (reader->format) {
    case Format::kControl: return ControlFile_Read(reader, fields);
    case Format::kJsonLines: return JsonLines_Read(reader, fields);
    case Format::kCsv: return Table_ReadCsv(reader, fields);
    case Format::kTsv: return Table_ReadTsv(reader, fields);
  }
  return ReadResult::kEnd;
}

bool Reader_Format(std::string_view name, Format *format) {
  for (const Known &known : kFormats) {
    if (known.name != name) continue;
    *format = known.format;
    return true;
  }
  return false;
}

Format Reader_FormatOf(std::string_view file) {
  for (const Known &known : kSuffixes)
    if (file.ends_with(known.name)) return known.format;
  return Format::kControl;
}

std::string_view Reader_Trim(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r";
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

void Reader_Append(std::string *value, std::string_view text) {
  const std::size_t before = value->size();
  value->append(text);
  Field_MakeLine(value, before);
}

ReadResult Reader_Bad(Reader *reader, std::string expected, ReadResult result) {
  reader->expected = std::move(expected);
  return result;
}

std::string Reader_ExpectedName(std::string_view name) {
  constexpr std::size_t kShown = 80;  // more than a name has
  return "expected the name of a field (a letter, then letters, digits, '-', '_' and '.'), not '" +
         std::string(Field_Cut(name, kShown)) + "'";
}
