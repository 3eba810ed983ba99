#include "web/conf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "tests/system/harness.h"

namespace {

// What is wrong with a file of these lines, without its path; nothing: it is right.
std::string Wrong(const std::string &lines, WebConf *conf = nullptr) {
  const Folder folder;
  const std::string path = folder.Write("web.conf", lines);
  WebConf read;
  std::string wrong;
  if (Conf_Read(path, conf != nullptr ? conf : &read, &wrong)) return {};
  EXPECT_TRUE(wrong.starts_with(path)) << wrong;
  return wrong.substr(std::min(path.size(), wrong.size()));
}

}  // namespace

TEST(Conf, EmptyFile_GivesTheDefaults) {
  WebConf conf;
  ASSERT_EQ(Wrong("", &conf), "");
  EXPECT_EQ(conf.listen_address, "127.0.0.1");
  EXPECT_EQ(conf.listen_port, 8080);
  EXPECT_EQ(conf.daemon_address, "127.0.0.1");
  EXPECT_EQ(conf.daemon_port, 8001);
  EXPECT_EQ(conf.admin_port, 8002);
  EXPECT_EQ(conf.connections, 6);
  EXPECT_EQ(conf.page_hits, 10);
  EXPECT_EQ(conf.deadline, 10000);
  EXPECT_EQ(conf.texts, "/usr/local/korvo/share/korvo/web/texts.en");
  EXPECT_EQ(conf.front_page, "/usr/local/korvo/share/korvo/web/front.html");
  EXPECT_EQ(conf.static_directory, "/usr/local/korvo/share/korvo/web/static");
  EXPECT_EQ(conf.log, "-");
  EXPECT_EQ(conf.public_url, "-");
  ASSERT_EQ(conf.groups.size(), 1u);
  EXPECT_EQ(conf.groups[0].id, "packages");
  EXPECT_EQ(conf.groups[0].title, "Packages");
  EXPECT_EQ(conf.groups[0].results, "/usr/local/korvo/share/korvo/web/results");
  EXPECT_EQ(conf.groups[0].document, "/usr/local/korvo/share/korvo/web/document");
}

TEST(Conf, Lines_AreTaken) {
  WebConf conf;
  ASSERT_EQ(Wrong("# comment\n\n  listen-port\t 81 \r\nmacro-directory /m\nlog-queries no\n"
                  "public-url https://search.example\n"
                  "group a results document All of it\nsort a -Date Newest first\ngroup b r d B\n"
                  "sort b Size Largest\n"
                  "documents e1 b\n",
                  &conf),
            "");
  EXPECT_EQ(conf.listen_port, 81);
  EXPECT_EQ(conf.log_queries, "no");
  EXPECT_EQ(conf.public_url, "https://search.example");
  ASSERT_EQ(conf.groups.size(), 2u);
  EXPECT_EQ(conf.groups[0].title, "All of it");
  ASSERT_EQ(conf.groups[0].sorts.size(), 1u);
  EXPECT_EQ(conf.groups[0].sorts[0].key, "-Date");
  EXPECT_EQ(conf.groups[0].sorts[0].title, "Newest first");
  EXPECT_EQ(conf.groups[1].results, "/m/r");
  ASSERT_EQ(conf.groups[1].sorts.size(), 1u);
  EXPECT_EQ(conf.groups[1].sorts[0].key, "Size");
  EXPECT_EQ(Conf_Group(conf, "b")->document, "/m/d");
  EXPECT_EQ(Conf_Group(conf, "c"), nullptr);
  EXPECT_EQ(Conf_Group(conf, "e1"), nullptr);
  EXPECT_EQ(Conf_GroupOfDocuments(conf, "e1"), &conf.groups[1]);
  EXPECT_EQ(Conf_GroupOfDocuments(conf, "a"), &conf.groups[0]);
  EXPECT_EQ(Conf_GroupOfDocuments(conf, "e2"), nullptr);
}

TEST(Conf, Hosts_AreOfLettersDigitsAndFiveMarks) {
  for (const std::string scheme : {"http://", "https://"})
    EXPECT_EQ(Wrong("public-url " + scheme + "AZaz09.-:[]\n"), "");
}

