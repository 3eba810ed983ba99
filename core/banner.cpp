// The texts on standard output.
#include "core/program.h"
#include "core/startup.h"
#include "debug/log.h"

namespace {

// What its file is a build of: never printed, and found there by korvoctl.
[[gnu::used]] constexpr char kVersion[] = "@(#)korvo " KORVO_VERSION "\n";

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
  Debug_Output("\n\n");
  Debug_Output("*********************************************************************\n");
  Debug_Output("%s", TypeLine(ProgramType()));
  Debug_Output("*                                                                   *\n");
  Debug_Output("* Copyright Morvane Technologies, Inc.  All rights reserved.        *\n");
  Debug_Output("*                                                                   *\n");
  Debug_Output("* This program may be used and copied only under the terms of its   *\n");
  Debug_Output("* licence.  It comes without any warranty, to the extent that the   *\n");
  Debug_Output("* law permits; whoever runs it answers for the use that is made of  *\n");
  Debug_Output("* it.  The names in it are those of their owners.                   *\n");
  Debug_Output("*********************************************************************\n\n");
}

void MainCore_Usage(const char *progname) {
  Debug_Output("\n\n\n\n\n\n\n\n\n\n                 D O N ' T     P A N I C\n\n\n\n\n\n\n\n\n");
  Debug_Output("USAGE:\t%s [program id] <config dir>\n", progname);
  Debug_Output("        %s -?\n", progname);
  Debug_Output("\n");
  Debug_Output("        OPTIONS\n");
  Debug_Output("\t\t\t[program id] A unique identifier for this\n");
  Debug_Output("\t\t\t             instance of the application. \n");
  Debug_Output("\t\t\t             Usually associated with RECTYPE\n");
  Debug_Output("\t\t\t             or SEARCHGROUP\n");
  Debug_Output("\n");
  Debug_Output("\t\t\t<config dir> An optional argument commanding the \n");
  Debug_Output("\t\t\t             application to use the given config\n");
  Debug_Output("\t\t\t             directory instead of %s.\n", kMainCoreConfigDir);
  Debug_Output("\n\n");
}
