#include "tools/wire/run.h"

#include <poll.h>

#include <chrono>
#include <filesystem>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int kLookEveryMs = 2;

Actor *ActorOf(Running *running, const Step &step) { return &running->stage.actors[step.actor]; }

std::string Came(const Actor &actor) {
  std::string came = "came " + Pattern_Show({{ItemKind::kLiteral, actor.came, 0, {}}}, {});
  if (actor.came.empty()) came = "nothing came";
  if (actor.reset) return came + " and then a reset";
  return actor.ended ? came + " and then the end" : came;
}

bool Expected(const std::string &what, const Actor &actor, std::string *why) {
  *why = "expected " + what + "; " + Came(actor);
  return false;
}

bool Send(Running *running, const Step &step, std::string *why) {
  Actor *actor = ActorOf(running, step);
  if (!Stage_Connect(&running->stage, actor, why)) return false;
  const std::string bytes = Pattern_Bytes(step.items, running->stage.scene);
  if (step.piece == 0) return Stage_Send(&running->stage, actor, bytes, why);
  const auto piece = static_cast<std::size_t>(step.piece);
  for (std::size_t at = 0; at < bytes.size(); at += piece) {
    if (at > 0) std::this_thread::sleep_for(milliseconds(step.every));
    if (!Stage_Send(&running->stage, actor, bytes.substr(at, piece), why)) return false;
  }
  return true;
}

// Receives until the items fit what has come, or never will.
bool Expect(Running *running, const Step &step, std::string *why) {
  Actor *actor = ActorOf(running, step);
  Stage *stage = &running->stage;
  const std::string shown = Pattern_Show(step.items, stage->scene);
  const auto begin = Clock::now();
  if (!Stage_Connect(stage, actor, why)) {
    *why = "expected " + shown + "; " + *why;
    return false;
  }
  for (;;) {
    // A datagram is whole or not there.
    const bool ended = actor->ended || (actor->datagrams && !actor->came.empty());
    std::size_t length = 0;
    const Fit fit = Pattern_Match(step.items, actor->came, ended, &stage->scene, &length);
    if (fit == Fit::kYes) {
      if (actor->datagrams && length < actor->came.size()) return Expected(shown, *actor, why);
      actor->came.erase(0, length);
      break;
    }
    if (fit == Fit::kNo) return Expected(shown, *actor, why);
    const int left = stage->patience - Stage_MsSince(begin);
    if (left <= 0 || !Stage_Receive(actor, left)) return Expected(shown, *actor, why);
  }
  return true;
}

bool ExpectEnd(Running *running, const Step &step, std::string *why) {
  Actor *actor = ActorOf(running, step);
  const bool reset = step.verb == Verb::kExpectReset;
  const char *what = reset ? "the end or a reset" : "the end";
  if (!Stage_Connect(&running->stage, actor, why)) return false;
  const auto begin = Clock::now();
  while (!actor->ended && actor->came.empty()) {
    const int left = running->stage.patience - Stage_MsSince(begin);
    if (left <= 0 || !Stage_Receive(actor, left)) return Expected(what, *actor, why);
  }
  if (!actor->came.empty() || (actor->reset && !reset)) return Expected(what, *actor, why);
  return true;
}

bool ExpectNothing(Running *running, const Step &step, std::string *why) {
  Actor *actor = ActorOf(running, step);
  if (!Stage_Connect(&running->stage, actor, why)) return false;
  Stage_Receive(actor, step.count);
  return (actor->came.empty() && !actor->ended) || Expected("nothing", *actor, why);
}

bool NotCalled(Running *running, const Step &step, std::string *why) {
  const Actor *actor = ActorOf(running, step);
  pollfd ready = {actor->listener, POLLIN, 0};
  if (actor->sock < 0 && poll(&ready, 1, 0) <= 0) return true;
  *why = "expected that nobody calls " + step.actor + "; somebody did";
  return false;
}

bool Log(Running *running, const Step &step, std::string *why) {
  const std::string wanted = Pattern_Bytes(step.items, running->stage.scene);
  const auto begin = Clock::now();
  for (;;) {
    const std::string log = Program_Errors(running->program);
    const bool found = log.find(wanted) != std::string::npos;
    if (found == (step.verb == Verb::kLogHas)) return true;
    if (!found && Stage_MsSince(begin) < running->stage.patience) {
      std::this_thread::sleep_for(milliseconds(kLookEveryMs));
      continue;
    }
    *why = std::string(found ? "expected no line of the log with " : "expected in the log ") +
           Transcript_Quote(wanted) + "; the log is " +
           Pattern_Show({{ItemKind::kLiteral, log, 0, {}}}, {});
    return false;
  }
}

