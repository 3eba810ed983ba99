// tools/macro/witness.h: documents that show what a check has found.
#ifndef TOOLS_MACRO_WITNESS_H
#define TOOLS_MACRO_WITNESS_H

#include <string_view>
#include <vector>

#include "tools/macro/check.h"

// Gives each finding a document of that kind that shows it, as far as one is found.
void Witness_Find(std::string_view code, const Documents &documents,
                  std::vector<Finding> *findings);

#endif
