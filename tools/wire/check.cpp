// korvo-wire check: the cases of the conformance kit against a program.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tools/common/tool.h"
#include "tools/wire/commands.h"
#include "tools/wire/report.h"
#include "tools/wire/stage.h"

namespace {

constexpr int kPatienceMs = 10000;
constexpr int kMaxJobs = 256;

struct RoleName {
  const char *word;
  Role role;
  bool started;  // by the kit
};

constexpr RoleName kRoles[] = {{"daemon", Role::kDaemon, true},
                               {"searchmgr", Role::kSearchMgr, false},
                               {"docmgr", Role::kDocMgr, false},
                               {"client", Role::kClient, true}};

struct FormName {
  const char *word;
  ReportForm form;
};

constexpr FormName kForms[] = {
    {"text", ReportForm::kText}, {"tap", ReportForm::kTap}, {"junit", ReportForm::kJunit}};

struct Check {
  ReportForm form = ReportForm::kText;
  int jobs = 0;
  std::string cases;  // folder or file
  std::vector<std::string> wanted;
  Subject subject;
};

constexpr option kOptions[] = {{"format", required_argument, nullptr, 'f'},
                               {"jobs", required_argument, nullptr, 'j'},
                               {"patience", required_argument, nullptr, 'p'},
                               {"cases", required_argument, nullptr, 'd'},
                               {"case", required_argument, nullptr, 'c'},
                               {"admin", required_argument, nullptr, 'a'},
                               {"help", no_argument, nullptr, 'h'},
                               {"version", no_argument, nullptr, 'V'},
                               {nullptr, 0, nullptr, 0}};

ReportForm FormOf(const std::string &word) {
  for (const FormName &name : kForms)
    if (word == name.word) return name.form;
  Tool_Fail(EX_USAGE, "--format takes text, tap or junit, not '%s'", word.c_str());
}

void TakeOption(Check *check, int letter) {
  switch (letter) {
    case 'f': check->form = FormOf(optarg); break;
    case 'j': check->jobs = Tool_Number("--jobs", optarg, 1, kMaxJobs); break;
    case 'p': check->subject.patience = Tool_Number("--patience", optarg, 1, kTranscriptMs); break;
    case 'd': check->cases = optarg; break;
    case 'c': check->wanted.emplace_back(optarg); break;
    case 'a': check->subject.admin_port = Wire_Address(optarg, "--admin"); break;
    default: Wire_TakeInfo(letter);
  }
}

// Cases are installed beside the programs.
std::string UsualCases() {
  std::error_code ignored;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", ignored);
  return program.parent_path().parent_path().string() + "/share/korvo/conformance";
}

void TakeSubject(Check *check, const RoleName &role, const char *what) {
  check->subject.role = role.role;
  if (role.started)
    check->subject.command = what;
  else
    check->subject.client_port = Wire_Address(what, role.word);
}

Check ReadCommand(int argc, char **argv) {
  Check check;
  check.subject.patience = kPatienceMs;
  check.jobs = static_cast<int>(std::max(2U, 2 * std::thread::hardware_concurrency()));
  check.cases = UsualCases();
  for (int letter; (letter = Tool_NextOption(argc, argv, ":", kOptions)) != -1;)
    TakeOption(&check, letter);
  if (argc - optind != 2)
    Tool_Fail(EX_USAGE,
              "check takes daemon or client and a command, or searchmgr or docmgr and HOST:PORT");
  for (const RoleName &role : kRoles)
    if (std::strcmp(argv[optind], role.word) == 0) {
      TakeSubject(&check, role, argv[optind + 1]);
      if (std::filesystem::is_directory(check.cases)) check.cases += std::string("/") + role.word;
      return check;
    }
  Tool_Fail(EX_USAGE, "check takes daemon, searchmgr, docmgr or client, not '%s'", argv[optind]);
}

std::vector<std::string> FilesOf(const std::string &cases) {
  std::vector<std::string> files;
  std::error_code ignored;
  for (const auto &entry : std::filesystem::directory_iterator(cases, ignored))
    if (entry.path().extension() == ".transcript") files.push_back(entry.path());
  if (files.empty()) files.push_back(cases);
  std::sort(files.begin(), files.end());
  return files;
}

bool IsOfAProgram(Verb verb) {
  return verb == Verb::kLogHas || verb == Verb::kLogLacks || verb == Verb::kOutput ||
         verb == Verb::kStatus || verb == Verb::kStatusNot;
}

// A daemon is started by the kit, a client by its case, and a manager runs already.
void RefuseStepsWithoutProgram(const Transcript &transcript, Role role) {
  if (role == Role::kDaemon) return;
  for (const Case &which : transcript.cases) {
    bool started = false;
    for (const Step &step : which.steps) {
      if (step.verb == Verb::kStart && role != Role::kClient)
        Tool_Fail(EX_DATAERR, "%s:%d: a manager runs already, and nothing is started",
                  which.file.c_str(), step.line);
      if (step.verb == Verb::kStart) started = true;
      if (IsOfAProgram(step.verb) && !started)
        Tool_Fail(EX_DATAERR, "%s:%d: no program has been started", which.file.c_str(), step.line);
    }
  }
}

std::vector<Case> ReadCases(const Check &check) {
  std::vector<Case> cases;
  std::set<std::string> missed(check.wanted.begin(), check.wanted.end());
  for (const std::string &file : FilesOf(check.cases)) {
    const Transcript transcript = Wire_Transcript(file);
    RefuseStepsWithoutProgram(transcript, check.subject.role);
    for (const Case &which : transcript.cases)
      if (missed.erase(which.name) > 0 || check.wanted.empty()) cases.push_back(which);
  }
  if (!missed.empty())
    Tool_Fail(EX_NOINPUT, "there is no case %s in %s", missed.begin()->c_str(),
              check.cases.c_str());
  return cases;
}

// A manager may be about to start.  One that never does fails case by case.
void AwaitManager(const Subject &subject) {
  constexpr std::chrono::milliseconds kPause(20);
  const auto begin = std::chrono::steady_clock::now();
  while (Stage_MsSince(begin) < subject.patience) {
    Stage stage;
    stage.client_port = subject.client_port;
    std::string why;
    const bool listens = Stage_Connect(&stage, &stage.actors["daemon"], &why);
    Stage_Close(&stage);
    if (listens) return;
    std::this_thread::sleep_for(kPause);
  }
}

// A case in a process of its own, which writes its outcome.
struct Worker {
  pid_t pid = -1;
  int pipe = -1;
  std::size_t index = 0;
  std::string said;
};

Worker Begin(const Case &which, const Subject &subject, std::size_t index) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0)
    Tool_Fail(EX_OSERR, "cannot open a pipe: %s", std::strerror(errno));
  const pid_t pid = fork();
  if (pid < 0) Tool_Fail(EX_OSERR, "cannot start a process: %s", std::strerror(errno));
  if (pid == 0) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    const Outcome outcome = Case_Run(which, subject);
    const std::string said = std::to_string(static_cast<int>(outcome.result)) + " " +
                             std::to_string(outcome.line) + " " + outcome.why;
    _exit(Tool_Write(ends[1], said) == 0 ? 0 : 1);
  }
  close(ends[1]);
  return {pid, ends[0], index, {}};
}

