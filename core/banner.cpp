// The texts on standard output.
#include <cstdio>

#include "core/program.h"
#include "core/startup.h"
#include "debug/signal_hold.h"

namespace {

const char *TypeLine(char type) {
  switch (type) {
    case 'C': return "* KORVO Communications Manager - Morvane Technologies, Inc.         *\n";
    case 'S': return "* KORVO Search Manager - Morvane Technologies, Inc.                 *\n";
    case 'D': return "* KORVO Document Manager - Morvane Technologies, Inc.               *\n";
    case 'E': return "* KORVO Search Engine - Morvane Technologies, Inc.                  *\n";
    default: return "* KORVO - Morvane Technologies, Inc.                                *\n";
  }
}

}  // namespace

void MainCore_Banner() {
  const SignalHold hold;
  std::printf("\n\n");
  std::printf("*********************************************************************\n");
  std::printf("%s", TypeLine(ProgramType()));
  std::printf("*                                                                   *\n");
  std::printf("* Copyright Morvane Technologies, Inc.  All rights reserved.        *\n");
  std::printf("*                                                                   *\n");
  std::printf("* This program may be used and copied only under the terms of its   *\n");
  std::printf("* licence.  It comes without any warranty, to the extent that the   *\n");
  std::printf("* law permits; whoever runs it answers for the use that is made of  *\n");
  std::printf("* it.  The names in it are those of their owners.                   *\n");
  std::printf("*********************************************************************\n\n");
}

void MainCore_Usage(const char *progname) {
  const SignalHold hold;
  std::printf("\n\n\n\n\n\n\n\n\n\n                 D O N ' T     P A N I C\n\n\n\n\n\n\n\n\n");
  std::printf("USAGE:\t%s [program id] <config dir>\n", progname);
  std::printf("        %s -?\n", progname);
  std::printf("\n");
  std::printf("        OPTIONS\n");
  std::printf("\t\t\t[program id] A unique identifier for this\n");
  std::printf("\t\t\t             instance of the application. \n");
  std::printf("\t\t\t             Usually associated with RECTYPE\n");
  std::printf("\t\t\t             or SEARCHGROUP\n");
  std::printf("\n");
  std::printf("\t\t\t<config dir> An optional argument commanding the \n");
  std::printf("\t\t\t             application to use the given config\n");
  std::printf("\t\t\t             directory instead of %s.\n", kMainCoreConfigDir);
  std::printf("\n\n");
}
