#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "tests/tools/ctl.h"

namespace {

// Times are of no interest.
std::string WithoutTimes(std::string text) {
  for (const std::string before : {"PONG in ", "\"ms\": "})
    for (std::size_t at = 0; (at = text.find(before, at)) != std::string::npos;) {
      at += before.size();
      const std::size_t end = text.find_first_not_of("0123456789.", at);
      if (end > at) text.replace(at, end - at, "<ms>");
    }
  return text;
}

std::string Ports(const Site &site, int line) {
  return "127.0.0.1 " + std::to_string(site.ClientPort(line)) + " " +
         std::to_string(site.AdminPort(line));
}

TEST(CtlTree, List_ShowsWhoAnswers) {
  Site site;
  const int web = site.Line("web1", 'C', "-");
  const int documents = site.Line("notes", 'D', "web1");
  const int search = site.Line("notes", 'S', "web1");
  const int half = site.Line("half", 'E', "notes");
  const int orphan = site.Line("lost", 'S', "gone");
  site.Start(web);
  site.Start(half);
  const Outcome plain = site.Run({"list"});
  EXPECT_EQ(0, plain.status) << plain.errors;
  EXPECT_EQ("web1 C " + Ports(site, web) + ": PONG in <ms> ms\n" + "  notes D " +
                Ports(site, documents) + ": Connection refused\n" + "  notes S " +
                Ports(site, search) + ": Connection refused\n" + "    half E " + Ports(site, half) +
                ": PONG in <ms> ms\n" + "lost S " + Ports(site, orphan) +
                ": Connection refused (its parent gone is missing)\n",
            WithoutTimes(plain.output));
}

// Both of its parents or one: somebody is above it.
TEST(CtlTree, List_ShowsAnEngineBelowADocumentManagerAlone) {
  Site site;
  const int web = site.Line("web1", 'C', "-");
  const int documents = site.Line("notes", 'D', "web1");
  const int half = site.Line("half", 'E', "notes");
  EXPECT_EQ("web1 C " + Ports(site, web) + ": Connection refused\n" + "  notes D " +
                Ports(site, documents) + ": Connection refused\n" + "    half E " +
                Ports(site, half) + ": Connection refused\n",
            site.Run({"list"}).output);
}

// Nothing is sent to the port that 99999 would be in 16 bits.
TEST(CtlTree, List_ShowsWhatCannotBeAskedAsItStands) {
  Site site;
  site.Text("web1 C 127.0.0.1 8001 99999 -");
  site.Text("web2 C here 8001x 8002 -");
  const Outcome list = site.Run({"list"});
  EXPECT_EQ(
      "web1 C 127.0.0.1 8001 99999: nobody can be there\n"
      "web2 C here 8001x 8002: nobody can be there\n",
      list.output);
  EXPECT_EQ(
      "[{\"id\": \"web1\", \"type\": \"C\", \"ip\": \"127.0.0.1\", \"clientport\": 8001, "
      "\"adminport\": -31073, \"parent\": \"\", \"line\": 1, \"answer\": \"nobody can be "
      "there\", \"ms\": null},\n"
      " {\"id\": \"web2\", \"type\": \"C\", \"ip\": \"here\", \"clientport\": 8001, "
      "\"adminport\": 8002, \"parent\": \"\", \"line\": 2, \"answer\": \"nobody can be "
      "there\", \"ms\": null}]\n",
      site.Run({"list", "--json"}).output);
  for (const std::string command : {"ping", "shutdown"})
    ExpectRefused(site.Ctl({command, "web1"}), 69,
                  "cannot reach web1:C at 127.0.0.1/99999: nobody can be there");
}

// More than a socket holds answers of.
TEST(CtlTree, List_HearsAllOfAThousand) {
  Site site;
  std::string all, refused;
  for (int i = 0; i < 1000; ++i) {
    const std::string line = "p" + std::to_string(i) + " C 127.0.0.1 1 " + std::to_string(1 + i);
    all += line + " -\n";
    refused += line + ": Connection refused\n";
  }
  site.Files().Write("korvo.conf", all);
  EXPECT_EQ(refused, site.Run({"list", "--timeout", "60"}).output);
}

std::string Json(const Site &site, int line, const std::string &id, const std::string &type,
                 const std::string &parent, const std::string &answer, const std::string &ms) {
  return "{\"id\": \"" + id + "\", \"type\": \"" + type +
         "\", \"ip\": \"127.0.0.1\", \"clientport\": " + std::to_string(site.ClientPort(line)) +
         ", \"adminport\": " + std::to_string(site.AdminPort(line)) + ", \"parent\": \"" + parent +
         "\", \"line\": " + std::to_string(line) + ", \"answer\": " + answer + ", \"ms\": " + ms +
         "}";
}

TEST(CtlTree, List_IsJson) {
  Site site;
  const int web = site.Line("web1", 'C', "-");
  const int search = site.Line("\"a\\\x01", 'S', "web1");
  site.Start(web);
  const Outcome json = site.Run({"list", "--json"});
  EXPECT_EQ(0, json.status);
  EXPECT_EQ(
      "[" + Json(site, web, "web1", "C", "", "\"PONG\"", "<ms>") + ",\n " +
          Json(site, search, "\\\"a\\\\\\u0001", "S", "web1", "\"Connection refused\"", "null") +
          "]\n",
      WithoutTimes(json.output));
  // What is no UTF-8 would be no JSON.
  Site odd;
  odd.Text("a\xff\xc3\xa9\xe2\x82z\xf4\x90\x80\x80\xc0\xaf\xed\xa0\x80 C here 1 2 -");
  const std::string unknown = "\xef\xbf\xbd";
  const std::string shown = odd.Run({"list", "--json"}).output;
  EXPECT_TRUE(shown.starts_with("[{\"id\": \"a" + unknown + "\xc3\xa9" + unknown + unknown + "z" +
                                unknown + unknown + unknown + unknown + unknown + unknown +
                                unknown + unknown + unknown + "\", "))
      << shown;
  const Folder empty;
  empty.Write("korvo.conf", "");
  EXPECT_EQ("[]\n", RunTool({KORVOCTL, "list", "--json", "--dir", empty.Path()}).output);
}

TEST(CtlTree, List_NamesTheSilent) {
  const Admin silent;
  Site site;
  site.Text("web1 C 127.0.0.1 1 " + std::to_string(silent.Port()) + " -");
  EXPECT_EQ("web1 C 127.0.0.1 1 " + std::to_string(silent.Port()) + ": no answer\n",
            site.Run({"list", "--timeout", "1"}).output);
}

TEST(CtlTree, Units_AreThoseOfThisMachineParentsFirst) {
  Site site;
  site.Text("half E 127.0.0.1 8031 8032 notes");
  site.Text("notes S 127.0.0.1 8011 8012 web1");
  site.Text("far S 192.0.2.77 8011 8012 web1");
  site.Text("notes D 127.0.0.2 8021 8022 web1");
  site.Text("web1 C 127.0.0.1 8001 8002 -");
  site.Text("web1 C 127.0.0.1 8101 8102 -");
  site.Text("odd X 127.0.0.1 8101 8102 -");
  const Outcome units = site.Run({"units"});
  EXPECT_EQ(
      "korvo-commmgr@web1.service\nkorvo-searchmgr@notes.service\n"
      "korvo-docmgr@notes.service\nkorvo-engine@half.service\n",
      units.output);
  EXPECT_EQ(0, units.status);
  EXPECT_EQ("", units.errors);
  Site far;
  far.Text("web1 C 192.0.2.77 8001 8002 -");
  const Outcome none = far.Run({"units"});
  EXPECT_EQ("", none.output);
  EXPECT_EQ(
      "korvoctl: " + far.Path() + "/korvo.conf has no program with an address of this machine\n",
      none.errors);
  EXPECT_EQ(0, none.status);
}

// Announcing.

std::string Announced(const Site &site, int child, int parent) {
  return "announced " + site.Place(child) + " to " + site.Place(parent) + "\n";
}

// Whether the daemon in the parent's place hands a query to that group; it needs no page for that.
bool IsListed(const Site &site, int parent, const std::string &group) {
  const Socket client = ConnectTo(site.ClientPort(parent));
  client.Send("\t@COMMAND=QUERY\t@SEARCHGROUP=" + group + "\t@MACROFILE=" + site.Path() +
              "/page\t@MAXHITS=1\tx\n");
  return client.ReadAll() != "\t@COMMAND=ERROR\tUnable to locate SearchMgr\n";
}

void WritePage(const Site &site) {
  for (const std::string name : {"page.mo", "page.hdr", "page.tail"}) site.Files().Write(name, "");
}

TEST(CtlTree, Announce_SpeaksForEachThatAnswers) {
  Admin web, search;
  Site site;
  site.Text("web1 C 127.0.0.1 1 " + std::to_string(web.Port()) + " -");
  const int one = site.Line("one", 'S', "web1");
  const int documents = site.Line("one", 'D', "web1");
  site.Line("two", 'S', "web1");
  site.Start(one);
  site.Start(documents);
  Tool tool(site.Ctl({"announce", "web1"}));
  EXPECT_EQ("\t@COMMAND=STARTUPANNOUNCEMENT\tID=one\tTYPE=D\tIP=127.0.0.1\tCLIENTPORT=" +
                std::to_string(site.ClientPort(documents)) +
                "\tADMINPORT=" + std::to_string(site.AdminPort(documents)) + "\n",
            web.Announced());
  EXPECT_EQ("\t@COMMAND=STARTUPANNOUNCEMENT\tID=one\tTYPE=S\tIP=127.0.0.1\tCLIENTPORT=" +
                std::to_string(site.ClientPort(one)) +
                "\tADMINPORT=" + std::to_string(site.AdminPort(one)) + "\n",
            web.Announced());
  EXPECT_EQ(0, tool.Status()) << tool.Errors();
}

// One that is silent keeps nobody waiting; one that comes late is announced in the same call.
TEST(CtlTree, Announce_WaitsForNobodyWhoIsSilent) {
  Admin web, late;
  const Admin silent;
  Site site;
  site.Text("web1 C 127.0.0.1 1 " + std::to_string(web.Port()) + " -");
  const int one = site.Line("one", 'D', "web1");
  site.Text("late D 127.0.0.1 1 " + std::to_string(late.Port()) + " web1");
  site.Text("none D 127.0.0.1 1 " + std::to_string(silent.Port()) + " web1");
  site.Start(one);
  const Folder state;
  const Arguments announce =
      site.Ctl({"announce", "web1", "--state", state.Path(), "--timeout", "6"});
  Tool tool(announce);
  EXPECT_TRUE(web.Announced().starts_with("\t@COMMAND=STARTUPANNOUNCEMENT\tID=one\tTYPE=D\t"));
  // Another one is not held up by the one that still waits.
  const int lock = open(state.Path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  EXPECT_TRUE(Eventually([&] { return flock(lock, LOCK_EX | LOCK_NB) == 0; }));
  EXPECT_EQ("announced " + site.Place(one) + " to web1:C at 127.0.0.1/" +
                std::to_string(web.Port()) + "\n",
            tool.Output());
  close(lock);
  late.Reply(Pong(NumberIn(late.Receive())));
  EXPECT_TRUE(web.Announced().starts_with("\t@COMMAND=STARTUPANNOUNCEMENT\tID=late\tTYPE=D\t"));
  EXPECT_EQ(0, tool.Status()) << tool.Errors();
  const std::string to = " to web1:C at 127.0.0.1/" + std::to_string(web.Port()) + "\n";
  EXPECT_EQ("announced " + site.Place(one) + to + "none:D at 127.0.0.1/" +
                std::to_string(silent.Port()) + " is silent\nannounced late:D at 127.0.0.1/" +
                std::to_string(late.Port()) + to,
            tool.Output());
}

// As while it is restarted: it is not there, and nobody else can be told.
TEST(CtlTree, Announce_WaitsForNobodyWhenItsParentIsDown) {
  const Admin silent;
  Site site;
  const int web = site.Line("web1", 'C', "-");
  site.Text("none S 127.0.0.1 1 " + std::to_string(silent.Port()) + " web1");
  const Folder files;
  Process process(site.Ctl({"announce", "web1", "--timeout", "600"}), files.Path());
  EXPECT_TRUE(Eventually([&] { return process.Ended(); }));
  if (!process.Ended()) process.Signal(SIGTERM);
  EXPECT_EQ(69, ExitStatus(process.Wait()));
  EXPECT_EQ(site.Place(web) + " is silent\n", process.Output());
}

// Nobody is behind the one that is silent, so nobody is announced again.
TEST(CtlTree, Announce_SpeaksOnceForEach) {
  const Admin silent;
  Site site;
  const int web = site.Line("web1", 'C', "-");
  const int one = site.Line("one", 'S', "web1");
  site.Text("none S 127.0.0.1 1 " + std::to_string(silent.Port()) + " web1");
  site.Start(web);
  site.Start(one);
  EXPECT_EQ(Announced(site, one, web) + "none:S at 127.0.0.1/" + std::to_string(silent.Port()) +
                " is silent\n",
            site.Run({"announce", "web1", "--timeout", "1"}).output);
}

// One behind another in the file is told when that one has been, or is silent.
TEST(CtlTree, Announce_KeepsTheOrderOfSearchManagersThatComeLate) {
  Admin web, late;
  Site site;
  site.Text("web1 C 127.0.0.1 1 " + std::to_string(web.Port()) + " -");
  const int first = site.Line("a", 'S', "web1");
  site.Text("b S 127.0.0.1 1 " + std::to_string(late.Port()) + " web1");
  const int last = site.Line("c", 'S', "web1");
  site.Start(first);
  site.Start(last);
  Tool tool(site.Ctl({"announce", "web1"}));
  const std::string announcement = "\t@COMMAND=STARTUPANNOUNCEMENT\tID=";
  EXPECT_TRUE(web.Announced().starts_with(announcement + "a\tTYPE=S\t"));
  late.Reply(Pong(NumberIn(late.Receive())));
  for (const std::string id : {"a", "b", "c"})
    EXPECT_TRUE(web.Announced().starts_with(announcement + id + "\tTYPE=S\t")) << id;
  EXPECT_EQ(0, tool.Status()) << tool.Errors();
}

// A datagram is lost now and then.
TEST(CtlTree, Announce_AsksAgainBeforeItTakesTheStandby) {
  Admin web, first;
  Site site;
  site.Text("web1 C 127.0.0.1 1 " + std::to_string(web.Port()) + " -");
  site.Text("a S 127.0.0.1 1 " + std::to_string(first.Port()) + " web1");
  const int standby = site.Line("a", 'S', "web1");
  site.Start(standby);
  Tool tool(site.Ctl({"announce", "web1", "--timeout", "2"}));
  first.Receive();
  first.Receive();
  first.Reply(Pong(NumberIn(first.Receive())));
  EXPECT_TRUE(web.Announced().starts_with(
      "\t@COMMAND=STARTUPANNOUNCEMENT\tID=a\tTYPE=S\tIP=127.0.0.1\tCLIENTPORT=1\t"));
  EXPECT_EQ(0, tool.Status()) << tool.Errors();
}

// What asks is one line, as any client sends it.
TEST(CtlTree, Announce_WithAMacroAsksForEachGroup) {
  Admin admin;
  const Manager manager;
  Site site;
  site.Text("web1 C 127.0.0.1 " + std::to_string(manager.Port()) + " " +
            std::to_string(admin.Port()) + " -");
  const int one = site.Line("one", 'S', "web1");
  site.Start(one);
  Tool tool(site.Ctl({"announce", "web1", "--macro", "page"}));
  const std::string ping = admin.Receive();
  admin.Reply(Pong(NumberIn(ping)));
  const std::string unknown = "\t@COMMAND=ERROR\tUnable to locate SearchMgr\n";
  for (const std::string &group : {std::string(100, '-'), std::string("one")}) {
    const Socket asked = manager.Accept();
    EXPECT_EQ(
        "\t@COMMAND=QUERY\t@SEARCHGROUP=" + group + "\t@MACROFILE=page\t@MAXHITS=1\tkorvoctl\n",
        asked.ReadLine());
    asked.Send(unknown);
  }
  EXPECT_TRUE(admin.Receive().starts_with("\t@COMMAND=STARTUPANNOUNCEMENT\tID=one\tTYPE=S\t"));
  EXPECT_EQ(0, tool.Status()) << tool.Errors();
}

TEST(CtlTree, Announce_SaysWhoIsSilentAndWhoWasAnnounced) {
  Site site;
  WritePage(site);
  const int web = site.Line("web1", 'C', "-");
  const int one = site.Line("one", 'S', "web1");
  const int two = site.Line("two", 'S', "web1");
  const int half = site.Line("half", 'E', "one");
  site.Start(web);
  site.Start(one);
  site.Start(half);
  const Outcome outcome = site.Run({"announce"});
  EXPECT_EQ(
      site.Place(two) + " is silent\n" + Announced(site, one, web) + Announced(site, half, one),
      outcome.output);
  EXPECT_EQ(0, outcome.status);
  EXPECT_TRUE(IsListed(site, web, "one"));
  EXPECT_FALSE(IsListed(site, web, "two"));
  EXPECT_EQ(Announced(site, half, one), site.Run({"announce", "one"}).output);
  const Outcome nobody = site.Run({"announce", "half"});
  EXPECT_EQ("", nobody.output);
  EXPECT_EQ("korvoctl: nobody is below half in " + site.Path() + "/korvo.conf\n", nobody.errors);
  EXPECT_EQ(0, nobody.status);
  site.End(web);
  const Outcome alone = site.Run({"announce", "web1"});
  EXPECT_EQ(69, alone.status);
  EXPECT_EQ(site.Place(web) + " is silent\n" + site.Place(two) + " is silent\n", alone.output);
}

// One that is known already, and is not the first, cuts those behind it when it is announced.
TEST(CtlTree, Announce_LosesNoSearchManagerOfAListInTheOrderOfTheFile) {
  Site site;
  WritePage(site);
  const int web = site.Line("web1", 'C', "-");
  const int a = site.Line("a", 'S', "web1");
  const int b = site.Line("b", 'S', "web1");
  const int c = site.Line("c", 'S', "web1");
  for (const int line : {web, a, b, c}) site.Start(line);
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(Announced(site, a, web) + Announced(site, b, web) + Announced(site, c, web),
              site.Run({"announce", "web1"}).output);
    for (const std::string id : {"a", "b", "c"}) EXPECT_TRUE(IsListed(site, web, id)) << id;
  }
}

// In whatever order they became known: those that are listed are left where they are.
TEST(CtlTree, Announce_WithAMacroLosesNobodyAtAll) {
  Site site;
  WritePage(site);
  const int web = site.Line("web1", 'C', "-");
  const int a = site.Line("a", 'S', "web1");
  const int b = site.Line("b", 'S', "web1");
  const int c = site.Line("c", 'S', "web1");
  for (const int line : {web, c}) site.Start(line);
  EXPECT_EQ(
      site.Place(a) + " is silent\n" + site.Place(b) + " is silent\n" + Announced(site, c, web),
      site.Run({"announce", "web1"}).output);
  site.Start(a);
  site.Start(b);
  const Arguments exact = {"announce", "web1", "--macro", site.Path() + "/page"};
  EXPECT_EQ(Announced(site, a, web) + Announced(site, b, web), site.Run(exact).output);
  EXPECT_EQ("", site.Run(exact).output);
  for (const std::string id : {"a", "b", "c"}) EXPECT_TRUE(IsListed(site, web, id)) << id;
  ExpectRefused(site.Ctl({"announce", "web1", "--macro", "/none"}), 65,
                site.Place(web) + " cannot open the page macro /none");
}

// The others are told, and a watch goes on.
TEST(CtlTree, Announce_SurvivesAParentThatCannotBeAsked) {
  Admin admin;
  Site site;
  WritePage(site);
  site.Text("half C 127.0.0.1 1 " + std::to_string(admin.Port()) + " -");
  const int one = site.Line("one", 'S', "half");
  const int web = site.Line("web1", 'C', "-");
  const int two = site.Line("two", 'S', "web1");
  for (const int line : {one, web, two}) site.Start(line);
  const std::string failed = "korvoctl: cannot reach 127.0.0.1/1: Connection refused\n";
  const std::string told = Announced(site, two, web);
  Tool tool(
      site.Ctl({"announce", "--macro", site.Path() + "/page", "--watch", "1", "--timeout", "2"}));
  for (int round = 0; round < 2; ++round) {
    const std::string ping = admin.Receive();
    admin.Reply(Pong(NumberIn(ping)));
    EXPECT_TRUE(Eventually([&] { return tool.Output() == told; })) << tool.Output();
  }
  EXPECT_TRUE(admin.Receive().starts_with("\t@COMMAND=PING\t"));
  EXPECT_TRUE(tool.Errors().starts_with(failed + failed)) << tool.Errors();
  tool.Signal(SIGTERM);
  tool.Wait();
  Tool once(site.Ctl({"announce", "half", "--macro", site.Path() + "/page"}));
  const std::string ping = admin.Receive();
  admin.Reply(Pong(NumberIn(ping)));
  EXPECT_EQ(69, once.Status());
  EXPECT_EQ(failed, once.Errors());
}

// A daemon that asks a manager is silent for as long as that is: it knows it.
TEST(CtlTree, Announce_TakesSilenceForKnown) {
  Admin admin;
  const Manager manager;
  Site site;
  site.Text("web1 C 127.0.0.1 " + std::to_string(manager.Port()) + " " +
            std::to_string(admin.Port()) + " -");
  for (const std::string id : {"one", "two"}) site.Start(site.Line(id, 'S', "web1"));
  Tool tool(site.Ctl({"announce", "web1", "--macro", "page", "--timeout", "2"}));
  const std::string ping = admin.Receive();
  admin.Reply(Pong(NumberIn(ping)));
  const std::string unknown = "\t@COMMAND=ERROR\tUnable to locate SearchMgr\n";
  manager.Accept().Send(unknown);
  const Socket silent = manager.Accept();
  manager.Accept().Send(unknown);
  EXPECT_TRUE(admin.Receive().starts_with("\t@COMMAND=STARTUPANNOUNCEMENT\tID=two\tTYPE=S\t"));
  EXPECT_EQ(0, tool.Status()) << tool.Errors();
}

bool HasOpen(pid_t pid, const std::string &path) {
  std::error_code error;
  for (const auto &fd :
       std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd", error))
    if (std::filesystem::read_symlink(fd.path(), error) == path) return true;
  return false;
}

// As the units of a machine announce when it boots: the second asks when the first has announced.
TEST(CtlTree, Announce_WaitsForOneThatIsAtIt) {
  const Manager manager;
  Admin web;
  Site site;
  site.Text("web1 C 127.0.0.1 " + std::to_string(manager.Port()) + " " +
            std::to_string(web.Port()) + " -");
  site.Start(site.Line("one", 'S', "web1"));
  const Folder state, first_files, second_files;
  const Arguments announce =
      site.Ctl({"announce", "web1", "--macro", "page", "--state", state.Path(), "--timeout", "60"});
  const Process first(announce, first_files.Path());
  std::string ping = web.Receive();
  web.Reply(Pong(NumberIn(ping)));
  const std::string unknown = "\t@COMMAND=ERROR\tUnable to locate SearchMgr\n";
  manager.Accept().Send(unknown);
  const Socket asked = manager.Accept();
  const Process second(announce, second_files.Path());
  EXPECT_TRUE(Eventually([&] { return HasOpen(second.Pid(), state.Path()); }));
  asked.Send(unknown);
  EXPECT_TRUE(web.Receive().starts_with("\t@COMMAND=STARTUPANNOUNCEMENT\tID=one\tTYPE=S\t"));
  EXPECT_TRUE(web.Receive().starts_with("\t@COMMAND=PING\t"));
}

TEST(CtlTree, Watch_AnnouncesAgainAndTakesTheStandby) {
  Site site;
  WritePage(site);
  const int web = site.Line("web1", 'C', "-");
  const int first = site.Line("a", 'S', "web1");
  const int standby = site.Line("a", 'S', "web1");
  for (const int line : {web, first, standby}) site.Start(line);
  Tool tool(site.Ctl({"announce", "--watch", "1", "--timeout", "1"}));
  std::string expected = Announced(site, first, web);
  const auto says = [&] {
    return Eventually([&] { return tool.Output() == expected; }) ||
           (ADD_FAILURE() << tool.Output(), false);
  };
  EXPECT_TRUE(says());
  site.End(first);
  expected += Announced(site, standby, web);
  EXPECT_TRUE(says());
  site.Start(first);
  expected += Announced(site, first, web);
  EXPECT_TRUE(says());
  site.End(web);
  expected += site.Place(web) + " is silent\n";
  EXPECT_TRUE(says());
  site.Start(web);
  expected += Announced(site, first, web);
  EXPECT_TRUE(says());
  EXPECT_TRUE(IsListed(site, web, "a"));
  // One that was gone for less than a round has another socket.
  site.End(web);
  site.Start(web);
  EXPECT_TRUE(Eventually([&] { return IsListed(site, web, "a"); }));
  tool.Signal(SIGTERM);
  tool.Wait();
}

}  // namespace
