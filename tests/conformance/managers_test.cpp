// Both managers of this tree over the documents of the kit, held against every case, and behind a
// relay that breaks one thing.
#include <gtest/gtest.h>

#include <map>
#include <memory>

#include "tests/service/running.h"
#include "tests/tools/run.h"

namespace {

class ConformanceOfManagers : public ::testing::Test {
 protected:
  ConformanceOfManagers() {
    const std::string database = data_.Path() + "/db";
    EXPECT_EQ(0, RunIndexer({"--format", "control", "--schema", KORVO_SOURCES "/conformance/schema",
                             database, KORVO_SOURCES "/conformance/documents"})
                     .status);
    conf_.Write("korvo.conf", "web1 C 127.0.0.1 9 9 -\n" + Line('S') + Line('D'));
    conf_.Write("korvo.db", "packages packages " + database + " " + database + "\n");
    Start('S', KORVO_SEARCHMGR);
    Start('D', KORVO_DOCMGR);
  }

  std::string Line(char type) {
    ports_[type] = {ReservePort(), ReservePort()};
    return std::string("packages ") + type + " 127.0.0.1 " + std::to_string(ports_[type].client) +
           " " + std::to_string(ports_[type].admin) + " web1\n";
  }

  void Start(char type, const std::string &program) {
    folders_.push_back(std::make_unique<Folder>());
    programs_.push_back(std::make_unique<Process>(Arguments{program, "packages", conf_.Path()},
                                                  folders_.back()->Path()));
    EXPECT_TRUE(Eventually([&] {
      return Check(type, ports_[type].client, {"--case", "pong-for-a-ping", "--patience", "100"})
                 .status == 0;
    }));
  }

  // The kit against a manager, or against what stands before it.
  Outcome Check(char type, int port, const Arguments &more = {}) const {
    Arguments argv = {KORVO_WIRE, "check",
                      "--cases",  KORVO_SOURCES "/conformance",
                      "--admin",  std::to_string(ports_.at(type).admin)};
    argv.insert(argv.end(), more.begin(), more.end());
    argv.insert(argv.end(), {type == 'S' ? "searchmgr" : "docmgr", std::to_string(port)});
    return RunTool(argv);
  }

  void ExpectAllPass(char type, int least) const {
    const Outcome outcome = Check(type, ports_.at(type).client);
    EXPECT_EQ(0, outcome.status) << outcome.output << outcome.errors;
    EXPECT_GE(std::atoi(outcome.output.c_str()), least);
    EXPECT_NE(std::string::npos, outcome.output.find(" passed, 0 failed, 0 left out\n"))
        << outcome.output;
  }

  // The case passes behind a relay that breaks nothing and fails behind one that has the fault.
  void ExpectCaught(char type, const std::string &fault, const std::string &which) const {
    for (const bool broken : {false, true}) {
      const int port = ReservePort();
      Tool relay({"/usr/bin/env", "python3", KORVO_SOURCES "/tests/conformance/broken.py",
                  broken ? fault : "none", std::to_string(port),
                  std::to_string(ports_.at(type).client)});
      EXPECT_TRUE(Eventually([&] { return relay.Output() == "ready\n"; })) << relay.Errors();
      const Outcome outcome =
          Check(type, port, {"--case", which, "--patience", broken ? "1000" : "10000"});
      EXPECT_EQ(broken ? 1 : 0, outcome.status) << fault << ": " << outcome.output;
      relay.Signal(SIGTERM);
      relay.Wait();
      ReleasePort(port);
    }
  }

  struct Ports {
    int client, admin;
  };

  Folder data_, conf_;
  std::map<char, Ports> ports_;
  std::vector<std::unique_ptr<Folder>> folders_;
  std::vector<std::unique_ptr<Process>> programs_;
};

TEST_F(ConformanceOfManagers, SearchManager_PassesEveryCase) { ExpectAllPass('S', 60); }
TEST_F(ConformanceOfManagers, DocumentManager_PassesEveryCase) { ExpectAllPass('D', 40); }

TEST_F(ConformanceOfManagers, SearchManagerWithAFault_IsCaught) {
  ExpectCaught('S', "hit-without-docnum", "one-document-is-one-hit");
  ExpectCaught('S', "hit-for-nothing", "nothing-found-is-no-hit");
  ExpectCaught('S', "completes-as-news", "end-is-the-last-record");
  ExpectCaught('S', "stays-open", "end-is-the-last-record");
  ExpectCaught('S', "maxhits-ignored", "maxhits-is-obeyed");
  ExpectCaught('S', "names-in-any-case", "names-compared-exactly");
  ExpectCaught('S', "first-read-is-the-line", "line-in-two-pieces-with-a-pause");
}

TEST_F(ConformanceOfManagers, DocumentManagerWithAFault_IsCaught) {
  ExpectCaught('D', "last-value-not-closed", "last-value-is-closed");
  ExpectCaught('D', "stays-open", "manager-closes-first");
  ExpectCaught('D', "one-at-a-time", "slow-request-holds-nobody");
  ExpectCaught('D', "hit-for-errors", "number-that-nobody-has");
}

}  // namespace
