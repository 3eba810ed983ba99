// tests/tools/engine.h: the engine that the service runs, over code that is in no file.
#ifndef TESTS_TOOLS_ENGINE_H
#define TESTS_TOOLS_ENGINE_H

#include <string>
#include <string_view>
#include <vector>

// What a page of documents came to.
struct PageRun {
  int result = 1;                    // of the last run
  std::vector<std::string> outputs;  // a document each
  std::string log;                   // the lines at 103
  bool loops = false;  // an op-code that does not exist was run, and ended by the test
  int cursor = 0;      // when the last run was over
  bool cut = false;    // a fetch was given less room than its document takes
};

// Runs the code over the documents of a page; every fetch gives fetched, or fails where that is
// empty.  The page ends with the first document that fails.
PageRun RunPage(const std::string &code, const std::vector<std::string> &documents,
                const std::string &fetched = "");

// Sets every register to an offset, or to the start of a document.
void SetRegisters(int offset);

#endif
