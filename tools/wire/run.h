// tools/wire/run.h: the steps of a case.
#ifndef TOOLS_WIRE_RUN_H
#define TOOLS_WIRE_RUN_H

#include <string>

#include "tools/wire/program.h"
#include "tools/wire/stage.h"
#include "tools/wire/transcript.h"

// The id of both managers, as in the examples of the documents.
inline constexpr const char *kRunId = "packages";

// A case while it runs.
struct Running {
  Stage stage;
  Program program;
  std::string command;  // of the program under test
};

// One step; false with the reason.
bool Run_Step(Running *running, const Step &step, std::string *why);

#endif
