// tools/macro/model.h: one run over one document as the engine makes it, without the engine.
//
// It says what every instruction comes to, which the engine's log does not, and takes no lines of
// it.  Tests hold it to the engine.
#ifndef TOOLS_MACRO_MODEL_H
#define TOOLS_MACRO_MODEL_H

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>

#include "tools/macro/check.h"

struct ModelRun {
  std::unordered_map<std::size_t, unsigned> seen = {};       // by offset of an instruction
  std::unordered_map<std::size_t, std::size_t> values = {};  // by place, how often one is written
  std::size_t reached = 0;                                   // the last instruction
  std::size_t output = 0;                                    // bytes
};

// Every fetch gives the same document; the empty one is not to be had.
ModelRun Model_Run(std::string_view code, const std::string &document, const std::string &fetched);

bool Model_Shows(const ModelRun &run, const Finding &finding);

#endif
