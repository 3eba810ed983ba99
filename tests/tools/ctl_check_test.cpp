#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>

#include "tests/tools/ctl.h"

namespace {

constexpr const char *kGlass = "\x0f\x0dXapian Glass and more";  // how a database begins
constexpr const char *kWeb = "web1 C 127.0.0.1 8001 8002 -\n";
constexpr const char *kSearch = "notes S 127.0.0.1 8011 8012 web1\n";
constexpr const char *kDocuments = "notes D 127.0.0.1 8021 8022 web1\n";
constexpr const char *kEngine = "half E 127.0.0.1 8031 8032 notes\n";

// Fails the test unless the check finds exactly that; FILE:LINE is without the folder.
void ExpectFound(const std::string &conf, const std::string &db, const std::string &found,
                 int status, const Arguments &words = {}) {
  const Folder folder;
  folder.Write("korvo.conf", conf);
  folder.Write("korvo.db", db);
  Arguments argv = {KORVOCTL, "check", "--dir", folder.Path()};
  argv.insert(argv.end(), words.begin(), words.end());
  const Outcome outcome = RunTool(argv);
  std::string output = outcome.output;
  for (std::size_t at; (at = output.find(folder.Path() + "/")) != std::string::npos;)
    output.erase(at, folder.Path().size() + 1);
  EXPECT_EQ(found, output);
  EXPECT_EQ("", outcome.errors);
  EXPECT_EQ(status, outcome.status) << output;
}

constexpr const char *kHere = "here C 127.0.0.1 20001 20002 -\n";

// The same where only the lines of korvo.conf are wrong, most of them of another machine.
void ExpectConf(const std::string &conf, const std::string &found, int status) {
  ExpectFound(conf + kHere, "", found, status);
}

std::string Away(std::string lines) {
  for (std::size_t at; (at = lines.find("127.0.0.1")) != std::string::npos;)
    lines.replace(at, 9, "192.0.2.77");
  return lines;
}

TEST(CtlCheck, GoodFiles_SayNothing) {
  const Folder data;
  data.Write("iamglass", kGlass);
  const std::string db = data.Path();
  ExpectFound(std::string("# all\n\n") + kWeb + kSearch + kDocuments + kEngine,
              "notes notes - -\nhalf notes " + db + " " + db + "\n", "", 0);
  ExpectFound(std::string(kWeb) + kSearch + kDocuments, "notes notes " + db + " " + db + "\n", "",
              0);
  ExpectConf(Away(std::string(kWeb) + kSearch + kEngine + kDocuments),
             "korvo.conf:3: stands before its parent notes:D in line 4, and has to start behind "
             "it; move it there\n",
             1);
}

TEST(CtlCheck, Json_SaysWhichFindingsKeepAProgramFromStarting) {
  ExpectFound(
      Away(kWeb) + Away(kSearch) + "web1 C 192.0.2.77 99999 8032 web2\n" + kHere, "",
      R"([{"file": "korvo.conf", "line": 3, "fatal": false, "text": "line 1 has this id and type, and only korvoctl announce takes a second one, as a standby; delete it unless it is one"},
 {"file": "korvo.conf", "line": 3, "fatal": true, "text": "CLIENTPORT 99999 cannot be used; take a number from 1 to 32767"},
 {"file": "korvo.conf", "line": 3, "fatal": false, "text": "a Communications Manager has no parent; put - for web2"}]
)",
      78, {"--json"});
  ExpectFound(kWeb, "", "[]\n", 0, {"--json"});
}