// True when the worker has written all of it.
bool Collect(Worker *worker) {
  char buffer[65536];
  const ssize_t got = read(worker->pipe, buffer, sizeof buffer);
  if (got > 0) worker->said.append(buffer, static_cast<std::size_t>(got));
  return got <= 0;
}

Outcome OutcomeOf(const Worker &worker) {
  close(worker.pipe);
  waitpid(worker.pid, nullptr, 0);
  const char *at = worker.said.data(), *end = at + worker.said.size();
  int result = 0, line = 0;
  at = std::from_chars(at, end, result).ptr;
  if (at != end) at = std::from_chars(at + 1, end, line).ptr;
  if (at == end) return {Result::kFailed, 0, "the process of the case ended without a word"};
  return {static_cast<Result>(result), line, std::string(at + 1, end)};
}

// Cases are independent of each other: as many at once as there are jobs.
std::vector<Ran> RunAll(const Check &check, const std::vector<Case> &cases) {
  std::vector<Ran> all;
  all.reserve(cases.size());
  for (const Case &which : cases) all.push_back({&which, {}});
  std::vector<Worker> workers;
  for (std::size_t next = 0; next < cases.size() || !workers.empty();) {
    for (; next < cases.size() && workers.size() < static_cast<std::size_t>(check.jobs); ++next)
      workers.push_back(Begin(cases[next], check.subject, next));
    std::vector<pollfd> ready;
    ready.reserve(workers.size());
    for (const Worker &worker : workers) ready.push_back({worker.pipe, POLLIN, 0});
    poll(ready.data(), ready.size(), -1);
    for (std::size_t i = workers.size(); i-- > 0;) {
      if (ready[i].revents == 0 || !Collect(&workers[i])) continue;
      all[workers[i].index].outcome = OutcomeOf(workers[i]);
      workers.erase(workers.begin() + static_cast<std::ptrdiff_t>(i));
    }
  }
  return all;
}

}  // namespace

int Wire_Check(int argc, char **argv) {
  const Check check = ReadCommand(argc, argv);
  const std::vector<Case> cases = ReadCases(check);
  if (check.subject.command.empty()) AwaitManager(check.subject);
  const std::vector<Ran> all = RunAll(check, cases);
  Tool_Print(Report_Format(check.form, all));
  const auto has = [&](Result result) {
    return std::any_of(all.begin(), all.end(),
                       [&](const Ran &ran) { return ran.outcome.result == result; });
  };
  // Where every case is left out, nothing is said for the program.
  return has(Result::kFailed) || !has(Result::kPassed) ? kWireDiffers : EX_OK;
}
