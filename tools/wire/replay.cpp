// korvo-wire replay: sends what was recorded again, and compares the answers.
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "tools/common/tool.h"
#include "tools/wire/commands.h"
#include "tools/wire/run.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kPatienceMs = 60000;
constexpr int kMaxSpeed = 1000000;
constexpr std::size_t kMaxAtOnce = 64;

struct Replay {
  std::string folder;
  std::vector<sockaddr_in> to;  // one or two
  int speed = 1, patience = kPatienceMs;
};

struct Recorded {
  std::string file;
  int offset = 0;  // milliseconds behind the first
  std::vector<Step> steps;
};

constexpr option kOptions[] = {
    {"to", required_argument, nullptr, 't'},       {"speed", required_argument, nullptr, 's'},
    {"patience", required_argument, nullptr, 'p'}, {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'V'},        {nullptr, 0, nullptr, 0}};

Replay ReadCommand(int argc, char **argv) {
  Replay replay;
  for (int letter; (letter = Tool_NextOption(argc, argv, ":", kOptions)) != -1;) {
    if (letter == 't') replay.to.push_back(Wire_Address(optarg, "--to"));
    if (letter == 's') replay.speed = Tool_Number("--speed", optarg, 1, kMaxSpeed);
    if (letter == 'p') replay.patience = Tool_Number("--patience", optarg, 1, kTranscriptMs);
    Wire_TakeInfo(letter);
  }
  if (argc - optind != 1 || replay.to.empty() || replay.to.size() > 2)
    Tool_Fail(EX_USAGE, "replay takes a folder, and --to HOST:PORT once or twice");
  replay.folder = argv[optind];
  return replay;
}

std::vector<Recorded> ReadAll(const std::string &folder) {
  std::vector<Recorded> all;
  std::error_code ignored;
  for (const auto &entry : std::filesystem::directory_iterator(folder, ignored)) {
    if (entry.path().extension() != ".transcript") continue;
    Transcript transcript;
    std::string wrong;
    if (!Transcript_Read(entry.path(), &transcript, &wrong))
      Tool_Fail(EX_DATAERR, "%s", wrong.c_str());
    Recorded recorded = {entry.path(), 0, transcript.cases.front().steps};
    if (recorded.steps.front().verb == Verb::kWait) recorded.offset = recorded.steps.front().count;
    all.push_back(recorded);
  }
  if (all.empty()) Tool_Fail(EX_NOINPUT, "there is no transcript in %s", folder.c_str());
  std::sort(all.begin(), all.end(),
            [](const Recorded &a, const Recorded &b) { return a.file < b.file; });
  return all;
}

// Sends all that was sent then and reads to the end; false with the reason.
bool Ask(const Replay &replay, const Recorded &recorded, const sockaddr_in &to, std::string *answer,
         std::string *why) {
  Stage stage;
  stage.client_port = to;
  stage.patience = replay.patience;
  Actor &actor = stage.actors["client"];
  bool good = Stage_Connect(&stage, &actor, why);
  for (const Step &step : recorded.steps) {
    if (!good) break;
    if (step.verb == Verb::kSend)
      good = Stage_Send(&stage, &actor, Pattern_Bytes(step.items, stage.scene), why);
  }
  while (good && !actor.ended) {
    good = Stage_Receive(&actor, replay.patience);
    if (!good) *why = "the answer does not end";
  }
  *answer = actor.came;
  Stage_Close(&stage);
  return good;
}

std::string Shown(const std::string &bytes, std::size_t at) {
  constexpr std::size_t kAround = 40;
  return Transcript_Quote(bytes.substr(at, kAround));
}

bool IsSame(const std::string &first, const std::string &second, std::string *why) {
  if (first == second) return true;
  const auto at = static_cast<std::size_t>(
      std::mismatch(first.begin(), first.end(), second.begin(), second.end()).first -
      first.begin());
  *why = Tool_Format("byte %zu was %s and is %s", at + 1, Shown(first, at).c_str(),
                     Shown(second, at).c_str());
  return false;
}

// Against what was recorded: the bytes, or how many they were.
bool IsAsRecorded(const Recorded &recorded, const std::string &answer, std::string *why) {
  std::vector<Item> items;
  for (const Step &step : recorded.steps)
    if (step.verb == Verb::kExpect) items.insert(items.end(), step.items.begin(), step.items.end());
  Scene scene;
  const bool counted = std::any_of(items.begin(), items.end(),
                                   [](const Item &item) { return item.kind == ItemKind::kBytes; });
  if (!counted) return IsSame(Pattern_Bytes(items, scene), answer, why);
  std::size_t length = 0;
  if (Pattern_Match(items, answer, true, &scene, &length) == Fit::kYes && length == answer.size())
    return true;
  *why = Tool_Format("it has %zu bytes now", answer.size());
  return false;
}

[[noreturn]] void Again(const Replay &replay, const Recorded &recorded) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  std::string first, second, why;
  bool good = Ask(replay, recorded, replay.to[0], &first, &why);
  if (good && replay.to.size() == 2)
    good = Ask(replay, recorded, replay.to[1], &second, &why) && IsSame(first, second, &why);
  else if (good)
    good = IsAsRecorded(recorded, first, &why);
  if (!good) Tool_Print("differs: " + recorded.file + ": " + why + "\n");
  _exit(good ? EX_OK : kWireDiffers);
}

bool WaitForOne() {
  int status = 0;
  return waitpid(-1, &status, 0) > 0 && status == 0;
}

}  // namespace

int Wire_Replay(int argc, char **argv) {
  const Replay replay = ReadCommand(argc, argv);
  const std::vector<Recorded> all = ReadAll(replay.folder);
  const auto begin = Clock::now();
  std::size_t running = 0, same = 0;
  for (const Recorded &recorded : all) {
    const int offset = recorded.offset - all.front().offset;
    std::this_thread::sleep_until(begin +
                                  std::chrono::microseconds(1000LL * offset / replay.speed));
    for (; running >= kMaxAtOnce; --running)
      if (WaitForOne()) ++same;
    const pid_t pid = fork();
    if (pid == 0) Again(replay, recorded);
    if (pid < 0) Tool_Fail(EX_OSERR, "cannot start a process: %s", std::strerror(errno));
    ++running;
  }
  for (; running > 0; --running)
    if (WaitForOne()) ++same;
  Tool_Print(Tool_Format("%zu exchanges: %zu the same, %zu differ\n", all.size(), same,
                         all.size() - same));
  return same == all.size() ? EX_OK : kWireDiffers;
}
