#include "docmgr/room.h"

#include <gtest/gtest.h>

namespace {

using Sizes = std::vector<std::size_t>;

constexpr RoomClaim Body(std::size_t size) { return {size, RoomRank::kBody}; }
constexpr RoomClaim Other(std::size_t size) { return {size, RoomRank::kOther}; }
constexpr RoomClaim Added(std::size_t size) { return {size, RoomRank::kAdded}; }

}  // namespace

TEST(Room, EnoughForAll_GivesAll) {
  EXPECT_EQ(Room_Share({Other(3), Body(4), Added(5)}, 12), (Sizes{3, 4, 5}));
  EXPECT_EQ(Room_Share({}, 0), Sizes{});
}

TEST(Room, TheBodyGivesWayFirst) {
  EXPECT_EQ(Room_Share({Other(3), Body(4), Added(5)}, 11), (Sizes{3, 3, 5}));
  EXPECT_EQ(Room_Share({Other(3), Body(4), Added(5)}, 8), (Sizes{3, 0, 5}));
  EXPECT_EQ(Room_Share({Body(4), Other(3), Body(4)}, 6), (Sizes{3, 3, 0}));
}

TEST(Room, TheLongestOfTheOthersGiveWayNext) {
  EXPECT_EQ(Room_Share({Other(9), Other(2), Other(5), Added(1), Body(4)}, 11),
            (Sizes{4, 2, 4, 1, 0}));
  EXPECT_EQ(Room_Share({Other(1), Other(1)}, 1), (Sizes{0, 0}));
}

TEST(Room, WhatIsAddedStays) {
  EXPECT_EQ(Room_Share({Other(9), Added(4), Body(1)}, 4), (Sizes{0, 4, 0}));
  EXPECT_EQ(Room_Share({Other(9), Added(4)}, 3), (Sizes{0, 4}));
}
