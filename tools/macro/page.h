// tools/macro/page.h: a document through the engine.
#ifndef TOOLS_MACRO_PAGE_H
#define TOOLS_MACRO_PAGE_H

#include <string>

struct PageText {
  int result;  // as Macro_Exec
  std::string output;
};

// Runs the open macro over the document, in the buffers that the service has.
PageText Page_Run(int handle, const std::string &document);

// Every fetch takes the first document of DIR/GROUP/TYPE/NUMBER; one that is not there fails, with
// a line on standard error.  Empty: every one fails.
void Page_FetchFrom(const std::string &folder);

#endif
