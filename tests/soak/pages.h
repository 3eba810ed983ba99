// tests/soak/pages.h: the page macros of the soak with their frames, and what they make of a
// document.
#ifndef TESTS_SOAK_PAGES_H
#define TESTS_SOAK_PAGES_H

#include <optional>
#include <string>
#include <vector>

#include "tests/system/harness.h"

// A document, as far as macros look at it.
struct Content {
  std::string raw;      // "\tNAME=...\tBODY=...\n"
  std::string name;     // the value of NAME
  std::string body;     // the value of BODY
  std::string further;  // the raw text that the fetch it names gives
};

struct Page {
  std::string base;  // the macro, as a client names it
  std::string header;
  std::string tail;
  bool fetches = false;
  std::optional<std::string> (*format)(const Content &content);  // none: the macro fails
};

// Writes the files into the folder.
std::vector<Page> Pages_Write(const Folder &folder);

#endif
