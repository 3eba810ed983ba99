// Databases of Omega's own indexers, searched and shown as they are.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "tests/service/tree.h"

namespace {

constexpr const char *kOmindex = "/usr/bin/omindex";
constexpr const char *kScriptindex = "/usr/bin/scriptindex";

bool Has(const std::string &text, const std::string &part) {
  return text.find(part) != std::string::npos;
}

void RunProgram(const std::vector<std::string> &arguments) {
  const Folder folder;
  Process program(arguments, folder.Path());
  EXPECT_EQ(ExitStatus(program.Wait()), 0) << program.Output() << program.RawLog();
}

constexpr const char *kStar =
    "<html><head><title>Stars &amp; their &lt;b&gt;motions&lt;/b&gt;</title>"
    "<meta name=\"author\" content=\"Ada O'Neil\"></head><body><p>Astronomers measured moving "
    "stars. The text &lt;script&gt;alert(\"star\")&lt;/script&gt; shows no script.</p></body></html>";
constexpr const char *kGarden =
    "<html><head><title>Gardens</title></head><body><p>Gardening in the quiet garden, where a "
    "measure of stars is seen.</p></body></html>";

// Three pages and a text, as omindex has them.
std::string OmindexDatabase(const Folder &folder) {
  const std::string pages = folder.Path() + "/pages", path = folder.Path() + "/omindex";
  std::filesystem::create_directory(pages);
  folder.Write("pages/stars.html", kStar);
  folder.Write("pages/garden.html", kGarden);
  folder.Write("pages/bridge.txt", "A bridge of iron\nover the quiet river\n");
  folder.Write("pages/broken.html",
               "<html><title>Half</title><body><p>A page that <b>ends early <&#0;");
  RunProgram({kOmindex, "--db", path, "--url", "/", pages});
  return path;
}

// The words of a text are indexed as they stand, and by the letters that Omega's own names have.
std::string ScriptindexDatabase(const Folder &folder) {
  const std::string path = folder.Path() + "/scriptindex";
  const std::string script = folder.Write("script",
                                          "id : boolean=Q unique=Q field\n"
                                          "title : field index=S index\n"
                                          "author : field index=A\n"
                                          "colour : field index=XCOLOUR\n"
                                          "text : field index\n");
  const std::string records = folder.Write(
      "records",
      "id=1\ntitle=Moving Stars\nauthor=Grace Hopper\ncolour=Deep Blue\n"
      "text=Of <i>stars</i> & \"planets\"\n=and their\ttails, measured\n\n"
      "id=2\ntitle=Quiet Gardens\nauthor=Alan Turing\ncolour=Green\ntext=No star is measured here\n\n"
      "id=3\ntitle=\xe9t\xe9\nauthor=\ntext=Bytes \x01\x7f of another time\n\n");
  RunProgram({kScriptindex, path, script, records});
  return path;
}

// One database behind the daemon, on this machine or at an engine.
class Omega : public testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    for (const char *program : {kOmindex, kScriptindex})
      if (access(program, X_OK) != 0)
        GTEST_SKIP() << program << " is missing: it is in the package xapian-omega";
  }

  void Serve(const std::string &database) {
    const bool at_engine = GetParam();
    tree_.Line('C', "web1", "-");
    tree_.Line('S', "docs", "web1");
    tree_.Line('D', "docs", "web1");
    if (at_engine) tree_.Line('E', "engine", "docs");
    tree_.Database(at_engine ? "engine" : "docs", database, database);
    for (const char type : {'C', 'S', 'D'}) tree_.Start(type, type == 'C' ? "web1" : "docs");
    if (at_engine) tree_.Start('E', "engine");
    data_.Write("page.hdr", "");
    data_.Write("page.tail", "");
  }

  // A macro that shows a value of each name.
  void Macro(const std::vector<std::string> &names) {
    std::string macro = TextOp("[");
    for (const std::string &name : names) macro += ValueOp(name) + TextOp("|");
    data_.Write("page.mo", macro + TextOp("]\n") + EndOp());
  }

  std::string Page(const std::string &query, const std::string &script = "html place all snippet") {
    const std::string fields = script.empty() ? "" : "\t@SCRIPT=" + script;
    return tree_.Exchange('C', "web1",
                          "\t@COMMAND=QUERY\t@SEARCHGROUP=docs\t@MACROFILE=" + data_.Path() +
                              "/page" + fields + "\t" + query + "\n");
  }

  std::string Document(int number, const std::string &script) {
    return tree_.Exchange('C', "web1",
                          "\t@COMMAND=GETDOC\t@SEARCHGROUP=docs\t@RECTYPE=" + RecType() +
                              "\t@MACROFILE=" + data_.Path() + "/page\t@SCRIPT=" + script +
                              "\t@DOCNUM=" + std::to_string(number) + "\n");
  }

  static std::string RecType() { return GetParam() ? "engine" : "docsdb"; }

  // The managers and the daemon had nothing to say of looking a value up in vain.
  void ExpectNoMiss() {
    EXPECT_FALSE(Has(tree_.Program('C', "web1").Log(), "[MACRO"))
        << tree_.Program('C', "web1").Log();
    for (const char type : {'S', 'D'})
      EXPECT_FALSE(Has(tree_.Program(type, "docs").Log(), "[MainCore: Workers] Worker "));
  }

  Folder data_;
  Tree tree_;
};

INSTANTIATE_TEST_SUITE_P(Of, Omega, testing::Bool(), [](const auto &place) {
  return std::string(place.param ? "AnEngine" : "ThisMachine");
});

}  // namespace

