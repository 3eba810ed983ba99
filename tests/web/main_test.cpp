// The command line of korvo-web.
#include <gtest/gtest.h>
#include <linux/net.h>
#include <signal.h>
#include <sys/syscall.h>

#include <filesystem>

#include "tests/tools/run.h"
#include "tests/web/site.h"

namespace {

Outcome RunWeb(const Arguments &arguments) {
  Arguments argv = {KORVO_WEB};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  return RunTool(argv);
}

const std::string kTexts = "texts " KORVO_PAGES "/texts.en\n";
const std::string kServed = kTexts + "clients 10\n";  // no more than any shell has descriptors for

}  // namespace

TEST(Main, Check_SaysThatAllIsRight) {
  const Folder folder;
  for (const char *name : {"results.mo", "document.mo"}) folder.Write(name, "x");
  const std::string whole = kTexts + "macro-directory " + folder.Path() + "\nstatic-directory " +
                            folder.Path() + "\nfront-page " KORVO_PAGES "/front.html\n";
  const std::string path = folder.Write("web.conf", whole + "log " + folder.Path() + "/log\n");
  const Outcome outcome = RunWeb({"--check", path});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(outcome.output, path + ": right\n");
  EXPECT_EQ(ReadFile(folder.Path() + "/log"), "");
  const std::string old = folder.Write("old.log", "a line\n");
  EXPECT_EQ(RunWeb({"--check", folder.Write("web.conf", whole + "log " + old + "\n")}).output,
            path + ": right\n");
  EXPECT_EQ(ReadFile(old), "a line\n");
  EXPECT_EQ(RunWeb({"--check", folder.Write("web.conf", whole + "log " + old + "/log\n")}).errors,
            "korvo-web: " + old + "/log: cannot be opened: Not a directory\n");
  for (const char *lines : {"log /nowhere/log\n", "log /nowhere/log"}) {
    const Outcome log = RunWeb({"--check", folder.Write("web.conf", whole + lines)});
    EXPECT_EQ(log.status, 78);
    EXPECT_EQ(log.errors, "korvo-web: /nowhere/log: cannot be opened: No such file or directory\n");
  }
  for (const std::string name : {"/document.mo", "/results.mo"}) {
    std::filesystem::remove(folder.Path() + name);
    const Outcome macro = RunWeb({"--check", folder.Write("web.conf", whole)});
    EXPECT_EQ(macro.status, 78);
    EXPECT_EQ(macro.errors, "korvo-web: " + folder.Path() + name +
                                ": cannot be read: No such file or directory\n");
  }
  EXPECT_EQ(RunWeb({"--check", folder.Write("web.conf", kTexts + "front-page /nowhere\n")}).errors,
            "korvo-web: /nowhere: cannot be read: No such file or directory\n");
  EXPECT_EQ(RunWeb({"--check",
                    folder.Write("web.conf", kTexts + "front-page " KORVO_PAGES
                                                      "/front.html\nstatic-directory /nowhere\n")})
                .errors,
            "korvo-web: /nowhere/.: cannot be read: No such file or directory\n");
}

TEST(Main, Example_IsRight) {
  const Folder folder;
  std::string example = ReadFile(KORVO_EXAMPLES "/web/korvo-web.conf");
  EXPECT_NE(example.find("\ngroup packages "), std::string::npos);
  const std::string path = folder.Write(
      "web.conf", example + "macro-directory " + folder.Path() + "\nstatic-directory " +
                      folder.Path() + "\nfront-page " KORVO_PAGES "/front.html\n" + kTexts);
  for (const char *name : {"results.mo", "document.mo"}) folder.Write(name, "x");
  EXPECT_EQ(RunWeb({"--check", path}).output, path + ": right\n");
}

TEST(Main, WrongConfiguration_Is78) {
  const Folder folder;
  const std::string path = folder.Write("web.conf", "listen-port 0\n");
  for (const std::vector<std::string> &arguments :
       {std::vector<std::string>{path}, std::vector<std::string>{"--check", path}}) {
    const Outcome outcome = RunWeb(arguments);
    EXPECT_EQ(outcome.status, 78);
    EXPECT_EQ(outcome.errors,
              "korvo-web: " + path + ":1: listen-port takes a number from 1 to 65535, not '0'\n");
  }
  EXPECT_EQ(RunWeb({folder.Write("other.conf", "texts /nowhere\n")}).errors,
            "korvo-web: /nowhere: cannot be read: No such file or directory\n");
}

TEST(Main, WithoutAFile_TheUsualOne) {
  EXPECT_EQ(
      RunWeb({"--check"}).errors,
      "korvo-web: /usr/local/korvo/etc/korvo-web.conf: cannot be read: No such file or directory\n");
}

TEST(Main, WrongUse_Is64) {
  EXPECT_EQ(RunWeb({"--other"}).status, 64);
  const Outcome outcome = RunWeb({"a", "b"});
  EXPECT_EQ(outcome.status, 64);
  EXPECT_EQ(outcome.errors, "korvo-web: takes one configuration file, not 2\n");
}

TEST(Main, PortThatIsTaken_Is69) {
  const Manager other;
  const Folder folder;
  const std::string port = std::to_string(other.Port());
  const Outcome outcome =
      RunWeb({folder.Write("web.conf", kServed + "listen-port " + port + "\n")});
  EXPECT_EQ(outcome.status, 69);
  EXPECT_EQ(outcome.errors,
            "korvo-web: cannot listen on 127.0.0.1 port " + port + ": Address already in use\n");
}

