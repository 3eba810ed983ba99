// The target of a request: whatever it holds, the line for the daemon has the fields of this
// program and no others.
//
// Parts: the target.
#include <cstring>

#include "protocol/cmd_hdr.h"
#include "tests/fuzz/support/fuzz.h"
#include "web/asked.h"

namespace {

int Count(const std::string &text, const char *part) {
  int count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    ++count;
  return count;
}

// The same search by its own link.
void CheckLink(const Asked &asked) {
  const Asked again = Asked_Read(Asked_Link(asked, asked.page, asked.sort));
  FUZZ_CHECK(again.route == Route::kSearch && again.text == asked.text);
  FUZZ_CHECK(again.group == asked.group && again.page == asked.page && again.sort == asked.sort);
  FUZZ_CHECK(again.fields == asked.fields);
}

void CheckLine(const Asked &asked, const WebGroup &group, const std::string &line) {
  FUZZ_CHECK(line.find_first_of(std::string_view("\n\r\0", 3)) == line.size() - 1);
  FUZZ_CHECK(Count(line, "\t@") <= 9);
  CmdHdr hdr = {};
  (void)Util_IntCmdHdr(&hdr, line.c_str());
  const bool search = asked.route == Route::kSearch;
  FUZZ_CHECK(std::strcmp(hdr.Command, search ? "QUERY" : "GETDOC") == 0);
  FUZZ_CHECK(hdr.SearchGroup == group.id);
  FUZZ_CHECK(hdr.MacroFile == (search ? group.results : group.document));
  FUZZ_CHECK(std::strcmp(hdr.Script, "html place all snippet") == 0);
}

}  // namespace

std::string Fuzz_Run(const Input &input) {
  WebConf conf = Conf_Default();
  conf.groups = {{"grp1", "/m/results", "/m/document", "Group", {}}};
  Asked asked = Asked_Read(input[0].Whole());
  asked.keeper = conf.groups[0].id;  // one of the configuration's alone
  std::string line;
  const bool fits = Asked_Line(asked, conf.groups[0], conf, 8000, &line);
  FUZZ_CHECK(fits == (line.size() <= kAskedLine + 1));
  FUZZ_CHECK(asked.file.empty() || asked.route == Route::kStatic);
  if (fits) CheckLine(asked, conf.groups[0], line);
  CheckLink(asked);
  return line;
}