TEST(CtlCheck, Words_AreSixAndTheirTypeIsKnown) {
  ExpectConf("web1 C 127.0.0.1 8001\nweb2\nweb3 c 127.0.0.1 8001 8002 -\nweb4 CC 1 2 3 4\n",
             "korvo.conf:1: has 4 of the 6 words ID TYPE IP CLIENTPORT ADMINPORT PARENTID; add the "
             "rest\n"
             "korvo.conf:2: has 1 of the 6 words ID TYPE IP CLIENTPORT ADMINPORT PARENTID; add the "
             "rest\n"
             "korvo.conf:3: TYPE c is none of C, S, D and E; take one of them\n"
             "korvo.conf:4: TYPE CC is none of C, S, D and E; take one of them\n",
             78);
  ExpectConf(std::string(64, 'w') + " C 192.0.2.77 8001 8002 -\n",
             "korvo.conf:1: ID is longer than 63 characters and is cut; shorten it\n", 1);
}

TEST(CtlCheck, Lines_AreReadAsTheProgramsReadThem) {
  ExpectFound(std::string(kHere) + "web1 C 192.0.2.77 8001 8002 -", "",
              "korvo.conf:2: does not end in a newline, and the programs do not see it; end the "
              "file with one\n",
              78);
  ExpectFound(std::string(kHere) + "# a last comment", "", "", 0);
  ExpectConf("web1 C 192.0.2.77 8001 8002 -\r\n",
             "korvo.conf:1: ends in a carriage return, which belongs to its last word; end lines "
             "in a newline alone\n",
             1);
  ExpectConf("#" + std::string(1060, 'x') + "\n",
             "korvo.conf:1: is longer than 1023 characters, and the rest is read as another line; "
             "shorten it\n"
             "korvo.conf:1: has 1 of the 6 words ID TYPE IP CLIENTPORT ADMINPORT PARENTID; add "
             "the rest\n",
             78);
}

// A program takes the text up to a NUL for the line.
TEST(CtlCheck, NulCharacters_HideWhatIsBehindThem) {
  const std::string nul(1, '\0');
  ExpectConf("web1 C 192.0.2.77 8001 8002 -" + nul + "x\n#" + nul + "\n",
             "korvo.conf:1: holds a NUL character, and the programs do not see what is behind it; "
             "delete it\n"
             "korvo.conf:2: holds a NUL character, and the programs do not see what is behind it; "
             "delete it\n",
             1);
  ExpectConf("web1 C 192.0.2.77" + nul + " 1 2 -\n",
             "korvo.conf:1: holds a NUL character, and the programs do not see what is behind it; "
             "delete it\n"
             "korvo.conf:1: has 3 of the 6 words ID TYPE IP CLIENTPORT ADMINPORT PARENTID; add the "
             "rest\n",
             78);
  ExpectConf("#" + std::string(3000, '\0') + "\nweb1 X 192.0.2.77 8001 8002 -\n",
             "korvo.conf:1: is longer than 1023 characters, and the rest is read as another line; "
             "shorten it\n"
             "korvo.conf:1: holds a NUL character, and the programs do not see what is behind it; "
             "delete it\n"
             "korvo.conf:2: TYPE X is none of C, S, D and E; take one of them\n",
             78);
}

TEST(CtlCheck, LongLine_IsNamedOnceForEachFault) {
  ExpectConf(std::string(1000000, 'x') + "\n",
             "korvo.conf:1: is longer than 1023 characters, and the rest is read as another line; "
             "shorten it\n"
             "korvo.conf:1: ID is longer than 63 characters and is cut; shorten it\n"
             "korvo.conf:1: has 1 of the 6 words ID TYPE IP CLIENTPORT ADMINPORT PARENTID; add "
             "the rest\n",
             78);
}

TEST(CtlCheck, Ids_AreThoseOfUnits) {
  for (const std::string id : {"a/b", "%i", "caf\xc3\xa9", "a\\b"})
    ExpectConf(id + " C 192.0.2.77 8001 8002 -\n",
               "korvo.conf:1: ID " + id +
                   " can be in no name of a unit, and korvo.target does not start it; make it of "
                   "letters, digits and : _ . - alone\n",
               1);
  ExpectConf("Aa0:_.-b C 192.0.2.77 8001 8002 -\n", "", 0);
}

