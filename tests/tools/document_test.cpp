// What the documents and examples say, run by the engine of the service.
#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "config/conf_file.h"
#include "macro/exec.h"
#include "macro/table.h"
#include "tests/support/log_capture.h"
#include "tests/system/harness.h"
#include "tests/tools/run.h"
#include "tools/macro/asm.h"

namespace {

std::string Source(const std::string &path) { return ReadFile(KORVO_SOURCES "/" + path); }

std::string Assembled(const std::string &source) {
  std::string code;
  AsmErrors errors;
  EXPECT_TRUE(Asm_Assemble(source, false, &code, &errors))
      << errors.first[0].line << ": " << errors.first[0].text;
  return code;
}

// The block of a document between ```kind and ```.
std::string Block(const std::string &text, const std::string &kind) {
  const std::string fence = "\n```" + kind + "\n";
  const std::size_t begin = text.find(fence);
  if (begin == std::string::npos) {
    ADD_FAILURE() << "no block " << kind;
    return {};
  }
  const std::size_t from = begin + fence.size();
  return text.substr(from, text.find("```", from) - from);
}

std::string FromHex(const std::string &text) {
  std::istringstream words(text);
  std::string bytes;
  for (std::string word; words >> word;) bytes += static_cast<char>(std::stoi(word, nullptr, 16));
  return bytes;
}

// The bytes of a text with \t and \n in it, its own line ends left out.
std::string Unescaped(const std::string &text) {
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\')
      bytes += text[++i] == 't' ? '\t' : '\n';
    else if (text[i] != '\n')
      bytes += text[i];
  }
  return bytes;
}

// What the service makes of a document, and what it logs at its usual level.
struct Page {
  int result;
  std::string text;
  std::string log;
};

Page Format(const std::string &code, std::string document) {
  const Folder folder;
  folder.Write("page.mo", code);
  const LogCapture log;
  std::string text(40960, '\0');
  int len = 40960;
  const int macro = Macro_Open((folder.Path() + "/page").c_str());
  const int result = Macro_Exec(macro, document.data(), text.data(), &len);
  text.resize(static_cast<std::size_t>(len));
  return {result, text, log.Messages()};
}

TEST(Document, WorkedExample_IsWhatTheAssemblerMakes) {
  const std::string text = Source("docs/macro-format.md");
  const std::string code = Assembled(Block(text, "macro"));
  EXPECT_EQ(FromHex(Block(text, "bytes")), code);
  EXPECT_NE(std::string::npos, text.find("is these " + std::to_string(code.size()) + " bytes"));
}

TEST(Document, WorkedExample_MakesItsLine) {
  const std::string text = Source("docs/macro-format.md");
  const Page page = Format(FromHex(Block(text, "bytes")), Unescaped(Block(text, "document")));
  EXPECT_EQ(1, page.result);
  EXPECT_EQ(Block(text, "output"), page.text);
  EXPECT_EQ("", page.log);
}

TEST(Document, WorkedExample_OffsetsAreThose) {
  const std::string document = Unescaped(Block(Source("docs/macro-format.md"), "document"));
  EXPECT_EQ(0u, document.find("\tPackage="));
  EXPECT_EQ(29u, document.find("\tDescription="));
}

// The words behind a mark, up to what no option holds.
std::set<std::string> Behind(const std::string &text, const std::string &mark) {
  std::set<std::string> words;
  for (std::size_t at = 0; (at = text.find(mark, at)) != std::string::npos;) {
    at += mark.size();
    const std::size_t end = text.find_first_not_of("abcdefghijklmnopqrstuvwxyz-", at);
    if (end > at) words.insert(text.substr(at, end - at));
  }
  return words;
}

TEST(ManualPage, HasTheOptionsOfTheHelp) {
  const struct {
    const char *tool;
    const char *page;
  } kPages[] = {{KORVO_MACRO, "docs/korvo-macro.1"},
                {KORVO_QUERY, "docs/korvo-query.1"},
                {KORVOCTL, "docs/korvoctl.8"}};
  for (const auto &[tool, page] : kPages) {
    const std::set<std::string> options = Behind(RunTool({tool, "--help"}).output, " --");
    EXPECT_TRUE(options.contains("help")) << tool;
    EXPECT_EQ(options, Behind(Source(page), "Fl Fl ")) << page;
  }
}

constexpr const char *kRecord =
    "\tPackage=adduser\tStatus=install ok installed\tPriority=important\tSection=admin\tMaintainer=A <a@b>"
    "\tVersion=3.134\tDepends=passwd\tDescription=add and remove users and groups\t\n";

TEST(Example, Package_FormatsARecordWithoutAWrap) {
  const Page page = Format(Assembled(Source("tools/macro/examples/package.ms")), kRecord);
  EXPECT_EQ(1, page.result);
  EXPECT_EQ("* adduser (admin) 3.134\n    add and remove users and groups\n\n", page.text);
  EXPECT_EQ("", page.log);
}

TEST(Example, Package_LeavesAMissingFieldOut) {
  const Page page = Format(Assembled(Source("tools/macro/examples/package.ms")),
                           "\tPackage=x\tVersion=1\tDescription=d\t\n");
  EXPECT_EQ(1, page.result);
  EXPECT_EQ("* x () 1\n    d\n\n", page.text);
}

TEST(Example, Configuration_IsComplete) {
  const LogCapture log;
  ConfigInfo config;
  DBInfo database;
  const std::string examples = KORVO_SOURCES "/docs/examples";
  EXPECT_EQ(1, Init_ReadConf((examples + "/korvo.conf").c_str(), "web1", 'C', &config));
  for (const char type : {'S', 'D'}) {
    EXPECT_EQ(1, Init_ReadConf((examples + "/korvo.conf").c_str(), "packages", type, &config));
    EXPECT_STREQ("web1", config.ParentID);
  }
  EXPECT_EQ(1, Init_ReadDB((examples + "/korvo.db").c_str(), "packages", &database));
  EXPECT_STREQ("/srv/korvo/packages", database.DocLocation);
  EXPECT_EQ("", log.Messages());
}

TEST(Example, Frames_FitTheService) {
  for (const char *name : {"package.hdr", "package.tail"}) {
    const std::string frame = Source(std::string("tools/macro/examples/") + name);
    EXPECT_TRUE(!frame.empty() && frame.size() <= 10238) << name;
  }
}

}  // namespace
