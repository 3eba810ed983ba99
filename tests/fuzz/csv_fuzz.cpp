// Tables: what was read and is written again reads the same.
//
// Parts: a CSV file, a segment a read; a TSV file.
#include "tests/fuzz/support/documents.h"

namespace {

std::string Quoted(const std::string &value) {
  std::string quoted = "\"";
  for (const char c : value) quoted += c == '"' ? "\"\"" : std::string(1, c);
  return quoted + '"';
}

// A table of one document, whose values alone are given.
std::string Table(const Fields &fields) {
  std::string names, values;
  for (const Field &field : fields) {
    const char *comma = &field == &fields.front() ? "" : ",";
    names += comma + field.name;
    values += comma + Quoted(field.value);
  }
  return names + "\r\n" + values + "\r\n";
}

}  // namespace

std::string Fuzz_Run(const Input &input) {
  const Documents csv = Fuzz_ReadCut(Format::kCsv, input[0]);
  for (const Fields &fields : csv.all)
    FUZZ_CHECK(
        Fuzz_SameDocuments(Fuzz_ReadDocuments(Format::kCsv, {{Table(fields)}}).all, {fields}));
  return csv.shown + Fuzz_ReadCut(Format::kTsv, input[1]).shown;
}