bool File(Running *running, const Step &step, std::string *why) {
  const std::string path = running->stage.scene.dir + "/" + step.actor;
  std::error_code ignored;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
  if (Program_WriteFile(path, Pattern_Bytes(step.items, running->stage.scene))) return true;
  *why = "cannot write " + path;
  return false;
}

bool Start(Running *running, const Step &step, std::string *why) {
  std::vector<std::string> arguments;
  for (const Item &item : step.items)
    arguments.push_back(Pattern_Bytes({item}, running->stage.scene));
  Program_Stop(&running->program);
  running->program = {-1, running->stage.scene.dir, false, -1};
  const std::string port = std::to_string(running->stage.scene.ports["daemon"]);
  if (Program_Start(&running->program, running->command, arguments,
                    {"KORVO_HOST=127.0.0.1", "KORVO_PORT=" + port,
                     std::string("KORVO_GROUP=") + kRunId, "KORVO_MACRO=package"}))
    return true;
  *why = "cannot start " + running->command;
  return false;
}

bool Finished(Running *running, std::string *why) {
  if (Program_Wait(&running->program, running->stage.patience)) return true;
  *why = "expected the end of the program; it goes on";
  return false;
}

bool Output(Running *running, const Step &step, std::string *why) {
  if (!Finished(running, why)) return false;
  Actor shown;
  shown.came = Program_Output(running->program);
  std::size_t length = 0;
  const Fit fit = Pattern_Match(step.items, shown.came, true, &running->stage.scene, &length);
  if (fit == Fit::kYes && length == shown.came.size()) return true;
  const std::string output = Pattern_Show(step.items, running->stage.scene);
  return Expected("the output " + (output.empty() ? std::string("\"\"") : output), shown, why);
}

bool Status(Running *running, const Step &step, std::string *why) {
  if (!Finished(running, why)) return false;
  const bool same = running->program.status == step.count;
  if (same == (step.verb == Verb::kStatus)) return true;
  *why = std::string("expected ") + (same ? "another status than " : "the status ") +
         std::to_string(step.count) + "; it was " + std::to_string(running->program.status);
  return false;
}

bool Act(Running *running, const Step &step, std::string *why) {
  Actor *actor = ActorOf(running, step);
  switch (step.verb) {
    case Verb::kSend: return Send(running, step, why);
    case Verb::kExpect: return Expect(running, step, why);
    case Verb::kExpectEnd:
    case Verb::kExpectReset: return ExpectEnd(running, step, why);
    case Verb::kExpectNothing: return ExpectNothing(running, step, why);
    case Verb::kConnect: return Stage_Connect(&running->stage, actor, why);
    case Verb::kClose: Stage_Part(actor, false); return true;
    case Verb::kReset: Stage_Part(actor, true); return true;
    case Verb::kHalfClose: shutdown(actor->sock, SHUT_WR); return true;
    case Verb::kLeave: Stage_Leave(actor); return true;
    case Verb::kNotCalled: return NotCalled(running, step, why);
    case Verb::kWait: std::this_thread::sleep_for(milliseconds(step.count)); return true;
    case Verb::kLogHas:
    case Verb::kLogLacks: return Log(running, step, why);
    case Verb::kFile: return File(running, step, why);
    case Verb::kStart: return Start(running, step, why);
    case Verb::kOutput: return Output(running, step, why);
    default: return Status(running, step, why);
  }
}

}  // namespace

bool Run_Step(Running *running, const Step &step, std::string *why) {
  const auto begin = Clock::now();
  if (!Act(running, step, why)) return false;
  const int took = Stage_MsSince(begin);
  if (step.before > 0 && took >= step.before) {
    *why = "expected it before " + std::to_string(step.before) + " ms; it took " +
           std::to_string(took) + " ms";
    return false;
  }
  if (took >= step.not_before) return true;
  *why = "expected it not before " + std::to_string(step.not_before) + " ms; it took " +
         std::to_string(took) + " ms";
  return false;
}