TEST(Main, SocketThatIsRefused_Is69) {
  const Folder folder;
  const std::string conf = folder.Write("web.conf", kServed + "listen-port 8080\n");
  ExpectRefused({KORVO_WEB, conf}, 69, "cannot listen on 127.0.0.1 port 8080: Permission denied",
                [] { RefuseSocketCall(SYS_socket, SYS_SOCKET); });
}

TEST(Main, SecondOneOnAPort_Is69) {
  const Site site(9, 9);
  const Folder folder;
  const std::string port = std::to_string(site.Port());
  const std::string conf = folder.Write("web.conf", kServed + "listen-port " + port + "\n");
  Process second({KORVO_WEB, conf}, folder.Path());
  ASSERT_TRUE(Eventually([&] { return second.Ended(); }));
  EXPECT_EQ(ExitStatus(second.Wait()), 69);
  EXPECT_EQ(second.RawLog(),
            "korvo-web: cannot listen on 127.0.0.1 port " + port + ": Address already in use\n");
}

// Connections that it has closed are remembered by the system for a minute.
TEST(Main, PortThatWasJustServed_IsListenedOnAgain) {
  Site site(9, 9);
  EXPECT_EQ(site.Get("/").status, 200);
  site.Program().Signal(SIGTERM);
  EXPECT_EQ(ExitStatus(site.Program().Wait()), 0);
  Process again({KORVO_WEB, site.Files().Path() + "/korvo-web.conf"}, site.Files().Path());
  EXPECT_TRUE(Eventually([&] { return again.Ended() || site.Listens(); }));
  EXPECT_EQ(site.Get("/").status, 200);
}

TEST(Main, LogThatCannotBeOpened_Is73) {
  const Folder folder;
  const Outcome outcome = RunWeb({folder.Write("web.conf", kServed + "log /nowhere/log\n")});
  EXPECT_EQ(outcome.status, 73);
  EXPECT_EQ(outcome.errors,
            "korvo-web: /nowhere/log: cannot be opened: No such file or directory\n");
}

TEST(Main, Version) { EXPECT_EQ(RunWeb({"--version"}).output, "korvo-web " KORVO_VERSION "\n"); }

TEST(Main, Help_ListsEveryName) {
  const Outcome outcome = RunWeb({"--help"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(
      outcome.output,
      "usage: korvo-web [OPTION]... [FILE]\n"
      "\n"
      "  --check    read the configuration and its files, and serve nothing\n"
      "  --help     this text\n"
      "  --version  name and version\n"
      "\n"
      "Status: 0; 64 wrong use; 69 the address cannot be listened on; 71 too few descriptors;\n"
      "73 the log cannot be opened; 78 the configuration is wrong.\n"
      "\n"
      "A line of FILE is a name and a value.  The names, with what they are when no line says it:\n"
      "  listen-address 127.0.0.1\n"
      "      where browsers, or the web server before this one, connect\n"
      "  listen-port 8080 (1 to 65535)\n"
      "      its port\n"
      "  daemon-address 127.0.0.1\n"
      "      of the Communications Manager\n"
      "  daemon-port 8001 (1 to 32767)\n"
      "      its client port\n"
      "  daemon-admin-port 8002 (1 to 32767)\n"
      "      its admin port, which /healthz asks\n"
      "  macro-directory /usr/local/korvo/share/korvo/web\n"
      "      the macros and frames of the groups\n"
      "  static-directory /usr/local/korvo/share/korvo/web/static\n"
      "      the files under /static/\n"
      "  front-page /usr/local/korvo/share/korvo/web/front.html\n"
      "      the form, also below an error\n"
      "  texts /usr/local/korvo/share/korvo/web/texts.en\n"
      "      the sentences of the pages\n"
      "  log -\n"
      "      a line of JSON a request; - is standard error\n"
      "  log-queries yes\n"
      "      no leaves out what was asked\n"
      "  public-url -\n"
      "      how a browser names this server; - as it does itself\n"
      "  page-hits 10 (1 to 100)\n"
      "      hits a page\n"
      "  deadline 10000 (100 to 600000)\n"
      "      milliseconds from a request to the end of its page\n"
      "  connections 6 (1 to 1000)\n"
      "      to the daemon at once\n"
      "  waiting 1000 (0 to 100000)\n"
      "      requests that wait for one\n"
      "  clients 1100 (1 to 100000)\n"
      "      connections of browsers in all\n"
      "  client-connections 100 (0 to 100000)\n"
      "      of one address that is not of this machine; 0 is no limit\n"
      "  client-rate 20 (0 to 100000)\n"
      "      searches and documents of one such address a second; 0 is no limit\n"
      "  client-burst 100 (1 to 100000)\n"
      "      of them at once\n"
      "  sender-time 15 (1 to 3600)\n"
      "      seconds for a browser to send a request\n"
      "  reader-time 60 (1 to 3600)\n"
      "      seconds for a browser to read a page\n"
      "  group packages results document Packages\n"
      "      id, macro of its hits, macro of its documents, title; a line each\n"
      "  sort ID FIELD TITLE\n"
      "      an order that a group offers besides relevance; -FIELD descends\n"
      "  documents ID GROUP\n"
      "      a Document Manager that holds documents of the group too\n"
      "\n"
      "Without FILE it is /usr/local/korvo/etc/korvo-web.conf.\n");
}
