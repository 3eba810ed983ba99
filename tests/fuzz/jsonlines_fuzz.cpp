// JSON Lines: what was read and is written again reads the same.
//
// Parts: the file, a segment a read.
#include "tests/fuzz/support/documents.h"

namespace {

std::string Quoted(const std::string &value) {
  std::string quoted = "\"";
  for (const char c : value) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + '"';
}

}  // namespace

std::string Fuzz_Run(const Input &input) {
  const Documents documents = Fuzz_ReadCut(Format::kJsonLines, input[0]);
  std::string written;
  for (const Fields &fields : documents.all) {
    for (const Field &field : fields)
      written +=
          (&field == &fields.front() ? "{" : ",") + Quoted(field.name) + ":" + Quoted(field.value);
    written += "}\n";
  }
  const Documents again = Fuzz_ReadDocuments(Format::kJsonLines, {{written}});
  FUZZ_CHECK(Fuzz_SameDocuments(again.all, documents.all));
  return documents.shown;
}
