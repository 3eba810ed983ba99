// tools/wire/pattern.h: the items of a transcript as bytes, and as what must come.
#ifndef TOOLS_WIRE_PATTERN_H
#define TOOLS_WIRE_PATTERN_H

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "tools/wire/transcript.h"

// What the items of a case depend on.
struct Scene {
  std::string dir;
  std::map<std::string, int> ports;         // of an actor
  std::map<std::string, std::string> kept;  // by keep
};

// The bytes of items without patterns.
std::string Pattern_Bytes(const std::vector<Item> &items, const Scene &scene);

enum class Fit {
  kYes,   // the first *length bytes are what must come
  kNo,    // they never will be, whatever follows
  kMore,  // that depends on what follows
};

// Holds the bytes that have come against the items.  A pattern takes as many bytes as it can and
// gives none back; ended: no more bytes will come.
Fit Pattern_Match(const std::vector<Item> &items, std::string_view bytes, bool ended, Scene *scene,
                  std::size_t *length);

// The items as a person writes them.
std::string Pattern_Show(const std::vector<Item> &items, const Scene &scene);

#endif