// Where the address of a machine has changed nothing starts, and no line is wrong.
TEST(CtlCheck, Machine_HasAProgram) {
  const std::string nothing_here =
      "korvo.conf:1: has no program with an address of this machine, and nothing starts here; "
      "write its address in the lines of those that shall\n";
  const std::string nothing =
      "korvo.conf:1: has no program, and nothing starts; add a line for each\n";
  ExpectFound(Away(std::string(kWeb) + kSearch + kDocuments), "", nothing_here, 1);
  ExpectFound("# web1 C 127.0.0.1 8001 8002 -\n", "", nothing, 1);
  ExpectFound("", "", nothing, 1);
  ExpectFound("web1 C 0.0.0.0 8001 8002 -\n", "",
              nothing_here +
                  "korvo.conf:1: IP 0.0.0.0 is no address to listen on; take an IPv4 "
                  "address of the machine\n",
              78);
}

// A name that is empty is none.
TEST(CtlCheck, EmptyId_IsRefused) {
  const Folder folder;
  const std::string conf = folder.Write("korvo.conf", kWeb);
  ExpectRefused({KORVOCTL, "check", "", "--dir", folder.Path()}, 78,
                conf + " has no program ; korvoctl list shows all");
}

TEST(CtlCheck, Addresses_AreOfOneMachine) {
  for (const std::string ip : {"224.0.0.1", "239.1.2.3", "127.255.255.255", "255.255.255.255"})
    ExpectConf("a C " + ip + " 8001 8002 -\n",
               "korvo.conf:1: IP " + ip +
                   " is no address to listen on; take an IPv4 address of the machine\n",
               78);
}

TEST(CtlCheck, Addresses_AreSomebodys) {
  ExpectConf("a C here 8001 8002 -\nb C 0.0.0.0 8001 8002 -\nc C 192.77 8001 8002 -\n",
             "korvo.conf:1: IP here is no address to listen on; take an IPv4 address of the "
             "machine\n"
             "korvo.conf:2: IP 0.0.0.0 is no address to listen on; take an IPv4 address of the "
             "machine\n"
             "korvo.conf:3: IP 192.77 is read as 192.0.0.77; write it so\n",
             78);
  ExpectFound(Away(kWeb), "",
              "korvo.conf:1: IP 192.0.2.77 is no address of this machine; start the program where "
              "it is, or change it\n",
              78, {"web1"});
  ExpectFound(kWeb, "", "", 0, {"web1"});
}

TEST(CtlCheck, Ports_AreFreeAndInRange) {
  ExpectConf("a C 192.0.2.77 0 40000 -\nb C 192.0.2.77 8000x 08001 -\n",
             "korvo.conf:1: CLIENTPORT 0 cannot be used; take a number from 1 to 32767\n"
             "korvo.conf:1: ADMINPORT 40000 cannot be used; take a number from 1 to 32767\n"
             "korvo.conf:2: CLIENTPORT 8000x is read as 8000; write it so\n"
             "korvo.conf:2: ADMINPORT 08001 is read as 8001; write it so\n",
             78);
  ExpectConf("a C 192.0.2.77 8001 8002 -\nb C 192.0.2.77 8002 8001 -\nc C 192.0.2.78 8001 8002 -\n",
             "", 0);
  ExpectConf(
      "a C 192.0.2.77 8001 8002 -\nb C 192.0.2.77 8001 8002 -\n",
      "korvo.conf:2: CLIENTPORT 8001 of 192.0.2.77 is that of a:C in line 1, too; take "
      "another\n"
      "korvo.conf:2: ADMINPORT 8002 of 192.0.2.77 is that of a:C in line 1, too; take another\n",
      78);
}

