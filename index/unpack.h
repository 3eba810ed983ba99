// index/unpack.h: what a packed input holds.
#ifndef INDEX_UNPACK_H
#define INDEX_UNPACK_H

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

enum class UnpackResult {
  kOk,
  kWhole,   // what was packed is complete, unless more follows
  kBroken,  // these bytes are not what was packed
  kMemory,  // there is too little of it, or what was packed asks for more than is allowed
};

class Unpacker {
 public:
  virtual ~Unpacker() = default;
  // Takes bytes off *packed and writes at most size; *written is how many.
  virtual UnpackResult Step(std::string_view *packed, char *bytes, std::size_t size,
                            std::size_t *written) = 0;
  virtual const char *Name() const = 0;  // of the format, for messages
};

// Takes the suffix .gz or .xz off the name of a file.  Null: it has none, and the file is read as
// it is.
std::unique_ptr<Unpacker> Unpack_BySuffix(std::string_view *file);

#endif