TEST(Conf, WrongLines_AreNamed) {
  const std::pair<const char *, const char *> lines[] = {
      {"no-such 1", ":1: no setting has the name 'no-such'"},
      {"\nlisten-port x", ":2: listen-port takes a number from 1 to 65535, not 'x'"},
      {"page-hits 101", ":1: page-hits takes a number from 1 to 100, not '101'"},
      {"page-hits 0", ":1: page-hits takes a number from 1 to 100, not '0'"},
      {"page-hits", ":1: page-hits takes a number from 1 to 100, not ''"},
      {"page-hits 5 6", ":1: page-hits takes a number from 1 to 100, not '5 6'"},
      {"listen-address host", ":1: listen-address takes an IPv4 address, not 'host'"},
      {"texts texts.en", ":1: texts takes an absolute path, not 'texts.en'"},
      {"log x", ":1: log takes an absolute path, or - for standard error, not 'x'"},
      {"log-queries maybe", ":1: log-queries takes yes or no, not 'maybe'"},
      {"public-url example",
       ":1: public-url takes http://HOST or https://HOST, or - for the host that a browser names, not 'example'"},
      {"public-url https://x.example/",
       ":1: public-url takes http://HOST or https://HOST, or - for the host that a browser names, not 'https://x.example/'"},
      {"public-url https://x?y",
       ":1: public-url takes http://HOST or https://HOST, or - for the host that a browser names, not 'https://x?y'"},
      {"public-url http://",
       ":1: public-url takes http://HOST or https://HOST, or - for the host that a browser names, not 'http://'"},
      {"page-hits 5\npage-hits 5", ":2: page-hits stands here twice"},
      {"log -\nlog -", ":2: log stands here twice"},
      {"group a b c",
       ":1: group takes an id, the macro of its hits, the macro of its documents and a title"},
      {"group a ../b c T",
       ":1: group takes an id, the macro of its hits, the macro of its documents and a title"},
      {"group ../a b c T",
       ":1: group takes an id, the macro of its hits, the macro of its documents and a title"},
      {"group a b ../c T",
       ":1: group takes an id, the macro of its hits, the macro of its documents and a title"},
      {"group a b c T\ngroup a b c T", ":2: group a stands here twice"},
      {"documents e1 a", ":1: documents names the group a, which no line above it does"},
      {"documents e1",
       ":1: documents takes the id of a Document Manager and the group whose macro shows its documents"},
      {"group a b c T\ndocuments e/1 a",
       ":2: documents takes the id of a Document Manager and the group whose macro shows its documents"},
      {"group a b c T\ndocuments e1 a x",
       ":2: documents takes the id of a Document Manager and the group whose macro shows its documents"},
      {"group a b c T\ndocuments a a", ":2: the documents of a have their group already"},
      {"group a b c T\ndocuments e1 a\ndocuments e1 a",
       ":3: the documents of e1 have their group already"},
      {"group a b c T\ndocuments e1 a\ngroup e1 b c T",
       ":3: the documents of e1 have their group already"},
      {"sort a Date Newest", ":1: sort names the group a, which no line above it does"},
      {"group a b c T\nsort b Date Newest",
       ":2: sort names the group b, which no line above it does"},
      {"group a b c T\nsort ../a Date Newest",
       ":2: sort takes the id of a group, a field with '-' before it for descending order, and a title"},
      {"group a b c T\nsort a Da/te Newest",
       ":2: sort takes the id of a group, a field with '-' before it for descending order, and a title"},
      {"group a b c T\nsort a Date",
       ":2: sort takes the id of a group, a field with '-' before it for descending order, and a title"},
      {"sort a",
       ":1: sort takes the id of a group, a field with '-' before it for descending order, and a title"}};
  for (const auto &[text, wrong] : lines) EXPECT_EQ(Wrong(text), wrong);
}

TEST(Conf, Names_AreOfLettersDigitsAndThreeMarks) {
  for (int byte = 0; byte < 256; ++byte) {
    const char c = static_cast<char>(byte);
    const bool right = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
                       c == '-' || c == '_' || c == '.';
    EXPECT_EQ(Conf_IsName(std::string(1, c)), right) << byte;
    EXPECT_EQ(Conf_IsName(std::string("a") + c), right) << byte;
  }
  EXPECT_FALSE(Conf_IsName(""));
  EXPECT_TRUE(Conf_IsName(std::string(127, 'x')));
  EXPECT_FALSE(Conf_IsName(std::string(128, 'x')));
}

TEST(Conf, FileThatIsNotThere_IsNamed) {
  WebConf conf;
  std::string wrong;
  EXPECT_FALSE(Conf_Read("/nowhere/web.conf", &conf, &wrong));
  EXPECT_EQ(wrong, "/nowhere/web.conf: cannot be read: No such file or directory");
  EXPECT_FALSE(Conf_Read("/tmp", &conf, &wrong));
  EXPECT_EQ(wrong, "/tmp: cannot be read: Is a directory");
}

TEST(Conf, LongMacro_IsRefused) {
  WebConf conf;
  std::string wrong;
  const Folder folder;
  const std::string directory = "/" + std::string(115, 'd');
  const std::string line = "macro-directory " + directory + "\ngroup a " + "results r T\n";
  EXPECT_FALSE(Conf_Read(folder.Write("c", line), &conf, &wrong));
  EXPECT_EQ(wrong, directory + "/results: a macro goes by at most 123 characters");
  EXPECT_TRUE(Conf_Read(
      folder.Write("c", "macro-directory " + directory + "\ngroup a result r T\n"), &conf, &wrong));
}

TEST(Conf, TabInAFrame_IsRefused) {
  WebConf conf;
  std::string wrong;
  const Folder folder;
  folder.Write("results.hdr", "<p>\n\t<b>\n");
  EXPECT_FALSE(
      Conf_Read(folder.Write("c", "macro-directory " + folder.Path() + "\n"), &conf, &wrong));
  EXPECT_EQ(
      wrong,
      folder.Path() +
          "/results.hdr:2: holds a tab, with which a message of the service begins; write blanks");
}

// --help has a line "  NAME DEFAULT (LEAST to MOST)" a setting.
TEST(Conf, Manual_HasEverySetting) {
  const std::string manual = ReadFile(KORVO_MANUAL);
  std::istringstream help(Conf_Help());
  int settings = 0;
  for (std::string line; std::getline(help, line);) {
    if (line.starts_with("      ") || line.starts_with("  group ") || line.starts_with("  sort ") ||
        line.starts_with("  documents "))
      continue;
    std::istringstream words(line);
    std::string name, value, least, to, most;
    words >> name >> value >> least >> to >> most;
    const std::size_t at = manual.find("\n.It Cm " + name + "\n");
    ASSERT_NE(at, std::string::npos) << name;
    const std::string entry = manual.substr(at, manual.find("\n.It", at + 1) - at);
    const bool limits = !least.empty();
    const std::string said = limits ? "From " + least.substr(1) + " to " +
                                          most.substr(0, most.size() - 1) + "; by default " +
                                          value + ".\n"
                                    : "By default\n.Li " + value + " .\n";
    EXPECT_NE((entry + "\n").find(said), std::string::npos) << entry << said;
    ++settings;
  }
  EXPECT_GT(settings, 20);
}