// However the address is written.
TEST(CtlCheck, Ports_AreThoseOfAnAddress) {
  ExpectConf("a C 192.0.2.77 8001 8002 -\nb C 192.0.589 8001 8003 -\n",
             "korvo.conf:2: IP 192.0.589 is read as 192.0.2.77; write it so\n"
             "korvo.conf:2: CLIENTPORT 8001 of 192.0.589 is that of a:C in line 1, too; take "
             "another\n",
             78);
  // Texts that are no address have nothing in common.
  ExpectConf(
      "a C one 8001 8002 -\nb C two 8001 8002 -\n",
      "korvo.conf:1: IP one is no address to listen on; take an IPv4 address of the machine\n"
      "korvo.conf:2: IP two is no address to listen on; take an IPv4 address of the "
      "machine\n",
      78);
}

TEST(CtlCheck, Ports_AreNotThoseOfRoot) {
  ExpectConf("a C 192.0.2.77 80 1023 -\nb C 192.0.2.78 1024 1025 -\n",
             "korvo.conf:1: CLIENTPORT 80 is root's, and the user of the units may not have it; "
             "take one from 1024 on\n"
             "korvo.conf:1: ADMINPORT 1023 is root's, and the user of the units may not have it; "
             "take one from 1024 on\n",
             1);
}

TEST(CtlCheck, Parents_AreThereAndOfTheirType) {
  ExpectConf(
      "a C 192.0.2.77 8001 8002 b\nb S 192.0.2.77 8003 8004 -\nc D 192.0.2.77 8005 8006 b\n"
      "d E 192.0.2.77 8007 8008 a\ne E 192.0.2.77 8009 8010 f\nf S 192.0.2.77 8011 8012 a\n",
      "korvo.conf:1: a Communications Manager has no parent; put - for b\n"
      "korvo.conf:2: there is no Communications Manager - (type C) for PARENTID; add its "
      "line, or name another\n"
      "korvo.conf:3: there is no Communications Manager b (type C) for PARENTID; add its "
      "line, or name another\n"
      "korvo.conf:4: there is no Search Manager a (type S) for PARENTID; add its line, or "
      "name another\n"
      "korvo.conf:5: there is no Document Manager f (type D) for PARENTID, and its "
      "documents cannot be fetched; add its line\n"
      "korvo.conf:5: stands before its parent f:S in line 6, and has to start behind it; "
      "move it there\n",
      78);
}

TEST(CtlCheck, DoubledLines_AreStandbys) {
  ExpectConf("a C 192.0.2.77 8001 8002 -\na S 192.0.2.77 8003 8004 a\na C 192.0.2.77 8005 8006 -\n",
             "korvo.conf:3: line 1 has this id and type, and only korvoctl announce takes a second "
             "one, as a standby; delete it unless it is one\n",
             1);
}

TEST(CtlCheck, Databases_AreThereAndCanBeRead) {
  const Folder data;  // of something else
  data.Write("korvo.txt", "x");
  const std::string tree = std::string(kWeb) + kSearch + kDocuments;
  ExpectFound(
      tree, "",
      "korvo.db:1: no line has the id of notes:S, which has no database then; add ID DBNAME "
      "SEARCHLOC DOCLOC\n"
      "korvo.db:1: no line has the id of notes:D, which has no database then; add ID DBNAME "
      "SEARCHLOC DOCLOC\n",
      1);
  ExpectFound(tree, "notes n -\n",
              "korvo.db:1: has 3 of the 4 words ID DBNAME SEARCHLOC DOCLOC; add the rest\n", 1);
  ExpectFound(tree, "notes n - -\n",
              "korvo.db:1: notes:S has neither a database nor an engine, and finds nothing; name a "
              "database, or add an engine\n"
              "korvo.db:1: notes:D has neither a database nor an engine, and finds nothing; name a "
              "database, or add an engine\n",
              1);
  ExpectFound(tree, "notes n /none/at/all here\n",
              "korvo.db:1: SEARCHLOC /none/at/all cannot be read: No such file or directory; make "
              "it, or let this user read it\n"
              "korvo.db:1: DOCLOC here is looked for from where its program is started; write the "
              "whole path\n",
              1);
  const std::string far = "/" + std::string(127, 'f');
  ExpectFound(tree, "notes n " + data.Path() + " " + far + "\n",
              "korvo.db:1: SEARCHLOC " + data.Path() +
                  " holds no database; make one with korvo-index\n"
                  "korvo.db:1: DOCLOC " +
                  far + " is longer than 127 characters and is cut; shorten it\n",
              1);
}

