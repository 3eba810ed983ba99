// docmgr/script.h: how a document is to be prepared.
#ifndef DOCMGR_SCRIPT_H
#define DOCMGR_SCRIPT_H

#include <string>
#include <string_view>
#include <vector>

struct Script {
  bool html = false;               // values are HTML
  bool snippet = false;            // a passage of the body is added
  bool place = false;              // where the document stands is added
  bool all = false;                // every field of the schema, in its order
  std::vector<std::string> marks;  // stems of the words to mark, as they were given
};

// Reads the words of SCRIPT.  One that it does not know is logged and ignored.
Script Script_Read(std::string_view text);

#endif
