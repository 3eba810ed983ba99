// store/location.h: whether a database is still the one that was opened.
#ifndef STORE_LOCATION_H
#define STORE_LOCATION_H

#include <cstdint>
#include <string>

// What stands at a path.  A database that is written to stays the same one; one that is moved into
// its place, or made anew there, is another, and so is a changed file that names databases.
struct LocationState {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;   // 0: there is nothing
  std::int64_t born = 0;     // nanoseconds since 1970, where the file system knows it
  std::int64_t changed = 0;  // the same, of a file

  bool operator==(const LocationState &) const = default;
};

LocationState Location_State(const std::string &path);

// The file that each commit to the database at a path replaces; nothing where there is none, or
// where it was changed so lately that the next change might bear the same time.
LocationState Location_Revision(const std::string &path);

#endif
