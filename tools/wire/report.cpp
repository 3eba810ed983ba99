#include "tools/wire/report.h"

#include <algorithm>

#include "tools/common/tool.h"

namespace {

std::size_t Count(const std::vector<Ran> &all, Result result) {
  return static_cast<std::size_t>(std::count_if(
      all.begin(), all.end(), [&](const Ran &ran) { return ran.outcome.result == result; }));
}

std::string Where(const Ran &ran) {
  return ran.which->file + ":" + std::to_string(ran.outcome.line);
}

std::string Text(const std::vector<Ran> &all) {
  std::string text;
  for (const Ran &ran : all) {
    if (ran.outcome.result == Result::kPassed) continue;
    const bool failed = ran.outcome.result == Result::kFailed;
    text += std::string(failed ? "failed" : "left out") + ": " + ran.which->name + "\n";
    text += "  " + Where(ran) + ": " + ran.outcome.why + "\n";
    if (failed && !ran.which->says.empty()) text += "  " + ran.which->says + "\n";
  }
  return text + Tool_Format("%zu cases: %zu passed, %zu failed, %zu left out\n", all.size(),
                            Count(all, Result::kPassed), Count(all, Result::kFailed),
                            Count(all, Result::kSkipped));
}

// A line of what TAP takes for a comment.
std::string Tap(const std::vector<Ran> &all) {
  std::string text = "TAP version 13\n1.." + std::to_string(all.size()) + "\n";
  std::size_t number = 0;
  for (const Ran &ran : all) {
    text += ran.outcome.result == Result::kFailed ? "not ok " : "ok ";
    text += std::to_string(++number) + " - " + ran.which->name;
    if (ran.outcome.result == Result::kSkipped) text += " # SKIP " + ran.outcome.why;
    text += "\n";
    if (ran.outcome.result == Result::kFailed)
      text += "# " + Where(ran) + ": " + ran.outcome.why + "\n";
    if (ran.outcome.result == Result::kFailed && !ran.which->says.empty())
      text += "# " + ran.which->says + "\n";
  }
  return text;
}

// XML cannot hold every byte, so what is no printable ASCII stands as in a transcript.
std::string Xml(const std::string &text) {
  std::string out;
  for (const char c : text) {
    if (c < ' ' || c == 0x7f) {
      const std::string quoted = Transcript_Quote({&c, 1});
      out += quoted.substr(1, quoted.size() - 2);
      continue;
    }
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      default: out += c;
    }
  }
  return out;
}

std::string Junit(const std::vector<Ran> &all) {
  std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  text += Tool_Format(
      "<testsuite name=\"korvo-wire\" tests=\"%zu\" failures=\"%zu\" skipped=\"%zu\">\n",
      all.size(), Count(all, Result::kFailed), Count(all, Result::kSkipped));
  for (const Ran &ran : all) {
    text += "<testcase classname=\"" + Xml(ran.which->file) + "\" name=\"" + Xml(ran.which->name) +
            "\">";
    if (ran.outcome.result == Result::kFailed)
      text += "<failure message=\"" + Xml(Where(ran) + ": " + ran.outcome.why) + "\">" +
              Xml(ran.which->says) + "</failure>";
    if (ran.outcome.result == Result::kSkipped)
      text += "<skipped message=\"" + Xml(ran.outcome.why) + "\"/>";
    text += "</testcase>\n";
  }
  return text + "</testsuite>\n";
}

}  // namespace

std::string Report_Format(ReportForm form, const std::vector<Ran> &all) {
  if (form == ReportForm::kTap) return Tap(all);
  return form == ReportForm::kJunit ? Junit(all) : Text(all);
}
