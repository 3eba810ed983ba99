// docmgr/room.h: how much of each value fits into a record.
#ifndef DOCMGR_ROOM_H
#define DOCMGR_ROOM_H

#include <cstddef>
#include <vector>

// What a value takes, and when it gives way.
enum class RoomRank {
  kBody,   // first, the last one before the others
  kOther,  // then these, the longest before the others
  kAdded,  // never
};

struct RoomClaim {
  std::size_t size;
  RoomRank rank;
};

// The bytes that each value may have, so that all of them together fit into room.
std::vector<std::size_t> Room_Share(const std::vector<RoomClaim> &claims, std::size_t room);

#endif