TEST_P(Omega, PagesOfOmindexAreFoundAndShown) {
  Serve(OmindexDatabase(data_));
  Macro({"url", "caption", "Snippet", "RecType"});
  const std::string garden =
      "[/garden.html|Gardens|Gardening in the quiet garden, where a <mark>measure</mark> of stars is seen.|" +
      RecType() + "|]\n";
  const std::string stars =
      "[/stars.html|Stars &amp; their &lt;b&gt;motions&lt;/b&gt;|Astronomers <mark>measured</mark> "
      "moving stars. The text &lt;script&gt;alert(&quot;star&quot;)&lt;/script&gt; shows no script.|" +
      RecType() + "|]\n";
  const std::string both = Page("measuring");  // by its stem
  EXPECT_TRUE(Has(both, garden)) << both;
  EXPECT_TRUE(Has(both, stars)) << both;
  EXPECT_EQ(both.size(), garden.size() + stars.size()) << both;
}

TEST_P(Omega, FieldsOfOmindexAreSearchedByTheirNames) {
  Serve(OmindexDatabase(data_));
  Macro({"url"});
  EXPECT_EQ(Page("Title=garden"), "[/garden.html|]\n");
  EXPECT_EQ(Page("title=stars"), "[/stars.html|]\n");
  EXPECT_EQ(Page("author=ada"), "[/stars.html|]\n");
  EXPECT_EQ(Page("author=grace"), "");
  EXPECT_EQ(Page("\"quiet garden\""), "[/garden.html|]\n");
  EXPECT_EQ(Page("\"garden quiet\""), "");
  EXPECT_EQ(Page("\"quiet river\""), "[/bridge.txt|]\n");
  EXPECT_EQ(Page("quiet -river"), "[/garden.html|]\n");
  EXPECT_EQ(Page("astronom*"), "[/stars.html|]\n");
  EXPECT_EQ(Page("type=\"text/plain\""), "[/bridge.txt|]\n");
  EXPECT_EQ(Page("page ends early"), "[/broken.html|]\n");
}

TEST_P(Omega, PagesOfOmindexAreShownAsTheyAreWithoutAScript) {
  Serve(OmindexDatabase(data_));
  Macro({"url", "sample", "caption"});
  EXPECT_EQ(Page("astronomers", ""),
            "[/stars.html|Astronomers measured moving stars. The text "
            "<script>alert(\"star\")</script> shows no script.|Stars & their <b>motions</b>|]\n");
}

TEST_P(Omega, ADocumentOfOmindexIsGot) {
  Serve(OmindexDatabase(data_));
  Macro({"url", "caption", "SearchGroup", "RecType", "DocNum"});
  std::string all;
  for (int number = 1; number <= 4; ++number) all += Document(number, "html place all mark:garden");
  EXPECT_TRUE(Has(all, "[/garden.html|<mark>Gardens</mark>|docs|" + RecType() + "|")) << all;
  EXPECT_TRUE(Has(all, "[/bridge.txt|")) << all;
  EXPECT_TRUE(Has(all, "|docs|" + RecType() + "|4|]\n")) << all;
  EXPECT_EQ(Document(5, "html"), "\t@COMMAND=ERROR\tUnable to locate Document Server.");
}

TEST_P(Omega, RecordsOfScriptindexAreFoundAndShown) {
  Serve(ScriptindexDatabase(data_));
  Macro({"author", "colour", "id", "text", "title", "Snippet", "SearchGroup", "RecType", "DocNum"});
  EXPECT_EQ(Page("planet"),
            "[Grace Hopper|Deep Blue|1|Of &lt;i&gt;stars&lt;/i&gt; &amp; &quot;<mark>planets</mark>"
            "&quot; and their tails, measured|Moving Stars|Of &lt;i&gt;stars&lt;/i&gt; &amp; &quot;"
            "<mark>planets</mark>&quot; and their tails, measured|docs|" +
                RecType() + "|1|]\n");
  ExpectNoMiss();
}

TEST_P(Omega, FieldsOfScriptindexAreSearchedByTheirNames) {
  Serve(ScriptindexDatabase(data_));
  Macro({"id"});
  EXPECT_EQ(Page("Title=move"), "[1|]\n");
  EXPECT_EQ(Page("title=gardens"), "[2|]\n");
  EXPECT_EQ(Page("author=hoppers"), "[1|]\n");
  EXPECT_EQ(Page("AUTHOR=turing\tstars"), "[2|]\n");
  EXPECT_EQ(Page("colour=blues"), "[1|]\n");
  EXPECT_EQ(Page("colour=\"deep blue\""), "[1|]\n");
  EXPECT_EQ(Page("\"star is measured\""), "[2|]\n");
  EXPECT_EQ(Page("bytes"), "[3|]\n");
  EXPECT_EQ(Page("nothing of this"), "");
}

TEST_P(Omega, ADatabaseThatIsFilledLaterIsKnownThen) {
  const std::string path = data_.Path() + "/later";
  const std::string script =
      data_.Write("later-script", "id : boolean=Q unique=Q field\ntext : field index\n");
  RunProgram({kScriptindex, path, script, data_.Write("nothing", "")});
  Serve(path);
  Macro({"id"});
  EXPECT_EQ(Page("stars"), "");
  RunProgram({kScriptindex, path, script, data_.Write("something", "id=1\ntext=Stars\n\n")});
  for (int i = 0; i < 20; ++i) EXPECT_EQ(Page("star"), "[1|]\n");  // of whatever worker
}

TEST_P(Omega, BytesOfAnotherTimeAreShownSafely) {
  Serve(ScriptindexDatabase(data_));
  data_.Write("page.mo", TextOp("[") + ValueOp("id") + ValueOp("text") + ValueOp("title") +
                             TextOp("]") + EndOp());
  EXPECT_EQ(Document(3, "html"), "[3Bytes    of another time\xc3\xa9t\xc3\xa9]");
}
