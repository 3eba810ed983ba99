// tools/macro/trace.h: a run, instruction by instruction.
#ifndef TOOLS_MACRO_TRACE_H
#define TOOLS_MACRO_TRACE_H

#include <string>
#include <string_view>

// Shows on standard error what each instruction of the open macro does with a document.  The run
// itself is made by processes of their own, so that registers and the table of macros stay as they
// are.
void Trace_Show(int handle, std::string_view code, const std::string &document);

#endif
