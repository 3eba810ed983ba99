#include "store/location.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace {

class Location : public testing::Test {
 protected:
  Location() { std::filesystem::create_directories(path_); }
  ~Location() override { std::filesystem::remove_all(base_); }

  const std::string base_ = testing::TempDir() + "korvo-location-" + std::to_string(getpid());
  const std::string path_ = base_ + "/db";
};

}  // namespace

TEST_F(Location, OfADirectoryThatIsWrittenTo_IsTheSame) {
  const LocationState before = Location_State(path_);
  EXPECT_NE(before.inode, 0u);
  std::ofstream(path_ + "/file") << "x";
  EXPECT_EQ(Location_State(path_), before);
}

TEST_F(Location, OfADirectoryMovedIntoItsPlace_IsAnother) {
  const LocationState before = Location_State(path_);
  std::filesystem::rename(path_, path_ + "2");
  EXPECT_EQ(Location_State(path_).inode, 0u);
  std::filesystem::create_directory(path_);
  EXPECT_FALSE(Location_State(path_) == before);
}

TEST_F(Location, OfADirectoryMadeAnew_IsAnother) {
  const LocationState before = Location_State(path_);
  if (before.born == 0) GTEST_SKIP() << "this file system does not know when a file was born";
  std::filesystem::remove(path_);
  std::filesystem::create_directory(path_);
  EXPECT_FALSE(Location_State(path_) == before);
}

TEST_F(Location, OfAFileThatIsWrittenTo_IsAnother) {
  std::ofstream(path_ + "/stub") << "x";
  const LocationState before = Location_State(path_ + "/stub");
  EXPECT_EQ(Location_State(path_ + "/stub"), before);
  std::filesystem::last_write_time(
      path_ + "/stub", std::filesystem::file_time_type::clock::now() + std::chrono::seconds(5));
  EXPECT_FALSE(Location_State(path_ + "/stub") == before);
}

TEST_F(Location, OfNothing_IsNothing) {
  EXPECT_EQ(Location_State(base_ + "/none"), LocationState());
}

TEST_F(Location, RevisionIsTheFileThatACommitReplaces) {
  using Clock = std::filesystem::file_time_type::clock;
  const std::string file = path_ + "/iamglass";
  EXPECT_EQ(Location_Revision(path_), LocationState());
  std::ofstream(file) << "x";
  EXPECT_EQ(Location_Revision(path_), LocationState()) << "it may be changed again at once";
  std::filesystem::last_write_time(file, Clock::now() - std::chrono::seconds(60));
  const LocationState before = Location_Revision(path_);
  EXPECT_NE(before.inode, 0u);
  EXPECT_EQ(Location_Revision(path_), before);
  std::filesystem::last_write_time(file, Clock::now() - std::chrono::seconds(30));
  EXPECT_FALSE(Location_Revision(path_) == before);
  std::filesystem::last_write_time(file, Clock::now() + std::chrono::seconds(60));
  EXPECT_EQ(Location_Revision(path_), LocationState()) << "of a clock that went wrong";
}
