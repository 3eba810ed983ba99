// The daemon's answer on its way to a browser: however it is cut, the page is the same.
//
// Parts: "s" for the answer of a search; the answer, whose segments are what comes at once; "l" for
// one that the deadline cuts short.
#include "tests/fuzz/support/fuzz.h"
#include "web/filter.h"

namespace {

std::string Shown(Placeholder which, const PageFacts &facts) {
  std::string text = "[" + std::to_string(static_cast<int>(which));
  if (facts.known) text += " " + std::to_string(facts.status.matches) + facts.status.spelling;
  text += " " + std::to_string(facts.hits);
  for (const Trouble trouble : facts.unsaid) text += std::string(" ") + Trouble_Info(trouble).name;
  return text + "]";
}

std::string Page(const Input &input, const std::vector<std::string> &pieces) {
  Filter filter = Filter_Begin(input[0].Whole() == "s", Shown);
  std::string page;
  for (const std::string &piece : pieces) {
    const std::size_t before = page.size();
    Filter_Feed(&filter, piece, &page);
    FUZZ_CHECK(page.size() >= before);
  }
  const bool late = input[2].Whole() == "l";
  Filter_End(&filter, late ? Trouble::kTooLate : Trouble::kNone, &page);
  FUZZ_CHECK(filter.pending.empty() && filter.facts.unsaid.empty());
  return page;
}

}  // namespace

std::string Fuzz_Run(const Input &input) {
  const std::string whole = input[1].Whole();
  std::vector<std::string> bytes;
  for (const char c : whole) bytes.emplace_back(1, c);
  std::string page = Page(input, input[1].segments);
  FUZZ_CHECK(page == Page(input, {whole}));
  if (whole.size() < 4096) FUZZ_CHECK(page == Page(input, bytes));
  return page;
}
