#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>

#include "tests/tools/run.h"

namespace {

using namespace std::string_literals;

constexpr const char *kSource = "text \"Hello\"\nend\n";
const std::string kCode = "\x41\x05Hello\0"s;
constexpr const char *kListing =
    "text \"Hello\"                    ; 0\n"
    "end                             ; 7\n";

std::vector<std::string> Names(const Folder &folder) {
  std::vector<std::string> names;
  for (const auto &entry : std::filesystem::directory_iterator(folder.Path()))
    names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

TEST(MacroTool, Asm_WritesBesideTheSource) {
  const Folder folder;
  const Outcome outcome = RunTool({KORVO_MACRO, "asm", folder.Write("page.ms", kSource)});
  EXPECT_EQ(0, outcome.status);
  EXPECT_EQ("", outcome.output + outcome.errors);
  EXPECT_EQ(kCode, ReadFile(folder.Path() + "/page.mo"));
  EXPECT_EQ((std::vector<std::string>{"page.mo", "page.ms"}), Names(folder));
}

TEST(MacroTool, Asm_NewFileHasTheUsualMode) {
  const Folder folder;
  Tool tool({KORVO_MACRO, "asm", folder.Write("page.ms", kSource)}, [] { umask(027); });
  EXPECT_EQ(0, tool.Status());
  struct stat status = {};
  EXPECT_EQ(0, stat((folder.Path() + "/page.mo").c_str(), &status));
  EXPECT_EQ(0640u, status.st_mode & 07777);
}

TEST(MacroTool, Asm_ReplacesAnOldMacroWhole) {
  const Folder folder;
  const std::string old = folder.Write("page.mo", "old");
  chmod(old.c_str(), 0604);
  const int reader = open(old.c_str(), O_RDONLY | O_CLOEXEC);
  EXPECT_EQ(0, RunTool({KORVO_MACRO, "asm", folder.Write("page.ms", kSource)}).status);
  char text[8] = {};
  EXPECT_EQ(3, read(reader, text, sizeof text));
  EXPECT_STREQ("old", text);  // who has it open keeps it
  close(reader);
  struct stat status = {};
  EXPECT_EQ(0, stat(old.c_str(), &status));
  EXPECT_EQ(0604u, status.st_mode & 07777);
  EXPECT_EQ(kCode, ReadFile(old));
}

TEST(MacroTool, Asm_WritesThroughALink) {
  const Folder folder;
  const std::string target = folder.Write("target", "old");
  ASSERT_EQ(0, symlink(target.c_str(), (folder.Path() + "/page.mo").c_str()));
  EXPECT_EQ(0, RunTool({KORVO_MACRO, "asm", folder.Write("page.ms", kSource)}).status);
  EXPECT_EQ(kCode, ReadFile(target));
  EXPECT_TRUE(std::filesystem::is_symlink(folder.Path() + "/page.mo"));
}

TEST(MacroTool, StandardInputAndOutput) {
  EXPECT_EQ(kCode, RunTool({KORVO_MACRO, "asm", "-"}, kSource).output);
  EXPECT_EQ(kListing, RunTool({KORVO_MACRO, "dis", "-"}, kCode).output);
  const Folder folder;
  EXPECT_EQ(0, RunTool({KORVO_MACRO, "asm", "-", "-o", folder.Path() + "/x"}, kSource).status);
  EXPECT_EQ(kCode, ReadFile(folder.Path() + "/x"));
  EXPECT_EQ(kCode,
            RunTool({KORVO_MACRO, "asm", "-o", "-", folder.Write("page.ms", kSource)}).output);
}

TEST(MacroTool, Dis_Prints) {
  const Folder folder;
  const Outcome outcome = RunTool({KORVO_MACRO, "dis", folder.Write("page.mo", kCode)});
  EXPECT_EQ(0, outcome.status);
  EXPECT_EQ(kListing, outcome.output);
  EXPECT_EQ("", outcome.errors);
}

TEST(MacroTool, Fault_NamesFileAndLineAndWritesNothing) {
  const Folder folder;
  folder.Write("page.mo", "old");
  const std::string path = folder.Write("page.ms", "end\nsave 16 ; no such\n");
  const Outcome outcome = RunTool({KORVO_MACRO, "asm", path});
  EXPECT_EQ(65, outcome.status);
  EXPECT_EQ(path +
                ":2:6: expected a register from 0 to 15, found '16 ; no such'\n"
                "  save 16 ; no such\n"
                "       ^\n",
            outcome.errors);
  EXPECT_EQ("old", ReadFile(folder.Path() + "/page.mo"));
  EXPECT_EQ("standard input:1:1: expected an instruction, found '?[31m'\n  ?[31m\n  ^\n",
            RunTool({KORVO_MACRO, "asm", "-"}, "\x1b[31m\n").errors);
}

TEST(MacroTool, UndefinedOpCode_IsRefusedUnlessAllowed) {
  const Folder folder;
  const std::string path = folder.Write("page.ms", "push\nbyte 20 ; a mistake\nend\n");
  const Outcome refused = RunTool({KORVO_MACRO, "asm", path});
  EXPECT_EQ(65, refused.status);
  EXPECT_EQ(
      path +
          ":2:1: expected an op-code that exists, found '20', which a run repeats for ever; --allow-undefined takes it\n"
          "  byte 20 ; a mistake\n"
          "  ^\n",
      refused.errors);
  EXPECT_EQ((std::vector<std::string>{"page.ms"}), Names(folder));
  const Outcome allowed = RunTool({KORVO_MACRO, "asm", "--allow-undefined", path});
  EXPECT_EQ(0, allowed.status);
  EXPECT_EQ("", allowed.errors);
  EXPECT_EQ("\x08\x14\0"s, ReadFile(folder.Path() + "/page.mo"));
}

TEST(MacroTool, Faults_AreAllNamedUpToTwenty) {
  std::string source = "print\nend\n", errors;
  for (int line = 3; line <= 24; ++line) source += "save 16\n";
  errors = "standard input:1:1: expected an instruction, found 'print'\n  print\n  ^\n";
  for (int line = 3; line <= 21; ++line)
    errors += "standard input:" + std::to_string(line) +
              ":6: expected a register from 0 to 15, found '16'\n  save 16\n       ^\n";
  const Outcome outcome = RunTool({KORVO_MACRO, "asm", "-"}, source);
  EXPECT_EQ(65, outcome.status);
  EXPECT_EQ("", outcome.output);
  EXPECT_EQ(errors + "standard input: 3 more faults\n", outcome.errors);
  EXPECT_EQ(errors + "standard input: 1 more fault\n",
            RunTool({KORVO_MACRO, "asm", "-"}, source.substr(0, source.size() - 16)).errors);
  EXPECT_EQ(errors,
            RunTool({KORVO_MACRO, "asm", "-"}, source.substr(0, source.size() - 24)).errors);
}

TEST(MacroTool, ByteOrderMark_IsNoText) {
  EXPECT_EQ(kCode, RunTool({KORVO_MACRO, "asm", "-"}, "\xef\xbb\xbf"s + kSource).output);
  EXPECT_EQ(
      "standard input:2:1: expected an instruction, found '\xef\xbb\xbf"
      "end'\n  \xef\xbb\xbf"
      "end\n  ^\n",
      RunTool({KORVO_MACRO, "asm", "-"},
              "\n\xef\xbb\xbf"
              "end\n")
          .errors);
}

TEST(MacroTool, WrongUse_IsOneLine) {
  ExpectRefused(
      {KORVO_MACRO}, 64,
      "takes a command and a file: asm FILE.ms, dis FILE.mo, check FILE or run FILE DOCUMENT");
  ExpectRefused({KORVO_MACRO, "asm", "a.ms", "b.ms"}, 64, "asm takes one file");
  ExpectRefused({KORVO_MACRO, "run", "a.ms"}, 64, "run takes a macro and documents");
  ExpectRefused({KORVO_MACRO, "list", "a.mo"}, 64,
                "there is no command list; asm, dis, check and run are all");
  ExpectRefused({KORVO_MACRO, "run", "--at", "100", "a.mo", "x"}, 64,
                "--at takes a number from 101 to 104, not '100'");
  ExpectRefused({KORVO_MACRO, "asm", "a.txt"}, 64,
                "a.txt does not end in .ms; name the output with -o");
  ExpectRefused({KORVO_MACRO, "dis", "-o", "x", "a.mo"}, 64, "dis takes no -o");
  ExpectRefused({KORVO_MACRO, "dis", "--allow-undefined", "a.mo"}, 64,
                "dis takes no --allow-undefined");
  const struct {
    const char *word;
    std::vector<std::string> options;
  } kForeign[] = {
      {"asm", {"--fields=x", "--fetch=x", "--trace", "--at=103", "--html"}},
      {"dis", {"--listing", "--fields=x", "--fetch=x", "--trace", "--at=103", "--html"}},
      {"check",
       {"-ox", "--allow-undefined", "--listing", "--fetch=x", "--trace", "--at=103", "--html"}},
      {"run", {"-ox", "--allow-undefined", "--listing", "--fields=x"}}};
  for (const auto &[word, options] : kForeign)
    for (const std::string &option : options)
      ExpectRefused(
          {KORVO_MACRO, word, option, "a.mo", "b"}, 64,
          word + " takes no "s + (option == "-ox" ? "-o" : option.substr(0, option.find('='))));
  ExpectRefused({KORVO_MACRO, "asm", "--listing", "-o", "x", "a.ms"}, 64,
                "--listing writes no macro; leave -o out");
  ExpectRefused({KORVO_MACRO, "check", "--fields", "", "a.mo"}, 64,
                "--fields takes a name, not an empty text");
  ExpectRefused({KORVO_MACRO, "run", "--fetch", "", "a.mo", "b"}, 64,
                "--fetch takes a name, not an empty text");
  ExpectRefused({KORVO_MACRO, "dis", "-z", "a.mo"}, 64,
                "-z is no option that can stand here; --help lists all");
  ExpectRefused({KORVO_MACRO, "dis", "--zap", "a.mo"}, 64,
                "--zap is no option that can stand here; --help lists all");
  ExpectRefused({KORVO_MACRO, "asm", "a.ms", "-o"}, 64, "-o needs a value; --help shows which");
  ExpectRefused({KORVO_MACRO, "asm", "a.ms", "-o", ""}, 64, "-o takes a name, not an empty text");
}

TEST(MacroTool, Files_ThatCannotBeUsed) {
  const Folder folder;
  const std::string source = folder.Write("page.ms", kSource),
                    lost = folder.Path() + "/lost/page.mo";
  ExpectRefused({KORVO_MACRO, "dis", lost}, 66,
                "cannot open " + lost + ": No such file or directory");
  ExpectRefused({KORVO_MACRO, "dis", folder.Path()}, 66,
                "cannot read " + folder.Path() + ": Is a directory");
  ExpectRefused({KORVO_MACRO, "asm", source, "-o", lost}, 73,
                "cannot write " + lost + ": No such file or directory");
  ExpectRefused({KORVO_MACRO, "asm", source, "-o", "/dev/full"}, 73,
                "cannot write /dev/full: No space left on device");
  ExpectRefused({KORVO_MACRO, "dis", "/dev/zero"}, 65,
                "/dev/zero is larger than 1048576 bytes, the most that is read");
  std::filesystem::create_directory(folder.Path() + "/dir.mo");
  ExpectRefused({KORVO_MACRO, "asm", source, "-o", folder.Path() + "/dir.mo"}, 73,
                "cannot write " + folder.Path() + "/dir.mo: Is a directory");
}

TEST(MacroTool, Help_GoesToStandardOutput) {
  ExpectHelp(
      KORVO_MACRO,
      "usage: korvo-macro asm [OPTION]... FILE.ms  assemble into FILE.mo\n"
      "       korvo-macro dis FILE.mo              disassemble to standard output\n"
      "       korvo-macro check [OPTION]... FILE   say what can go wrong, and with which document\n"
      "       korvo-macro run [OPTION]... FILE DOCUMENT...\n"
      "                                            make the page of these documents\n"
      "\n"
      "  -o, --output OUTPUT  of asm: assemble into OUTPUT\n"
      "  --allow-undefined    of asm: take op-codes that do not exist; a run repeats one for ever\n"
      "  --listing            of asm: show the lines beside their bytes, and write no macro\n"
      "  --fields SCHEMA      of check: the documents have these fields\n"
      "  --fetch DIR          of run: DIR/GROUP/TYPE/NUMBER is what a macro fetches\n"
      "  --trace              of run: each instruction with cursor, stack and output\n"
      "  --at LEVEL           of run: log from 101 on, or 102, 103 (usual) or 104\n"
      "  --html               of run: show the page in a browser\n"
      "  --help               this text\n"
      "  --version            name and version\n"
      "\n"
      "FILE of check and run is FILE.mo or FILE.ms. A DOCUMENT is a file in control format, JSON\n"
      "Lines or lines of \\tNAME=VALUE fields, or such a line. \"-\" stands for standard input or\n"
      "output. Status: 0; of check 1 where a run logs lines; 64 wrong use; 65 the text, the macro\n"
      "or a document has a fault; 66 the input cannot be read; 73 the output, or 74 standard\n"
      "output, cannot be written.\n");
  ExpectVersion(KORVO_MACRO);
}

TEST(MacroTool, FullStandardOutput_IsAnError) {
  Tool tool(
      {KORVO_MACRO, "dis", "-"}, [] { dup2(open("/dev/full", O_WRONLY), 1); }, kCode);
  EXPECT_EQ(74, tool.Status());
  EXPECT_EQ("korvo-macro: cannot write to standard output: No space left on device\n",
            tool.Errors());
}

TEST(MacroTool, ClosedStandardOutput_IsAnErrorAndNoFileTakesItsPlace) {
  const Folder folder;
  const std::string macro = folder.Write("page.mo", kCode);
  Tool tool({KORVO_MACRO, "dis", macro}, [] { close(0), close(1); });
  EXPECT_EQ(74, tool.Status());
  EXPECT_EQ("korvo-macro: cannot write to standard output: Bad file descriptor\n", tool.Errors());
  EXPECT_EQ(kCode, ReadFile(macro));
}

// A pipe that nobody reads becomes standard output.
void BreakOutput() {
  int ends[2];
  if (pipe(ends) != 0) _exit(126);
  dup2(ends[1], 1);
  close(ends[0]);
}

TEST(MacroTool, ReaderThatLeft_EndsIt) {
  Tool quiet(
      {KORVO_MACRO, "dis", "-"}, [] { signal(SIGPIPE, SIG_DFL), BreakOutput(); }, kCode);
  const int status = quiet.Wait();
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGPIPE) << status;
  EXPECT_EQ("", quiet.Errors());
  Tool told(
      {KORVO_MACRO, "dis", "-"}, [] { signal(SIGPIPE, SIG_IGN), BreakOutput(); }, kCode);
  EXPECT_EQ(74, told.Status());
  EXPECT_EQ("korvo-macro: cannot write to standard output: Broken pipe\n", told.Errors());
}

// A slow reader behind a pipe that does not block: writes are partial, and some find no room.
TEST(MacroTool, SlowReader_GetsAll) {
  int ends[2];
  ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
  const std::string code(100000, '\xff');
  Tool tool(
      {KORVO_MACRO, "dis", "-"},
      [&] {
        fcntl(ends[1], F_SETFL, O_NONBLOCK);
        dup2(ends[1], 1);
      },
      code);
  close(ends[1]);
  std::string listing;
  char buffer[4000];
  for (ssize_t got; (got = read(ends[0], buffer, sizeof buffer)) > 0;)
    listing.append(buffer, static_cast<std::size_t>(got));
  close(ends[0]);
  EXPECT_EQ(0, tool.Status());
  EXPECT_EQ(code, RunTool({KORVO_MACRO, "asm", "--allow-undefined", "-"}, listing).output);
}

}  // namespace
