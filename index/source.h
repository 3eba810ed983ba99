// index/source.h: the bytes of an input, unpacked.
#ifndef INDEX_SOURCE_H
#define INDEX_SOURCE_H

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "index/unpack.h"

struct Source {
  int fd;                                            // not closed here
  std::unique_ptr<Unpacker> unpacker;                // null: the bytes are what they are
  const volatile std::sig_atomic_t *stop = nullptr;  // set by a signal: nothing more is read
  std::int64_t taken = 0;                            // bytes read so far, packed as they are
  std::string error = {};                            // why Source_Read failed

  std::string packed = {};     // what was read;
  std::string_view left = {};  // of it, what is not unpacked yet
  bool whole = false;          // what was packed can end here
};

// Gives at most size of the next bytes and their number: 0 at the end, -1 when they cannot be read.
// That *stop is set is such a failure, also while it waits.
std::ptrdiff_t Source_Read(Source *source, char *bytes, std::size_t size);

#endif
