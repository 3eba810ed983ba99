#include "docmgr/room.h"

#include <algorithm>
#include <cstdint>

namespace {

// The length that all values may have, so that those of sizes fit into room together.
std::size_t LongestOf(std::vector<std::size_t> sizes, std::size_t room) {
  std::sort(sizes.begin(), sizes.end());
  std::size_t left = sizes.size();
  for (const std::size_t size : sizes) {
    if (size > room / left) return room / left;
    room -= size;
    --left;
  }
  return SIZE_MAX;
}

}  // namespace

std::vector<std::size_t> Room_Share(const std::vector<RoomClaim> &claims, std::size_t room) {
  std::size_t wanted = 0, fixed = 0;
  std::vector<std::size_t> share, others;
  for (const RoomClaim &claim : claims) {
    share.push_back(claim.size);
    wanted += claim.size;
    if (claim.rank == RoomRank::kOther) others.push_back(claim.size);
    if (claim.rank == RoomRank::kAdded) fixed += claim.size;
  }
  for (std::size_t i = claims.size(); i > 0 && wanted > room; --i) {
    if (claims[i - 1].rank != RoomRank::kBody) continue;
    const std::size_t given = std::min(share[i - 1], wanted - room);
    share[i - 1] -= given;
    wanted -= given;
  }
  if (wanted <= room) return share;
  const std::size_t longest = LongestOf(others, room - std::min(room, fixed));
  for (std::size_t i = 0; i < claims.size(); ++i)
    if (claims[i].rank == RoomRank::kOther) share[i] = std::min(share[i], longest);
  return share;
}
