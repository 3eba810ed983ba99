// korvo-macro check and run, as a page author uses them.
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/tools/run.h"
#include "tools/macro/asm.h"

namespace {

using namespace std::string_literals;

constexpr const char *kSource = "text \"* \"\nvalue \"Title\"\ntext \"\\n\"\nend\n";

std::string MacroIn(const Folder &folder, const std::string &source) {
  const std::string path = folder.Write("page.ms", source);
  EXPECT_EQ(0, RunTool({KORVO_MACRO, "asm", "--allow-undefined", path}).status);
  return folder.Path() + "/page.mo";
}

// What the commands say, without the folder.
std::string Without(const Folder &folder, std::string text) {
  const std::string path = folder.Path() + "/";
  for (std::size_t at; (at = text.find(path)) != std::string::npos;) text.erase(at, path.size());
  return text;
}

TEST(MacroCheck, FindingsAreLines_AndDecideTheStatus) {
  const Folder folder;
  const Outcome right = RunTool({KORVO_MACRO, "check", MacroIn(folder, kSource)});
  EXPECT_EQ(0, right.status);
  EXPECT_EQ("", right.output + right.errors);

  const Outcome costs =
      RunTool({KORVO_MACRO, "check",
               MacroIn(folder, "text \"x\"\nvalue \"A\"\nvalue \"B\"\nvalue \"A\"\n")});
  EXPECT_EQ(1, costs.status);
  EXPECT_EQ(
      "page.ms:4: offset 9: cost: looks for 'A' where the cursor may stand behind it, and each time that is logged and the document read again; as with \\tA=x\\tB=x\\t\\n\n",
      Without(folder, costs.output));

  const Outcome faults = RunTool({KORVO_MACRO, "check", MacroIn(folder, "value \"A\"\npop\n")});
  EXPECT_EQ(65, faults.status);
  EXPECT_EQ("page.ms:2: offset 3: fault: pops a cursor off an empty stack; as with \\tA=x\\t\\n\n",
            Without(folder, faults.output));
  EXPECT_EQ("", faults.errors);
}

TEST(MacroCheck, WithoutItsSource_NamesOffsetsAlone) {
  const Folder folder;
  const std::string path = folder.Write("page.mo", "\x41\x01x\x09"s);
  EXPECT_EQ("page.mo: offset 3: fault: pops a cursor off an empty stack; as with \\t\\n\n",
            Without(folder, RunTool({KORVO_MACRO, "check", path}).output));
  folder.Write("page.ms", "push\n");  // another one's
  EXPECT_EQ("page.mo: offset 3: fault: pops a cursor off an empty stack; as with \\t\\n\n",
            Without(folder, RunTool({KORVO_MACRO, "check", path}).output));
}

TEST(MacroCheck, FieldsAndTheWitnessOfSeveral) {
  const Folder folder;
  const std::string fields =
      folder.Write("schema", "Part text\n#: script all\n#: field Part document=38000\n");
  const std::string macro = MacroIn(folder, "text \"x\"\nfetch \"Part\" \"/m\"\n");
  const Outcome fetch = RunTool({KORVO_MACRO, "check", "--fields", fields, macro});
  EXPECT_EQ(1, fetch.status);
  EXPECT_EQ(
      "page.ms:2: offset 3: cost: each document of a page takes one of the 20 places for macros, and from the twentieth on that is logged; as with \\tPart=Group Type 1\\t\\n, 20 times on a page\n",
      Without(folder, fetch.output));
  const Outcome insert = RunTool(
      {KORVO_MACRO, "check", "--fields", fields, MacroIn(folder, "text \"x\"\ninsert \"Part\"\n")});
  EXPECT_EQ(65, insert.status);
  EXPECT_NE(std::string::npos, insert.output.find("is cut at 39000; as with \\tPart=Group Type 1"));
  EXPECT_NE(std::string::npos,
            insert.output.find(", where the document that it names is \\tPart=x\\{37994}"));
  const Outcome wrong =
      RunTool({KORVO_MACRO, "check", "--fields", folder.Write("x", "A\n"), macro});
  EXPECT_EQ(65, wrong.status);
  EXPECT_EQ("x:1: expected a line of a schema, NAME KIND\n", Without(folder, wrong.errors));
}

TEST(MacroCheck, HtmlWithoutFields_IsANote) {
  const Folder folder;
  const Outcome outcome =
      RunTool({KORVO_MACRO, "check", MacroIn(folder, "text \"<p>\"\nvalue \"A\"\n")});
  EXPECT_EQ(0, outcome.status);
  EXPECT_EQ(
      "page.ms:2: offset 5: note: what a document holds stands on a page of HTML as it is; ask for documents with @SCRIPT=html; as with \\tA=<b>&\\t\\n\n",
      Without(folder, outcome.output));
}

TEST(MacroCheck, FramesOfHtml_MakeAPageOfHtml) {
  const Folder folder;
  const std::string fields = folder.Write("schema", "Title text\n#: script all\n");
  const std::string macro = MacroIn(folder, kSource);
  const auto check = [&] { return RunTool({KORVO_MACRO, "check", "--fields", fields, macro}); };
  folder.Write("page.hdr", "Titles <\n");
  folder.Write("page.tail", "The end\n\0<p>"s);
  EXPECT_EQ("", check().output);
  for (const char *frame : {"page.hdr", "page.tail"}) {
    folder.Write(frame, "<!DOCTYPE html>\n");
    const Outcome outcome = check();
    EXPECT_EQ(1, outcome.status) << frame;
    EXPECT_EQ(
        "page.ms:2: offset 4: cost: what a document holds stands on a page of HTML as it is; ask for documents with @SCRIPT=html; as with \\tTitle=<b>&\\t\\n\n",
        Without(folder, outcome.output))
        << frame;
    folder.Write(frame, "");
  }
}

TEST(MacroCheck, WhatNoDocumentShows_IsSaidSo) {
  const Folder folder;
  // The fetch fails here, and the insert does not; one document stands for both.
  const std::string fields = folder.Write(
      "schema", "#: script all\n#: field A document=30000\n#: field B document=30000\n");
  const std::string source =
      "text32 \"" + std::string(4097, 't') + "\"\ninsert \"A\"\nvalue \"Q\"\nfetch \"B\" \"/m\"\n";
  const Outcome outcome =
      RunTool({KORVO_MACRO, "check", "--fields", fields, MacroIn(folder, source)});
  EXPECT_EQ(65, outcome.status);
  EXPECT_NE(
      std::string::npos,
      Without(folder, outcome.output)
          .find(
              "page.ms:4: offset 4108: fault: the output can reach 40961 bytes, and a page takes 40960; no document was found that shows it\n"))
      << outcome.output;
}

TEST(MacroCheck, ShippedMacros_AreRight) {
  const std::string root = KORVO_SOURCES "/";
  for (const char *name : {"share/korvo/web/results.ms", "share/korvo/web/document.ms"}) {
    const Outcome outcome =
        RunTool({KORVO_MACRO, "check", "--fields", root + "demo/packages.schema", root + name});
    EXPECT_EQ(0, outcome.status) << name;
    EXPECT_EQ("", outcome.output + outcome.errors) << name;
  }
  for (const char *name : {"tools/macro/examples/package.ms", "demo/hit.ms"}) {
    const Outcome outcome = RunTool({KORVO_MACRO, "check", root + name});
    EXPECT_EQ(0, outcome.status) << name;
    EXPECT_EQ("", outcome.output + outcome.errors) << name;
  }
}

TEST(MacroRun, Page_HasFramesAroundItsDocuments) {
  const Folder folder;
  const std::string macro = MacroIn(folder, kSource);
  folder.Write("page.hdr", "Front\n");
  folder.Write("page.tail", "Back\n\0never"s);
  const std::string control = folder.Write("a", "Title: One\n more\n .\nText: x\n\n\nTitle: Two\n");
  const std::string json = folder.Write(
      "b",
      "{\"Title\": \"Three \\u00e9 \\ud83d\\ude00\", \"n\": [1, true, null, {\"x\": -2.5e1}]}\n\n{\"Title\":\"Four\\n\\\"\"}\n");
  const std::string raw = folder.Write("c", "\tTitle=Five\tText=y\n\tTitle=Six\t\n");
  const Outcome outcome =
      RunTool({KORVO_MACRO, "run", macro, control, json, raw, "\\tTitle=s\\{3}\\t\\n"});
  EXPECT_EQ(0, outcome.status);
  EXPECT_EQ(
      "Front\n* One more\n* Two\n* Three \xc3\xa9 \xf0\x9f\x98\x80\n* Four \"\n* Five\n* Six\n* sss\nBack\n",
      outcome.output);
  EXPECT_EQ("", outcome.errors);
  EXPECT_EQ("Front\n* In\nBack\n", RunTool({KORVO_MACRO, "run", macro, "-"}, "Title: In\n").output);
}

TEST(MacroRun, ByteOrderMark_IsNoPartOfADocument) {
  const Folder folder;
  const std::string macro = MacroIn(folder, kSource);
  for (const char *text : {"{\"Title\":\"x\"}", "Title: x\n", "\tTitle=x\t\n"})
    EXPECT_EQ("* x\n", RunTool({KORVO_MACRO, "run", macro, "-"}, "\xef\xbb\xbf"s + text).output);
}

TEST(MacroRun, EveryFieldOfJson_IsThere) {
  const Folder folder;
  const std::string macro = MacroIn(folder, "document\n");
  EXPECT_EQ(
      "\na=1\nb=true\nc.d=x\nc.d=-2.5e1\nc.e=\n\n",
      RunTool(
          {KORVO_MACRO, "run", macro, "-"},
          "{\"a\":1,\"b\":[true,null],\"c\":{\"d\":[\"x\",-2.5e1],\"e\":\"\"},\"f\":[],\"g\":{}}")
          .output);
}

TEST(MacroRun, Log_IsThatOfTheEngine) {
  const Folder folder;
  const std::string macro = MacroIn(folder, "text \"x\"\nvalue \"A\"\n");
  const Outcome warned = RunTool({KORVO_MACRO, "run", macro, "\\tB=1\\t\\n"});
  EXPECT_EQ(0, warned.status);
  EXPECT_EQ("x", warned.output);
  EXPECT_EQ(
      "[Macro: FindField] Wraparound looking for 'A' (\tA=)\n"
      "[Macro: FindField] Unable to find field = 'A' (\tA=)\n",
      warned.errors);
  EXPECT_EQ("[Macro: Exec] done\n",
            RunTool({KORVO_MACRO, "run", "--at", "102", macro, "\\tA=1\\t\\n"}).errors);
}

TEST(MacroRun, WhatEndsAPage_IsSaid) {
  const Folder folder;
  const Outcome fails =
      RunTool({KORVO_MACRO, "run", MacroIn(folder, "text \"x\"\npop\n"), "\\tA=1\\n", "\\tA=2\\n"});
  EXPECT_EQ(65, fails.status);
  EXPECT_EQ("\t@COMMAND=ERROR\tUnable to retreive document.", fails.output);
  EXPECT_EQ(
      "[Macro: Exec] op-code 9 at offset 3: stack is empty\n"
      "korvo-macro: the macro fails at a document, which ends the page\n",
      fails.errors);
  const Outcome empty = RunTool({KORVO_MACRO, "run", MacroIn(folder, "value \"A\"\n"),
                                 "\\tA=1\\t\\n", "\\tA=\\t\\n", "\\tA=3\\t\\n"});
  EXPECT_EQ(65, empty.status);
  EXPECT_EQ("1", empty.output);
  EXPECT_EQ("korvo-macro: nothing is written for a document, which ends the page\n", empty.errors);
  const Outcome endless =
      RunTool({KORVO_MACRO, "run", MacroIn(folder, "text \"x\"\nbyte 20\n"), "\\tA=1\\n"});
  EXPECT_EQ(65, endless.status);
  EXPECT_EQ(
      "\n[undefined op-code = 20]\n"
      "korvo-macro: the service would repeat this line until a signal ends the process\n",
      endless.errors);
}

TEST(MacroRun, Fetches_ComeFromAFolder) {
  const Folder folder;
  std::filesystem::create_directories(folder.Path() + "/store/dm1/T");
  folder.Write("store/dm1/T/17", "Part: inserted\n");
  const std::string macro = MacroIn(folder, "text \"x \"\ninsert \"Link\"\nvalue \"Part\"\n");
  const Outcome found = RunTool(
      {KORVO_MACRO, "run", "--fetch", folder.Path() + "/store", macro, "\\tLink=dm1,T,17\\t\\n"});
  EXPECT_EQ("x inserted", found.output);
  EXPECT_EQ("[Macro: Exec] FOLE_INSERT dm1,T,17\n", found.errors);
  const Outcome lost = RunTool({KORVO_MACRO, "run", macro, "\\tLink=dm1,..,17\\tPart=own\\t\\n"});
  EXPECT_EQ("x own", lost.output);
  EXPECT_EQ(
      "[Macro: Exec] FOLE_INSERT dm1,..,17\n"
      "korvo-macro: a fetch fails: there is no document dm1/../17 in the folder of --fetch\n",
      lost.errors);
  folder.Write("store/dm1/T/18", "\tBig=" + std::string(40000, 'x') + "\n");
  const Outcome cut = RunTool({KORVO_MACRO, "run", "--fetch", folder.Path() + "/store", macro,
                               "\\tLink=dm1,T,18\\tPart=own\\t\\n"});
  EXPECT_EQ(
      "[Macro: Exec] FOLE_INSERT dm1,T,18\n"
      "korvo-macro: a fetch is cut to 38975 characters\n",
      cut.errors);
}

TEST(MacroRun, Trace_ShowsEachInstruction) {
  const Folder folder;
  const std::string macro = MacroIn(
      folder, "text \"<\\n\"\npush\nvalue \"B\"\npop\nvalue \"C\"\nrestore 1\nsave 1\nend\n");
  const Outcome outcome = RunTool({KORVO_MACRO, "run", "--trace", macro, "\\tA=1\\tB=2\\t\\n"});
  EXPECT_EQ(0, outcome.status);
  EXPECT_EQ("<\n2", outcome.output);
  EXPECT_EQ(
      "     0  text \"<\\n\"                       cursor 0, stack empty, output 2: '<\\n'\n"
      "     4  push                             cursor 0, stack 0, output 2\n"
      "     5  value \"B\"                        cursor 4, stack 0, output 3: '2'\n"
      "     8  pop                              cursor 0, stack empty, output 3\n"
      "     9  value \"C\"                        cursor 0, stack empty, output 3\n"
      "        log: [Macro: FindField] Wraparound looking for 'C' (\\tC=)\\n\n"
      "        log: [Macro: FindField] Unable to find field = 'C' (\\tC=)\\n\n"
      "    12  restore 1                        cursor 0, stack empty, output 3\n"
      "    14  save 1                           cursor 0, stack empty, output 3\n"
      "    16  end\n"
      "[Macro: FindField] Wraparound looking for 'C' (\tC=)\n"
      "[Macro: FindField] Unable to find field = 'C' (\tC=)\n",
      outcome.errors);
}

TEST(MacroRun, Trace_GoesIntoTheNameOfAMacro) {
  const Folder folder;
  const std::string macro = MacroIn(folder, "text \"x\"\nfetch \"A\" \"/\\x09\"\nbyte 20\n");
  const Outcome outcome = RunTool({KORVO_MACRO, "run", "--trace", macro, "\\tB=1\\t\\n"});
  EXPECT_EQ(65, outcome.status);
  EXPECT_NE(std::string::npos,
            outcome.errors.find(
                "     6  byte 0x02 0x2f 0x09 0x14         cursor 0, stack empty, output 0\n"))
      << outcome.errors;
}

TEST(MacroRun, Trace_EndsAtAnOpCodeThatDoesNotExist) {
  const Folder folder;
  const Outcome outcome = RunTool(
      {KORVO_MACRO, "run", "--trace", MacroIn(folder, "text \"x\"\nbyte 20\n"), "\\tB=1\\t\\n"});
  EXPECT_EQ(65, outcome.status);
  EXPECT_NE(std::string::npos,
            outcome.errors.find("     3  op-code 20 does not exist, and is repeated for ever\n"));
}

TEST(MacroRun, Html_GoesToABrowser) {
  const Folder folder;
  const std::string browser =
      folder.Write("xdg-open", "#!/bin/sh\ncat \"$1\" >\"$0.page\"\nrm \"$1\"\n");
  std::filesystem::permissions(browser, std::filesystem::perms::owner_all);
  const std::string path = folder.Path() + ":" + std::getenv("PATH");
  const std::string macro = MacroIn(folder, kSource);
  Tool shown({KORVO_MACRO, "run", "--html", macro, "\\tTitle=T\\t\\n"},
             [&] { setenv("PATH", path.c_str(), 1), setenv("TMPDIR", folder.Path().c_str(), 1); });
  EXPECT_EQ(0, shown.Status());
  EXPECT_EQ("", shown.Output());
  EXPECT_EQ("* T\n", ReadFile(browser + ".page"));
  EXPECT_EQ(0u, shown.Errors().find("korvo-macro: the page is " + folder.Path() + "/korvo-macro."));
  Tool none({KORVO_MACRO, "run", "--html", macro, "\\tTitle=T\\t\\n"},
            [&] { setenv("PATH", "/none", 1), setenv("TMPDIR", folder.Path().c_str(), 1); });
  EXPECT_EQ(69, none.Status());
  EXPECT_EQ(0u, none.Errors().find("korvo-macro: no browser could be started; the page is " +
                                   folder.Path() + "/korvo-macro."));
}

TEST(MacroRun, Documents_ThatAreNone) {
  const Folder folder;
  const std::string macro = MacroIn(folder, kSource);
  const std::string control = folder.Write("a", "Title: x\nnothing\n");
  ExpectRefused({KORVO_MACRO, "run", macro, control}, 65, control + ":2: expected \"Name: value\"");
  const std::string json = folder.Write("b", "{\"a\":1}\n{\"a\":1,}\n");
  ExpectRefused({KORVO_MACRO, "run", macro, json}, 65,
                json + ":2: expected a JSON object on one line; it is wrong at byte 8");
  for (const char *line :
       {"{\"a=b\":1}", "{\"\":1}", "{\"a\\tb\":1}", "{\"a\":tru}", "{\"a\":\"\\ud800\"}",
        "{\"a\":\"\\ud800\\u0041\"}", "{\"a\":\"\\udc00\"}"}) {
    const Outcome outcome = RunTool({KORVO_MACRO, "run", macro, "-"}, line);
    EXPECT_EQ(65, outcome.status) << line;
    EXPECT_EQ("", outcome.output) << line;
    EXPECT_EQ(
        0U,
        outcome.errors.find(
            "korvo-macro: standard input:1: expected a JSON object on one line; it is wrong at byte "))
        << line;
  }
  for (const char *line : {"Ti=tle: x\n", " Title: x\n", "# Title: x\n", "\x01: x\n"})
    EXPECT_EQ("korvo-macro: standard input:1: expected \"Name: value\"\n",
              RunTool({KORVO_MACRO, "run", macro, "-"}, line).errors);
  EXPECT_EQ("korvo-macro: standard input:2: expected a field in the object\n",
            RunTool({KORVO_MACRO, "run", macro, "-"}, "{\"a\":1}\n{}\n").errors);
  for (const char *text : {"", "\n \n", "\xef\xbb\xbf"})
    EXPECT_EQ("korvo-macro: standard input holds no document\n",
              RunTool({KORVO_MACRO, "run", macro, "-"}, text).errors);
  ExpectRefused({KORVO_MACRO, "run", "--fetch", control, macro, "\\tTitle=x"}, 66,
                "cannot open " + control + ": Not a directory");
  ExpectRefused({KORVO_MACRO, "run", "--fetch", "/none", macro, "\\tTitle=x"}, 66,
                "cannot open /none: No such file or directory");
  ExpectRefused({KORVO_MACRO, "run", macro, "\\tTitle=\\q"}, 65,
                "\\tTitle=\\q is no document: its escapes are \\t \\n \\\\ \\xHH \\{COUNT}");
  ExpectRefused({KORVO_MACRO, "run", macro, "\\tTitle=x\\{41000}"}, 65,
                "a document has 41007 bytes, and the service takes 40960");
}

}  // namespace