// Of a kind that the programs open.
TEST(CtlCheck, Databases_AreOfAKnownKind) {
  const Folder data;
  const std::string tree = std::string(kWeb) + kSearch + kDocuments;
  const auto expect = [&](const std::string &path, const std::string &fault) {
    ExpectFound(tree, "notes n " + path + " " + path + "\n",
                fault.empty() ? ""
                              : "korvo.db:1: SEARCHLOC " + path + " " + fault +
                                    "\nkorvo.db:1: DOCLOC " + path + " " + fault + "\n",
                fault.empty() ? 0 : 1);
  };
  for (const std::string stub :
       {"auto /a\n", "# all\n\n  remote 127.0.0.1:8031\n", "glass a", "inmemory\n", kGlass})
    expect(data.Write("stub", stub), "");
  const std::string no_stub =
      "is a file, but no stub: none of auto, glass, honey, chert, remote and inmemory is its first "
      "word; name a folder that korvo-index has filled";
  for (const std::string other : {"", "text of some kind\n", "# auto /a\n", "autos /a\n"})
    expect(data.Write("file", other), no_stub);
  std::filesystem::create_directory(data.Path() + "/db");
  const std::string foreign = "holds no database, whose iamglass begins otherwise; restore it";
  for (const std::string &begin :
       {std::string(), std::string("x"), std::string(kGlass).substr(0, 13)}) {
    data.Write("db/iamglass", begin);
    expect(data.Path() + "/db", foreign);
  }
  data.Write("db/iamglass", kGlass);
  expect(data.Path() + "/db", "");
  expect(data.Write("stub", std::string(65000, '#') + "\nauto /a\n"), "");
}

TEST(CtlCheck, DatabaseThatIsOneLongLine_CostsNoMemory) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer takes memory of its own";
#endif
  const Folder data;
  const std::string path = data.Write("zeros", "");
  ASSERT_EQ(0, truncate(path.c_str(), 256 << 20));
  ExpectFound(std::string(kWeb) + kSearch, "notes n " + path + " -\n",
              "korvo.db:1: SEARCHLOC " + path +
                  " is a file, but no stub: none of auto, glass, honey, chert, remote and inmemory "
                  "is its first word; name a folder that korvo-index has filled\n",
              1);
  rusage used = {};
  getrusage(RUSAGE_CHILDREN, &used);
  EXPECT_LT(used.ru_maxrss, 100 << 10);  // kilobytes, of the largest child
}

TEST(CtlCheck, Engines_DoNotStartWithoutADatabase) {
  const std::string tree = std::string(kWeb) + kSearch + kDocuments + kEngine;
  ExpectFound(tree, "",
              "korvo.db:1: no line has the id of half:E, which has no database then; add ID DBNAME "
              "SEARCHLOC DOCLOC\n",
              78);
  ExpectFound(tree, "half " + std::string(64, 'n') + " - -\n",
              "korvo.db:1: DBNAME is longer than 63 characters and is cut; shorten it\n"
              "korvo.db:1: SEARCHLOC is missing for half:E; a Search Engine serves a database\n",
              1);
  ExpectFound(tree, "half n /x\n",
              "korvo.db:1: has 3 of the 4 words ID DBNAME SEARCHLOC DOCLOC; add the rest\n", 78);
}

TEST(CtlCheck, DatabaseLines_HaveAProgram) {
  ExpectFound(Away(std::string(kWeb) + kSearch + kDocuments) + kHere,
              "notes n - -\nnotes n - -\nx y - -\n",
              "korvo.db:2: line 1 has this id, and no program reads a second one; delete it\n"
              "korvo.db:3: korvo.conf has no program x; delete the line, or add one there\n",
              1);
}

