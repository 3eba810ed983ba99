#include <gtest/gtest.h>

#include <random>

#include "debug/log.h"
#include "tests/system/harness.h"
#include "tools/ctl/conf.h"

namespace {

std::string Show(const ConfigInfo &config) {
  return std::string(config.ID) + "|" + config.Type + "|" + config.IP + "|" +
         std::to_string(config.ClientPort) + "|" + std::to_string(config.AdminPort) + "|" +
         config.ParentID;
}

// A file of few words, so that they meet, and of everything that a reader may stumble over.
std::string MakeFile(std::mt19937 *random) {
  static const std::string kWords[] = {"a",
                                       "b",
                                       "#a",
                                       "S",
                                       "D",
                                       "SD",
                                       "127.0.0.1",
                                       "40000",
                                       "8001",
                                       "-x",
                                       "-",
                                       std::string(70, 'l'),
                                       "\r",
                                       "\n",
                                       "\n",
                                       "\n",
                                       "\t",
                                       "a S 127.0.0.1 1 2 b",
                                       std::string("z\0z", 3),
                                       std::string(1015, 'p')};
  std::string text;
  for (std::size_t count = (*random)() % 80; count > 0; --count)
    text += kWords[(*random)() % std::size(kWords)] + ((*random)() % 8 != 0 ? " " : "\n");
  return text;
}

// The programs leave the file open each time: no more rounds than descriptors.  The tool must not
// see another configuration than the programs do.
TEST(CtlConf, Lines_AreThoseThatTheProgramsRead) {
  const Folder folder;
  std::mt19937 random(20261122);
  Debug_Level = kOff;
  int found = 0;
  for (int round = 0; round < 60; ++round) {
    const std::string path = folder.Write("korvo.conf", MakeFile(&random));
    const Conf conf = Conf_Read(folder.Path());
    for (const std::string id : {"a", "b", "z"})
      for (const char type : {'S', 'D'}) {
        ConfigInfo config = {};
        const bool is_read = Init_ReadConf(path.c_str(), id.c_str(), type, &config) == 1;
        const ConfLine *line = Conf_Find(conf, id, type);
        ASSERT_EQ(is_read, line != nullptr) << ReadFile(path) << "\n" << id << type;
        if (!is_read) continue;
        ++found;
        ASSERT_EQ(Show(config), Show(line->config)) << ReadFile(path);
      }
  }
  EXPECT_GT(found, 20);
}

TEST(CtlConf, Pieces_HaveTheNumbersOfTheirLines) {
  const Folder folder;
  const std::string path =
      folder.Write("korvo.conf", "\n# x\n" + std::string(1500, 'x') + "\na b\nlast");
  int err = -1;
  const std::vector<ConfPiece> pieces = Conf_Pieces(path, &err);
  EXPECT_EQ(0, err);
  ASSERT_EQ(6u, pieces.size());
  EXPECT_EQ(2, pieces[1].number);
  EXPECT_TRUE(pieces[1].words.empty());
  EXPECT_EQ(3, pieces[2].number);
  EXPECT_TRUE(pieces[2].is_cut);
  EXPECT_EQ(3, pieces[3].number);
  EXPECT_FALSE(pieces[3].is_cut);
  EXPECT_EQ(4, pieces[4].number);
  EXPECT_TRUE(pieces[4].is_seen);
  EXPECT_EQ(5, pieces[5].number);
  EXPECT_FALSE(pieces[5].is_seen);
  EXPECT_TRUE(Conf_Pieces(folder.Path(), &err).empty());
  EXPECT_EQ(EISDIR, err);
}

}  // namespace
