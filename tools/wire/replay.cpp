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
#include <utility>
#include <vector>

#include "tools/common/tool.h"
#include "tools/wire/commands.h"
#include "tools/wire/run.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

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
  milliseconds offset = {};  // behind the beginning of the recording
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

bool IsOfClient(const Step &step) { return step.actor.starts_with("client"); }

Recorded Read(const std::string &file) {
  Transcript transcript = Wire_Transcript(file);
  Recorded recorded = {file, milliseconds(0), std::move(transcript.cases.front().steps)};
  const std::vector<Step> &steps = recorded.steps;
  for (auto step = steps.begin(); step != steps.end() && step->verb == Verb::kWait; ++step)
    recorded.offset += milliseconds(step->count);
  if (std::none_of(steps.begin(), steps.end(), IsOfClient))
    Tool_Fail(EX_DATAERR, "%s is no recording: it has no step of a client", file.c_str());
  return recorded;
}

// Each relay that recorded counts from its own beginning: a later one follows the earlier.
void PutInARow(std::vector<Recorded> *all) {
  milliseconds before = {}, last = {};
  for (Recorded &recorded : *all) {
    if (before + recorded.offset < last) before = last;
    last = recorded.offset += before;
  }
}

std::vector<Recorded> ReadAll(const std::string &folder) {
  std::vector<Recorded> all;
  std::error_code ignored;
  for (const auto &entry : std::filesystem::directory_iterator(folder, ignored))
    if (entry.path().extension() == ".transcript") all.push_back(Read(entry.path()));
  if (all.empty()) Tool_Fail(EX_NOINPUT, "there is no transcript in %s", folder.c_str());
  std::sort(all.begin(), all.end(),
            [](const Recorded &a, const Recorded &b) { return a.file < b.file; });
  PutInARow(&all);
  return all;
}

bool Has(const Recorded &recorded, Verb verb) {
  return std::any_of(recorded.steps.begin(), recorded.steps.end(),
                     [&](const Step &step) { return step.verb == verb; });
}

// How many bytes a client that left in the middle has had.
std::size_t BytesHad(const Recorded &recorded) {
  std::size_t bytes = 0;
  for (const Step &step : recorded.steps)
    for (const Item &item : step.items)
      if (step.verb == Verb::kExpect)
        bytes += item.kind == ItemKind::kBytes ? static_cast<std::size_t>(item.count)
                                               : Pattern_Bytes({item}, {}).size();
  return bytes;
}

struct Answer {
  std::string bytes;
  bool reset = false;
};

// Sends all that was sent then and reads to the end, or as far as the client of then; false with
// the reason.
bool Ask(const Replay &replay, const Recorded &recorded, const sockaddr_in &to, Answer *answer,
         std::string *why) {
  Stage stage;
  stage.client_port = to;
  stage.patience = replay.patience;
  Actor &actor = stage.actors["client"];
  bool good = Stage_Connect(&stage, &actor, why);
  for (const Step &step : recorded.steps) {
    if (good && step.verb == Verb::kSend)
      good = Stage_Send(&stage, &actor, Pattern_Bytes(step.items, stage.scene), why);
    if (good && step.verb == Verb::kHalfClose) shutdown(actor.sock, SHUT_WR);
  }
  const bool leaves = Has(recorded, Verb::kReset);
  const std::size_t enough = leaves ? BytesHad(recorded) : 0;
  while (good && !actor.ended && !(leaves && actor.came.size() >= enough)) {
    good = Stage_Receive(&actor, replay.patience);
    if (!good) *why = "the answer does not end";
  }
  *answer = {leaves ? actor.came.substr(0, enough) : actor.came, actor.reset};
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

bool EndsAlike(bool was_reset, const Answer &answer, std::string *why) {
  if (was_reset == answer.reset) return true;
  *why = answer.reset ? "it ends in a reset now" : "it ended in a reset then";
  return false;
}

// Against what was recorded: the bytes, or how many they were.
bool IsAsRecorded(const Recorded &recorded, const Answer &answer, std::string *why) {
  std::vector<Item> items;
  for (const Step &step : recorded.steps)
    if (step.verb == Verb::kExpect) items.insert(items.end(), step.items.begin(), step.items.end());
  Scene scene;
  std::size_t length = 0;
  if (Pattern_Match(items, answer.bytes, true, &scene, &length) == Fit::kYes &&
      length == answer.bytes.size())
    return EndsAlike(Has(recorded, Verb::kExpectReset), answer, why);
  if (std::none_of(items.begin(), items.end(), Transcript_HasPattern))
    return IsSame(Pattern_Bytes(items, scene), answer.bytes, why);
  *why = Tool_Format("it has %zu bytes now", answer.bytes.size());
  return false;
}

[[noreturn]] void Again(const Replay &replay, const Recorded &recorded) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  Answer first, second;
  std::string why;
  bool good = Ask(replay, recorded, replay.to[0], &first, &why);
  if (good && replay.to.size() == 2)
    good = Ask(replay, recorded, replay.to[1], &second, &why) &&
           IsSame(first.bytes, second.bytes, &why) && EndsAlike(first.reset, second, &why);
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
    const std::chrono::microseconds behind = recorded.offset - all.front().offset;
    std::this_thread::sleep_until(begin + behind / replay.speed);
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
