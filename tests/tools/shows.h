// tests/tools/shows.h: a finding of a check, held to the engine.
#ifndef TESTS_TOOLS_SHOWS_H
#define TESTS_TOOLS_SHOWS_H

#include <string>

#include "tools/macro/check.h"

// Whether a page of its document shows what was found.
bool Engine_Shows(const std::string &code, const Finding &finding);

#endif
