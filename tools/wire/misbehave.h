// tools/wire/misbehave.h: what one who plays can do wrong, by name.
#ifndef TOOLS_WIRE_MISBEHAVE_H
#define TOOLS_WIRE_MISBEHAVE_H

#include <string>

// What happens behind the first bytes that are sent.
enum class After { kGoOn, kHang, kReset, kHalfClose, kClose };

struct Sent {
  std::string bytes;
  bool first;  // of a connection
  int piece = 0, every = 0;
  After after = After::kGoOn;
};

struct Misbehaviour {
  const char *word;
  void (*apply)(Sent *sent);
};

// The one of that name, or the end of the process with EX_USAGE.
const Misbehaviour *Misbehave_Of(const char *word);

#endif
