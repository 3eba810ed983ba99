// korvo-index: stores documents in a database that the managers read.
#include <fcntl.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "index/indexer.h"
#include "index/progress.h"
#include "index/reader.h"
#include "index/source.h"
#include "tools/common/tool.h"

namespace {

constexpr std::chrono::milliseconds kProgressStep(200);
constexpr int kProgressCheck = 16;  // documents between two looks at the clock

constexpr const char *kHelp =
    "usage: korvo-index [OPTION]... DATABASE FILE...\n"
    "       korvo-index [OPTION]... --delete DATABASE ID...\n"
    "\n"
    "  --schema FILE      what the fields are, for a new database\n"
    "  --id FIELD         the field that names a document, where no schema says it\n"
    "  --format NAME      control, jsonl, csv or tsv, whatever the files are called\n"
    "  --delete           delete the documents of these IDs\n"
    "  --commit NUMBER    let readers see every NUMBER documents, not all at the end\n"
    "  --skip-bad         leave faulty documents out\n"
    "  --no-positions     without phrases, in a smaller database\n"
    "  --no-spelling      without corrections of words, in a smaller database\n"
    "  --help             this text\n"
    "  --version          the version\n"
    "\n"
    "FILE: .jsonl, .ndjson, .json, .csv or .tsv, any other is a control file; .gz or .xz may\n"
    "follow; - is standard input.\n"
    "Status: 0; 64 wrong use; 65 a document, or a schema, is faulty; 66 a file cannot be read;\n"
    "73 the database cannot be opened; 74 writing failed.\n";

constexpr option kOptions[] = {{"commit", required_argument, nullptr, 'c'},
                               {"delete", no_argument, nullptr, 'd'},
                               {"format", required_argument, nullptr, 'f'},
                               {"help", no_argument, nullptr, 'h'},
                               {"id", required_argument, nullptr, 'i'},
                               {"no-positions", no_argument, nullptr, 'p'},
                               {"no-spelling", no_argument, nullptr, 's'},
                               {"schema", required_argument, nullptr, 'S'},
                               {"skip-bad", no_argument, nullptr, 'b'},
                               {"version", no_argument, nullptr, 'v'},
                               {nullptr, 0, nullptr, 0}};

struct Command {
  IndexerOptions options = {"", nullptr, "", 0, true, true, true};
  const char *schema_file = nullptr;
  const char *format = nullptr;
  bool remove = false;
  bool skip_bad = false;
  std::vector<const char *> words;  // files, or what is deleted
};

// What a run has come to.
struct Run {
  const Command *command;
  Indexer indexer;
  std::int64_t left_out;
  Progress progress;
  std::int64_t done_before;  // bytes of the files before this one
  std::chrono::steady_clock::time_point started, shown;
  int unshown;  // documents since the last look at the clock
};

volatile std::sig_atomic_t interrupted = 0;

void Interrupt(int number) { interrupted = number; }

// They end the reading, so that what is not committed is taken back in order.
void CatchSignals() {
  struct sigaction action = {}, before = {};
  action.sa_handler = Interrupt;
  for (const int number : {SIGHUP, SIGINT, SIGTERM}) {
    sigaction(number, nullptr, &before);
    if (before.sa_handler != SIG_IGN) sigaction(number, &action, nullptr);
  }
}

// Ends the process by the signal that it has met, as whoever sent it expects.
void EndBySignal() {
  std::signal(interrupted, SIG_DFL);
  std::raise(interrupted);
}

[[noreturn]] void Show(const char *text) {
  Tool_Print(text);
  std::exit(EX_OK);
}

void TakeOption(Command *command, int letter) {
  switch (letter) {
    case 'b': command->skip_bad = true; break;
    case 'c': command->options.commit = Tool_Number("--commit", optarg, 1, INT32_MAX); break;
    case 'd': command->remove = true; break;
    case 'f': command->format = optarg; break;
    case 'i': command->options.id = optarg; break;
    case 'p': command->options.positions = false; break;
    case 's': command->options.spelling = false; break;
    case 'S': command->schema_file = optarg; break;
    case 'v': Show("korvo-index " KORVO_VERSION "\n");
    default: Show(kHelp);
  }
}

void CheckCommand(const Command &command) {
  Format format = Format::kControl;
  if (command.format != nullptr && !Reader_Format(command.format, &format))
    Tool_Fail(EX_USAGE, "--format is control, jsonl, csv or tsv, not '%s'", command.format);
  if (!command.options.id.empty() && !Field_IsName(command.options.id))
    Tool_Fail(EX_USAGE, "--id takes the name of a field, not '%s'", command.options.id.c_str());
  if (command.remove &&
      (command.schema_file != nullptr || command.format != nullptr || command.options.commit > 0 ||
       command.skip_bad || !command.options.positions || !command.options.spelling))
    Tool_Fail(EX_USAGE, "--delete goes with --id alone");
}

Command ReadCommand(int argc, char **argv) {
  Command command;
  for (int letter; (letter = Tool_NextOption(argc, argv, ":", kOptions)) != -1;)
    TakeOption(&command, letter);
  if (argc - optind < 2 || argv[optind][0] == '\0' || std::strcmp(argv[optind], "-") == 0)
    Tool_Fail(EX_USAGE, "a database and %s have to be named; --help shows how",
              command.remove ? "at least one ID" : "at least one file");
  command.options.location = argv[optind];
  command.options.create = !command.remove;
  command.words.assign(argv + optind + 1, argv + argc);
  CheckCommand(command);
  return command;
}

Schema ReadSchema(const char *file) {
  std::ifstream in(file);
  if (!in) Tool_Fail(EX_NOINPUT, "cannot open %s: %s", file, std::strerror(errno));
  Schema schema;
  SchemaError error;
  if (!Schema_Read(&in, &schema, &error))
    Tool_Fail(EX_DATAERR, "%s:%d: %s", file, error.line, error.reason.c_str());
  return schema;
}

// What stays in the database when the rest of a run is taken back.
std::string Kept(const Run &run) {
  return run.indexer.committed == 0
             ? "nothing was stored"
             : "stored before: " + std::to_string(run.indexer.committed) + " documents";
}

void ShowProgress(Run *run, const Source &source, bool always) {
  const auto now = std::chrono::steady_clock::now();
  if (!always && now - run->shown < kProgressStep) return;
  run->shown = now;
  run->progress.done = run->done_before + source.taken;
  run->progress.documents = run->indexer.added + run->indexer.replaced;
  run->progress.seconds = std::chrono::duration<double>(now - run->started).count();
  // The end of the line is emptied, and the next text writes over it.
  std::fprintf(stderr, "korvo-index: %s\033[K%s", Progress_Text(run->progress).c_str(),
               always ? "\n" : "\r");
}

void Count(Run *run, const Source &source) {
  if (++run->unshown < kProgressCheck) return;
  run->unshown = 0;
  if (isatty(STDERR_FILENO) != 0) ShowProgress(run, source, false);
}

// A fault of the source.  0 where the run goes on without that document, else the exit status.
int Refuse(Run *run, const char *name, const Reader &reader, bool broken) {
  const bool skip = run->command->skip_bad && !broken;
  const std::string end = skip ? "left out" : Kept(*run);
  Tool_Line("korvo-index: %s:%lld: %s; %s", name, static_cast<long long>(reader.line),
            reader.expected.c_str(), end.c_str());
  if (!skip) return EX_DATAERR;
  ++run->left_out;
  return 0;
}

int RefuseInput(Run *run, const char *name, const std::string &reason) {
  const std::string kept = Kept(*run);
  if (interrupted != 0)
    Tool_Line("korvo-index: interrupted; %s", kept.c_str());
  else
    Tool_Line("korvo-index: cannot read %s: %s; %s", name, reason.c_str(), kept.c_str());
  return EX_NOINPUT;
}

int AddDocument(Run *run, const char *name, Reader *reader, Fields *fields) {
  if (Indexer_Add(&run->indexer, fields, &reader->expected)) return 0;
  return Refuse(run, name, *reader, false);
}

// Each of these is 0, or the exit status, reported.

int AddDocuments(Run *run, const char *name, Reader *reader, Source *source) {
  Fields fields;
  for (int status = 0; status == 0;) {
    switch (interrupted != 0 ? ReadResult::kFailed : Reader_Next(reader, &fields)) {
      case ReadResult::kDocument: status = AddDocument(run, name, reader, &fields); break;
      case ReadResult::kEnd: run->done_before += source->taken; return 0;
      case ReadResult::kBad: status = Refuse(run, name, *reader, false); break;
      case ReadResult::kBroken: return Refuse(run, name, *reader, true);
      case ReadResult::kFailed: return RefuseInput(run, name, source->error);
    }
    if (status != 0) return status;
    Count(run, *source);
  }
  return 0;
}

int AddStream(Run *run, const char *name, int fd) {
  std::string_view plain = name;
  Source source = {fd, Unpack_BySuffix(&plain), &interrupted};
  Reader reader = {Reader_FormatOf(plain), {[&source](char *bytes, std::size_t size) {
                     return Source_Read(&source, bytes, size);
                   }}};
  if (run->command->format != nullptr) Reader_Format(run->command->format, &reader.format);
  return AddDocuments(run, name, &reader, &source);
}

int AddFile(Run *run, const char *name) {
  if (std::strcmp(name, "-") == 0) return AddStream(run, "standard input", STDIN_FILENO);
  const int fd = open(name, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return RefuseInput(run, name, std::strerror(errno));
  const int status = AddStream(run, name, fd);
  close(fd);
  return status;
}

// What a run of an hour would find out at its end.
int CheckFiles(Run *run) {
  for (const char *name : run->command->words) {
    struct stat file = {};
    const bool standard = std::strcmp(name, "-") == 0;
    if (standard ? fstat(STDIN_FILENO, &file) != 0
                 : access(name, R_OK) != 0 || stat(name, &file) != 0)
      Tool_Fail(EX_NOINPUT, "cannot open %s: %s; nothing was stored",
                standard ? "standard input" : name, std::strerror(errno));
    if (!S_ISREG(file.st_mode)) run->progress.total = INT64_MIN;
    if (run->progress.total >= 0) run->progress.total += file.st_size;
  }
  if (run->progress.total < 0) run->progress.total = 0;
  return 0;
}

void Report(const Run &run) {
  const Indexing &indexing = run.indexer.indexing;
  if (indexing.cut > 0)
    Tool_Line("korvo-index: values that were too long and are stored cut: %d", indexing.cut);
  if (!indexing.unknown.empty()) {
    std::string names;
    int count = 0;
    for (const std::string &name : indexing.unknown)
      if (++count <= 10) names += (count > 1 ? ", " : "") + name;
    if (count > 10) names += " and more";
    Tool_Line(
        "korvo-index: the schema does not name these fields; they are stored and not searched: %s",
        names.c_str());
  }
  std::string left_out;
  if (run.left_out > 0) left_out = ", " + std::to_string(run.left_out) + " left out";
  Tool_Line("korvo-index: %lld new, %lld replaced%s", static_cast<long long>(run.indexer.added),
            static_cast<long long>(run.indexer.replaced), left_out.c_str());
}

int RefuseDatabase(const Run &run, const std::string &reason, const char *end) {
  Tool_Line("korvo-index: cannot add to %s: %s; %s", run.command->options.location.c_str(),
            reason.c_str(), end);
  return EX_DATAERR;
}

int AddFiles(Run *run) {
  std::string reason;
  if (!Indexer_Begin(&run->indexer, &reason))
    return RefuseDatabase(*run, reason, "nothing was stored");
  for (const char *name : run->command->words) {
    const int status = AddFile(run, name);
    if (status != 0) return status;
  }
  Indexer_Finish(&run->indexer);
  if (isatty(STDERR_FILENO) != 0) ShowProgress(run, Source{-1, nullptr}, true);
  Report(*run);
  return 0;
}

int Delete(Run *run) {
  std::string reason;
  if (!Indexer_Begin(&run->indexer, &reason))
    return RefuseDatabase(*run, reason, "nothing was deleted");
  if (run->indexer.indexing.id.empty())
    return RefuseDatabase(*run, "no field names its documents: --id FIELD does",
                          "nothing was deleted");
  unsigned long deleted = 0;
  for (const char *id : run->command->words) {
    const Xapian::doccount found = Indexer_Delete(&run->indexer, id);
    deleted += found;
    if (found == 0) Tool_Line("korvo-index: there is no document '%s'", id);
  }
  run->indexer.database.commit_transaction();
  Tool_Line("korvo-index: %lu deleted", deleted);
  return 0;
}

int Open(Run *run) {
  try {
    Indexer_Open(&run->indexer);
    return 0;
  } catch (const Xapian::Error &error) {
    Tool_Line("korvo-index: cannot open %s for writing: %s", run->indexer.options.location.c_str(),
              error.get_description().c_str());
    return EX_CANTCREAT;
  }
}

int Work(Run *run) {
  const char *location = run->command->options.location.c_str();
  try {
    return run->command->remove ? Delete(run) : AddFiles(run);
  } catch (const Xapian::Error &error) {
    Tool_Line("korvo-index: cannot write %s: %s", location, error.get_description().c_str());
  } catch (const std::exception &error) {
    Tool_Line("korvo-index: cannot write %s: %s", location, error.what());
  }
  return EX_IOERR;
}

}  // namespace

int main(int argc, char **argv) {
  Tool_Start();
  Command command = ReadCommand(argc, argv);
  Schema schema;
  if (command.schema_file != nullptr) {
    schema = ReadSchema(command.schema_file);
    command.options.schema = &schema;
  }
  Run run = {};
  run.command = &command;
  run.indexer.options = command.options;
  run.started = std::chrono::steady_clock::now();
  if (!command.remove) CheckFiles(&run);
  CatchSignals();
  int status = Open(&run);
  if (status == 0) status = Work(&run);
  if (status != 0) Indexer_Abandon(&run.indexer);
  if (interrupted != 0 && status != 0) EndBySignal();
  return status;
}
