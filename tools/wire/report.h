// tools/wire/report.h: what came of the cases, for a person or for another program.
#ifndef TOOLS_WIRE_REPORT_H
#define TOOLS_WIRE_REPORT_H

#include <string>
#include <vector>

#include "tools/wire/case.h"

enum class ReportForm { kText, kTap, kJunit };

struct Ran {
  const Case *which;
  Outcome outcome;
};

// The whole report; the cases are in their order.
std::string Report_Format(ReportForm form, const std::vector<Ran> &all);

#endif
