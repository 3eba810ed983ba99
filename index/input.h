// index/input.h: the bytes of an input, unpacked.
#ifndef INDEX_INPUT_H
#define INDEX_INPUT_H

#include <signal.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "index/unpack.h"

struct Input {
  int fd;                              // not closed here
  std::unique_ptr<Unpacker> unpacker;  // null: the bytes are what they are
  const sigset_t *mask = nullptr;      // signals held back while it waits for bytes; null: as ever
  std::int64_t taken = 0;              // bytes read so far, packed as they are
  std::string error = {};              // why Input_Read failed

  std::string packed = {};     // what was read;
  std::string_view left = {};  // of it, what is not unpacked yet
  bool whole = false;          // what was packed can end here
};

// Gives at most size of the next bytes and their number: 0 at the end, -1 when they cannot be read.
// With a mask, a signal that it lets in while no bytes are there is such a failure.
std::ptrdiff_t Input_Read(Input *input, char *bytes, std::size_t size);

#endif