TEST(CtlCheck, Id_AsksForThatProgramAlone) {
  const std::string conf =
      std::string(kWeb) + kSearch + "notes D 127.0.0.1 0 8022 web1\nother S x 8001 8002 -\n";
  const Folder data;
  data.Write("iamglass", kGlass);
  const std::string db = "notes n " + data.Path() + " " + data.Path() + "\nother\n";
  ExpectFound(conf, db, "", 0, {"notes:S"});
  ExpectFound(conf, db,
              "korvo.conf:3: CLIENTPORT 0 cannot be used; take a number from 1 to 32767\n", 78,
              {"notes"});
  ExpectFound(conf, db, "korvo.conf:1: has no program half; add its line, or name another\n", 78,
              {"half"});
  // What keeps a parent's address from being read keeps the child from starting.
  ExpectFound(
      "web1 C x 8001 8002 -\n" + std::string(kSearch), db,
      "korvo.conf:1: IP x is no address to listen on; take an IPv4 address of the machine\n", 78,
      {"notes:S"});
}

TEST(CtlCheck, Frames_AreNotCut) {
  const Folder macros;
  macros.Write("good.hdr", std::string(10238, 'x'));
  macros.Write("other.txt", std::string(20000, 'x'));
  std::filesystem::create_directory(macros.Path() + "/below");
  const std::string tail = macros.Write("below/long.tail", std::string(10239, 'x'));
  ExpectFound(kWeb, "",
              tail + ":1: has 10239 characters, of which the first 10238 are sent; shorten it\n", 1,
              {"--macros", macros.Path()});
  std::filesystem::remove(tail);
  ExpectFound(kWeb, "", "", 0, {"--macros", macros.Path()});
  const Folder empty;
  empty.Write("korvo.conf", "");
  ExpectRefused({KORVOCTL, "check", "--dir", empty.Path(), "--macros", "/none"}, 66,
                "cannot read /none: No such file or directory");
}

// As README.Debian has them.
TEST(CtlCheck, MacrosBesideTheConfiguration_AreLookedAt) {
  const Folder folder;
  folder.Write("korvo.conf", kWeb);
  folder.Write("korvo.db", "");
  std::filesystem::create_directory(folder.Path() + "/macros");
  const std::string tail = folder.Write("macros/long.tail", std::string(10239, 'x'));
  const std::string found =
      tail + ":1: has 10239 characters, of which the first 10238 are sent; shorten it\n";
  const Outcome all = RunTool({KORVOCTL, "check", "--dir", folder.Path()});
  EXPECT_EQ(found, all.output);
  EXPECT_EQ(1, all.status);
  // Not at a start.
  EXPECT_EQ(std::string::npos,
            RunTool({KORVOCTL, "check", "web1", "--dir", folder.Path()}).output.find("10239"));
  const Folder other;
  EXPECT_EQ("",
            RunTool({KORVOCTL, "check", "--dir", folder.Path(), "--macros", other.Path()}).output);
}

TEST(CtlCheck, Macros_HaveNoFault) {
  const Folder macros;
  macros.Write("good.mo", std::string("\x41\x01x\x42\x01"
                                      "A\0",
                                      8));
  ExpectFound(kWeb, "", "", 0, {"--macros", macros.Path()});
  const std::string bad = macros.Write("bad.mo", "\x41\x01x\x14");
  ExpectFound(
      kWeb, "",
      bad +
          ":1: offset 3: there is no op-code 20, and a run repeats it for ever; see korvo-macro check\n",
      1, {"--macros", macros.Path()});
}

