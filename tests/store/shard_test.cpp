// A shard on this machine, from request to request.
#include "store/shard.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

class LocalShard : public testing::Test {
 protected:
  LocalShard() : writer_(path_, Xapian::DB_CREATE_OR_OVERWRITE) {
    shard_.location = path_;
    Add();
  }
  ~LocalShard() override { std::filesystem::remove_all(path_); }

  void Add() {
    writer_.add_document(Xapian::Document());
    writer_.commit();
  }

  // As if the last commit had been long ago.
  void Age() const {
    std::filesystem::last_write_time(
        path_ + "/iamglass",
        std::filesystem::file_time_type::clock::now() - std::chrono::seconds(60));
  }

  // The documents that the next request finds.
  Xapian::doccount Documents() {
    Shard *const shards[] = {&shard_};
    const auto now = ShardClock::now();
    EXPECT_EQ(Shard_Ready(shards, {now, now + std::chrono::seconds(5)}), 1);
    return shard_.database->get_doccount();
  }

  const std::string path_ = testing::TempDir() + "korvo-shard-" + std::to_string(getpid());
  Xapian::WritableDatabase writer_;
  Shard shard_;
};

}  // namespace

TEST_F(LocalShard, EachCommitIsSeenByTheNextRequest) {
  for (Xapian::doccount documents = 1; documents <= 50; ++documents, Add())
    EXPECT_EQ(Documents(), documents);
}

TEST_F(LocalShard, ACommitIsSeenByTheNextRequestHoweverLongThereWasNone) {
  Age();
  EXPECT_EQ(Documents(), 1u);
  EXPECT_EQ(Documents(), 1u);
  EXPECT_EQ(Documents(), 1u);
  EXPECT_TRUE(shard_.unchanged);
  Add();
  EXPECT_EQ(Documents(), 2u);
  Age();
  EXPECT_EQ(Documents(), 2u);
  Add();
  Add();
  EXPECT_EQ(Documents(), 4u);
}

TEST_F(LocalShard, ADatabaseMadeAnewIsSeenByTheNextRequest) {
  Age();
  EXPECT_EQ(Documents(), 1u);
  EXPECT_EQ(Documents(), 1u);
  writer_.close();
  std::filesystem::rename(path_, path_ + ".old");
  writer_ = Xapian::WritableDatabase(path_, Xapian::DB_CREATE);
  Add();
  Add();
  Age();
  EXPECT_EQ(Documents(), 2u);
  std::filesystem::remove_all(path_ + ".old");
}

namespace {

// Whether a shard is held to have failed by an error that names none.
template <typename Error>
bool Blames(const char *type) {
  Shard shard;
  shard.location = "here";
  shard.database.emplace();
  Shard *const shards[] = {&shard};
  const Error error("of this test");
  EXPECT_STREQ(error.get_type(), type);
  return Shard_OfError(shards, error) == &shard;
}

}  // namespace

TEST(Shard, WhatCannotBeAskedOfAnyDatabase_IsNoFaultOfOne) {
  EXPECT_EQ(Blames<Xapian::UnimplementedError>("UnimplementedError"), false);
  EXPECT_EQ(Blames<Xapian::InvalidArgumentError>("InvalidArgumentError"), false);
  EXPECT_EQ(Blames<Xapian::InvalidOperationError>("InvalidOperationError"), false);
  EXPECT_EQ(Blames<Xapian::NetworkError>("NetworkError"), false);  // of none that is here
  EXPECT_EQ(Blames<Xapian::DatabaseCorruptError>("DatabaseCorruptError"), true);
}
