// Control files: what was read and is written again reads the same.
//
// Parts: the file, a segment a read.
#include "tests/fuzz/support/documents.h"

std::string Fuzz_Run(const Input &input) {
  const Documents documents = Fuzz_ReadCut(Format::kControl, input[0]);
  std::string written;
  for (const Fields &fields : documents.all) {
    for (const Field &field : fields) written += field.name + ": " + field.value + '\n';
    written += '\n';
  }
  // Blanks at the end of a value belong to its line.
  const Documents again = Fuzz_ReadDocuments(Format::kControl, {{written}});
  FUZZ_CHECK(again.all.size() == documents.all.size());
  for (std::size_t i = 0; i < again.all.size(); ++i)
    for (std::size_t j = 0; j < again.all[i].size(); ++j)
      FUZZ_CHECK(again.all[i][j].value == Reader_Trim(documents.all[i][j].value));
  return documents.shown;
}