// What root can read the programs may not: they have a user of their own.
TEST(CtlCheck, Root_ReadsAsTheUserOfThePrograms) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, to be another user";
  const Folder files;
  const std::string passwd =
      files.Write("passwd", "root:x:0:0::/:/bin/sh\nkorvo:x:65501:65502::/:/bin/sh\n");
  const std::string conf = files.Write("korvo.conf", std::string(kWeb) + kSearch + kDocuments);
  const std::string db = files.Write("korvo.db", "notes n /usr/local/data /usr/local/data\n");
  files.Write("iamglass", kGlass);
  // The folders of the installed programs, in a view of its own: nothing of the machine changes.
  const std::string view =
      "mount -t tmpfs none /usr/local && mkdir -p /usr/local/korvo/etc /usr/local/data && "
      "chmod 755 /usr/local && cp " +
      conf + " " + db + " /usr/local/korvo/etc && cp " + files.Path() +
      "/iamglass /usr/local/data && chmod 644 /usr/local/korvo/etc/* "
      "/usr/local/data/* && mount --bind " +
      passwd + " /etc/passwd || exit 99; ";
  const std::string check = std::string(KORVOCTL) + " check --dir ";
  const auto run = [&](const std::string &script) {
    return RunTool({"/usr/bin/unshare", "-m", "/bin/sh", "-c", view + script});
  };
  const std::string etc = "/usr/local/korvo/etc";
  const Outcome all = run(check + etc);
  if (all.status == 99 || all.errors.find("unshare") != std::string::npos)
    GTEST_SKIP() << "needs a mount namespace: " << all.errors;
  EXPECT_EQ("", all.output);
  EXPECT_EQ(0, all.status) << all.errors;
  const Outcome database = run("chmod 700 /usr/local/data; " + check + etc + "/../etc");
  const std::string place = etc + "/../etc/korvo.db:1: ";
  const std::string fault =
      " /usr/local/data cannot be read: Permission denied; make it, or let user korvo read it\n";
  EXPECT_EQ(place + "SEARCHLOC" + fault + place + "DOCLOC" + fault, database.output);
  EXPECT_EQ(1, database.status) << database.errors;
  const Outcome file = run("chmod 600 " + etc + "/korvo.conf; " + check + etc);
  EXPECT_EQ(etc + "/korvo.conf:1: cannot be read: Permission denied; let user korvo read it\n",
            file.output);
  EXPECT_EQ(78, file.status) << file.errors;
  // A folder elsewhere is this user's own.
  EXPECT_EQ(0, run("cp -r " + etc + " /usr/local/other; chmod 600 /usr/local/other/*; " + check +
                   "/usr/local/other")
                   .status);
  // Behind it root is root again, and sees the log of another process.
  Site site;
  const int web = site.Line("web1", 'C', "-");
  site.Start(web);
  site.Program(web).Signal(SIGSTOP);
  const std::string messages =
      files.Write("messages", "Init: DisplayCfg\t104\tConfiguration Info\tc\te\tDo it.\n");
  const Outcome status =
      run("cp " + site.Path() + "/korvo.conf " + etc + "; chmod 600 " + etc + "/korvo.conf; " +
          KORVOCTL + " status web1 --timeout 1 --messages " + messages + " --dir " + etc);
  EXPECT_NE(std::string::npos, status.output.find("let user korvo read it")) << status.output;
  EXPECT_NE(std::string::npos, status.output.find("    remedy: Do it.\n")) << status.output;
  site.Program(web).Signal(SIGCONT);
}

TEST(CtlCheck, FilesThatCannotBeRead_AreFound) {
  const Folder folder;
  const Outcome none = RunTool({KORVOCTL, "check", "--dir", folder.Path()});
  EXPECT_EQ(
      folder.Path() +
          "/korvo.conf:1: cannot be read: No such file or directory; --dir names its folder\n",
      none.output);
  EXPECT_EQ(78, none.status);
  folder.Write("korvo.conf", "");
  std::filesystem::create_directory(folder.Path() + "/korvo.db");
  const Outcome database = RunTool({KORVOCTL, "check", "--dir", folder.Path()});
  EXPECT_EQ(folder.Path() + "/korvo.db:1: cannot be read: Is a directory; let this user read it\n",
            database.output);
  EXPECT_EQ(78, database.status);
}

}  // namespace
