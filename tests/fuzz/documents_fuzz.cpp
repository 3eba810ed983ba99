// Documents for a trial of a macro, in any of their three forms: each is a text of fields, and what
// is shown of one reads back.
//
// Parts: the text of a file; what stands on the command line.
#include <algorithm>

#include "tests/fuzz/support/fuzz.h"
#include "tools/macro/check.h"
#include "tools/macro/input.h"

std::string Fuzz_Run(const Input &input) {
  const std::string text = input[0].Whole();
  std::vector<std::string> documents;
  const std::string wrong = Input_Read(text, &documents);
  if (!wrong.empty()) {
    const int line = std::atoi(wrong.c_str());
    FUZZ_CHECK(line >= 1 && line <= std::count(text.begin(), text.end(), '\n') + 1);
    FUZZ_CHECK(wrong.find(": expected ") != std::string::npos);
  }
  std::string shown = wrong;
  for (const std::string &document : documents) {
    FUZZ_CHECK(document.ends_with('\n'));
    FUZZ_CHECK(std::count(document.begin(), document.end(), '\n') == 1);
    std::string again;
    FUZZ_CHECK(Check_Unshow(Check_Show(document), &again));
    FUZZ_CHECK(again == document);
    shown += document;
  }
  std::string unshown, again;
  if (!Check_Unshow(input[1].Whole(), &unshown)) return shown;
  FUZZ_CHECK(Check_Unshow(Check_Show(unshown), &again));
  FUZZ_CHECK(again == unshown);
  return shown + unshown;
}
