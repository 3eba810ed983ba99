// korvo-bench-managers FOLDER ROW...: plays the Search Manager and the Document Manager of the
// rows.
//
// Writes the files of the rows; FOLDER/ready says that it listens.
#include <string>

#include "bench/player.h"
#include "bench/rows.h"

int main(int argc, char **argv) {
  if (argc < 3) return 64;
  Answers answers;
  for (int i = 2; i < argc; ++i) {
    const Row row = Row_Make(argv[i], argv[1]);
    Row_WriteFiles(row);
    if (!row.search.request.empty()) answers[row.search.request] = row.search.answer;
    if (!row.document.request.empty()) answers[row.document.request] = row.document.answer;
  }
  Player_Run({kSearchPort, kDocPort}, answers, std::string(argv[1]) + "/ready");
}
