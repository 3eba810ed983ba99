// The files that korvo-deploy(7) shows are whole, and fit together.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "config/announce.h"
#include "config/conf_file.h"
#include "tests/support/log_capture.h"
#include "web/conf.h"

namespace {

using Words = std::vector<std::string>;

// A comment with a path names the display that follows.
std::map<std::string, std::string> FilesOfManual() {
  std::map<std::string, std::string> files;
  std::ifstream manual(KORVO_MANUAL);
  std::string name;
  std::string *file = nullptr;
  for (std::string line; std::getline(manual, line);) {
    if (line == ".Ed") {
      name.clear();
      file = nullptr;
    }
    if (file != nullptr) *file += line + "\n";
    if (line.starts_with(".\\\" ") && line.find("/korvo") != std::string::npos)
      name = line.substr(4);
    if (line.starts_with(".Bd") && !name.empty()) file = &files[name];
  }
  return files;
}

std::vector<Words> LinesOf(const std::string &text) {
  std::vector<Words> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    std::istringstream words(line);
    if (!line.starts_with('#'))
      lines.emplace_back(std::istream_iterator<std::string>(words),
                         std::istream_iterator<std::string>());
  }
  return lines;
}

class DeployTest : public ::testing::Test {
 protected:
  DeployTest() {
    for (const auto &[name, text] : files_) {
      std::filesystem::create_directories((folder_ / name).parent_path());
      std::ofstream(folder_ / name) << text;
    }
  }
  ~DeployTest() override { std::filesystem::remove_all(folder_); }

  std::string Path(const std::string &name) const { return folder_ / name; }

  // One line as its program reads it, and its children read it.
  void ReadLine(const std::string &name, const Words &words) {
    SCOPED_TRACE(name + ": " + words.front());
    ASSERT_EQ(words.size(), 6U);
    ConfigInfo config = {};
    ASSERT_EQ(Init_ReadConf(Path(name).c_str(), words[0].c_str(), words[1][0], &config), 1);
    EXPECT_EQ(config.ID, words[0]);
    EXPECT_EQ(config.IP, words[2]);
    EXPECT_EQ(std::to_string(config.ClientPort), words[3]);
    EXPECT_EQ(std::to_string(config.AdminPort), words[4]);
    SockAddr client = {}, admin = {};
    EXPECT_EQ(Init_TCPIPSetup(&config, &client, &admin), 1);
    machines_.insert(config.IP);
    EXPECT_TRUE(ports_.insert(words[2] + ":" + words[3]).second);
    EXPECT_TRUE(ports_.insert(words[2] + ":" + words[4]).second);
    const std::string parents = words[1] == "C" ? "" : words[1] == "E" ? "SD" : "C";
    ConfigInfo parent = {};
    for (const char type : parents)
      EXPECT_EQ(Init_ReadConf(Path(name).c_str(), config.ParentID, type, &parent), 1);
  }

  // A service: its korvo.conf with its korvo.db, where all engines have a database.
  void ReadService(const std::string &conf, const std::string &db) {
    const LogCapture log;
    int engines = 0;
    for (const Words &words : LinesOf(files_.at(conf))) {
      ReadLine(conf, words);
      if (words.at(1) != "E") continue;
      ++engines;
      DBInfo database = {};
      EXPECT_EQ(Init_ReadDB(Path(db).c_str(), words[0].c_str(), &database), 1);
      EXPECT_TRUE(locations_.insert(words[2] + database.SearchLocation).second);
      EXPECT_STREQ(database.SearchLocation, database.DocLocation);
    }
    for (const Words &words : LinesOf(files_.at(db))) {
      DBInfo database = {};
      EXPECT_EQ(words.size(), 4U);
      EXPECT_EQ(Init_ReadDB(Path(db).c_str(), words[0].c_str(), &database), 1);
      EXPECT_EQ(database.DocLocation, words.at(3));
    }
    EXPECT_EQ(log.Messages(), "");
    engines_ += engines;
  }

  // The page before a service: it asks the Communications Manager for groups that are there.
  void ReadPage(const std::string &web, const std::string &conf) {
    WebConf page;
    std::string wrong;
    ASSERT_TRUE(Conf_Read(Path(web), &page, &wrong)) << wrong;
    const Words daemon = LinesOf(files_.at(conf)).front();
    EXPECT_EQ(daemon.at(1), "C");
    EXPECT_EQ(page.daemon_address, daemon.at(2));
    EXPECT_EQ(std::to_string(page.daemon_port), daemon.at(3));
    EXPECT_EQ(std::to_string(page.admin_port), daemon.at(4));
    const LogCapture log;
    ConfigInfo config = {};
    for (const WebGroup &group : page.groups)
      for (const char type : {'S', 'D'})
        EXPECT_EQ(Init_ReadConf(Path(conf).c_str(), group.id.c_str(), type, &config), 1);
    EXPECT_EQ(page.groups.size(), 1U);
    EXPECT_TRUE(ports_.insert(page.listen_address + ":" + std::to_string(page.listen_port)).second);
  }

  const std::map<std::string, std::string> files_ = FilesOfManual();
  const std::filesystem::path folder_ =
      std::filesystem::temp_directory_path() / ("deploy_test." + std::to_string(getpid()));
  std::set<std::string> machines_, ports_, locations_;
  int engines_ = 0;
};

TEST_F(DeployTest, Manual_ShowsTheFilesOfThreeServices) {
  std::vector<std::string> names;
  for (const auto &[name, text] : files_) names.push_back(name);
  EXPECT_EQ(names, (std::vector<std::string>{
                       "one/korvo-web.conf", "one/korvo.conf", "one/korvo.db", "standby/korvo.conf",
                       "three/korvo-web.conf", "three/korvo.conf", "three/korvo.db",
                       "twenty/east/korvo-web.conf", "twenty/east/korvo.conf", "twenty/korvo.db",
                       "twenty/west/korvo-web.conf", "twenty/west/korvo.conf"}));
}

TEST_F(DeployTest, OneMachine_IsRead) {
  ReadService("one/korvo.conf", "one/korvo.db");
  ReadPage("one/korvo-web.conf", "one/korvo.conf");
  EXPECT_EQ(machines_.size(), 1U);
  EXPECT_EQ(engines_, 0);
}

TEST_F(DeployTest, ThreeMachines_AreRead) {
  ReadService("three/korvo.conf", "three/korvo.db");
  ReadPage("three/korvo-web.conf", "three/korvo.conf");
  EXPECT_EQ(machines_.size(), 3U);
  EXPECT_EQ(engines_, 2);
}

// A machine is in one tree, and each tree has all databases.
TEST_F(DeployTest, TwentyMachines_AreRead) {
  for (const std::string tree : {"twenty/east/", "twenty/west/"}) {
    ReadService(tree + "korvo.conf", "twenty/korvo.db");
    ReadPage(tree + "korvo-web.conf", tree + "korvo.conf");
    EXPECT_EQ(machines_.size(), tree == "twenty/east/" ? 10U : 20U);
  }
  EXPECT_EQ(engines_, 16);
  EXPECT_EQ(locations_.size(), 16U);
}

}  // namespace
