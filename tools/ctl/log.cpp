#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>

#include "debug/text.h"
#include "tools/common/tool.h"
#include "tools/ctl/commands.h"
#include "tools/ctl/entries.h"
#include "tools/ctl/messages.h"
#include "tools/ctl/process.h"
#include "tools/ctl/run.h"
#include "tools/ctl/unit.h"

namespace {

constexpr timespec kPause = {0, 200000000};  // between two looks at a log that is followed

using Known = std::vector<const Message *>;  // as Messages_Find gives it

struct Kind {
  Known known;
  int count;
};

struct Reader {
  const Request &request;
  std::vector<Message> messages;
  std::map<std::string, Kind> kinds;
  std::string rest;      // what came behind the last whole entry
  std::size_t searched;  // bytes of that in which its end is not
};

bool IsModule(std::string_view module, const std::string &wanted) {
  return wanted.empty() || module == wanted || module.starts_with(wanted + ":");
}

bool IsWanted(const Request &request, const Entry &entry, const Known &known) {
  return (request.pid == 0 || entry.pid == request.pid) &&
         IsModule(Messages_Module(entry.body), request.module) &&
         // A text that nobody knows may be of any level.
         (known.empty() || known[0]->level >= request.level);
}

std::string Explanation(const Known &known) {
  if (known.empty()) return "  this text is not known\n";
  std::string text;
  for (const Message *message : known) {
    if (known.size() > 1) text += Tool_Format("  when it comes at level %d\n", message->level);
    text += "  cause: " + message->cause + "\n  effect: " + message->effect +
            "\n  remedy: " + message->remedy + "\n";
  }
  return text;
}

// How a kind is called: the text of the source, or the first line with N for its numbers.
std::string NameOf(const Entry &entry, const Known &known) {
  if (!known.empty())
    return known[0]->module == "-" ? known[0]->text
                                   : "[" + known[0]->module + "] " + known[0]->text;
  std::string name;
  for (const char c : entry.body.substr(0, entry.body.find('\n'))) {
    const bool is_digit = c >= '0' && c <= '9';
    if (!is_digit)
      name += c;
    else if (name.empty() || name.back() != 'N')
      name += 'N';
  }
  return name;
}

void TakeEntry(Reader *reader, std::string_view text) {
  if (text.empty()) return;
  const Entry entry = Entries_Of(text);
  const Known known = Messages_Find(reader->messages, entry.body);
  if (!IsWanted(reader->request, entry, known)) return;
  if (reader->request.count) {
    ++reader->kinds.try_emplace(NameOf(entry, known), Kind{known, 0}).first->second.count;
    return;
  }
  Tool_Print(entry.header + entry.body);
  if (reader->request.explain) Tool_Print(Explanation(known));
}

// Where the entry ends that begins there: at the next separator, or of a line that none stands
// before, as korvo-web writes them, behind it.  The end is not before from.
std::size_t EntryEnd(std::string_view text, std::size_t begin, std::size_t from) {
  if (text.substr(begin).starts_with(kEntrySeparator))
    return text.find(kEntrySeparator, std::max(begin + 1, from));
  const std::size_t end = text.find('\n', std::max(begin, from));
  return end == std::string_view::npos ? end : end + 1;
}

// Takes the entries that are whole.
void TakeBytes(Reader *reader, std::string_view bytes) {
  reader->rest += bytes;
  const std::string_view rest = reader->rest;
  std::size_t begin = 0;
  std::size_t from = reader->searched;
  for (std::size_t end; (end = EntryEnd(rest, begin, from)) != std::string_view::npos;) {
    TakeEntry(reader, rest.substr(begin, end - begin));
    begin = from = end;
  }
  reader->rest.erase(0, begin);
  const std::size_t size = reader->rest.size();
  reader->searched = size - std::min(size, kEntrySeparator.size());
}

// What is left is an entry as soon as nothing follows it.
void TakeRest(Reader *reader) {
  if (!reader->rest.empty() && reader->rest.back() != '\n') return;
  TakeEntry(reader, reader->rest);
  reader->rest.clear();
  reader->searched = 0;
}

std::string KindJson(const std::string &name, const Kind &kind) {
  const Message *known = kind.known.empty() ? nullptr : kind.known[0];
  std::string text = Tool_Format(
      "{\"count\": %d, \"level\": %s, \"module\": %s, \"text\": %s", kind.count,
      known != nullptr ? std::to_string(known->level).c_str() : "null",
      Request_Json(Messages_Module(name)).c_str(), Request_Json(Messages_Text(name)).c_str());
  if (known != nullptr)
    text += Tool_Format(", \"cause\": %s, \"effect\": %s, \"remedy\": %s",
                        Request_Json(known->cause).c_str(), Request_Json(known->effect).c_str(),
                        Request_Json(known->remedy).c_str());
  return text + "}";
}

void PrintKinds(const Reader &reader) {
  std::vector<std::pair<std::string, Kind>> kinds(reader.kinds.begin(), reader.kinds.end());
  std::stable_sort(kinds.begin(), kinds.end(),
                   [](const auto &a, const auto &b) { return a.second.count > b.second.count; });
  if (reader.request.form == Form::kJson) {
    std::string text;
    for (const auto &[name, kind] : kinds)
      text += (text.empty() ? "[" : ",\n ") + KindJson(name, kind);
    return Tool_Print(text.empty() ? "[]\n" : text + "]\n");
  }
  for (const auto &named : kinds) {
    const Kind &kind = named.second;
    Tool_Print(Tool_Format("%7d  ", kind.count) + named.first + "\n");
    if (reader.request.explain) Tool_Print(Explanation(kind.known));
  }
}

int OpenLog(const std::string &path) {
  const int fd = path.empty() ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) Tool_Fail(EX_NOINPUT, "cannot read %s: %s", path.c_str(), std::strerror(errno));
  return fd;
}

void ReadToEnd(Reader *reader, int fd, const std::string &path) {
  char buffer[65536];
  for (ssize_t got; (got = read(fd, buffer, sizeof buffer)) != 0;) {
    if (got < 0)
      Tool_Fail(EX_NOINPUT, "cannot read %s: %s", path.empty() ? "standard input" : path.c_str(),
                std::strerror(errno));
    TakeBytes(reader, std::string_view(buffer, static_cast<std::size_t>(got)));
  }
}

// A log that was moved away and made anew, or emptied, is read from its beginning.
bool IsReplaced(int fd, const std::string &path) {
  struct stat here = {}, there = {};
  if (fstat(fd, &here) != 0 || stat(path.c_str(), &there) != 0) return false;
  return here.st_ino != there.st_ino || here.st_dev != there.st_dev ||
         there.st_size < lseek(fd, 0, SEEK_CUR);
}

[[noreturn]] void Follow(Reader *reader, int fd, const std::string &path) {
  for (;;) {
    TakeRest(reader);
    nanosleep(&kPause, nullptr);
    if (!path.empty() && IsReplaced(fd, path)) {
      ReadToEnd(reader, fd, path);
      TakeRest(reader);
      close(fd);
      fd = OpenLog(path);
    }
    ReadToEnd(reader, fd, path);
  }
}

// Where the log of a program is: a file, or the journal.
struct Place {
  std::string path;
  std::string unit;
};

Place PlaceOf(const Request &request) {
  const std::string word = Request_Word(request, 0);
  struct stat file = {};
  if (word.empty() || stat(word.c_str(), &file) == 0) return {word, ""};
  Conf conf = {request.dir + "/korvo.conf", {}};
  int err = 0;  // without a korvo.conf the word is a file that is not there
  conf.lines = Conf_Lines(Conf_Pieces(conf.path, &err));
  const std::vector<const ConfLine *> lines = Conf_Named(conf, word);
  if (lines.empty()) return {word, ""};
  const ConfLine *line = Conf_TakeOnly(lines, word);
  const pid_t main = Process_Main(*line);
  if (const std::string path = Process_LogFile(main); !path.empty()) return {path, ""};
  std::string unit = Process_Unit(main);
  if (unit.empty() && Conf_IsHere(*line) && !Unit_State(Unit_Name(*line)).empty())
    unit = Unit_Name(*line);
  if (unit.empty())
    Tool_Fail(
        EX_NOINPUT,
        "cannot find the log of %s: this user sees no file at its standard error, and no unit "
        "of systemd runs it here",
        Ask_Target(*line).name.c_str());
  return {"", unit};
}

// What the journal has of a unit, as it was written.
void ReadJournal(Reader *reader, const std::string &unit) {
  std::vector<std::string> argv = {"journalctl", "--quiet", "--output=cat", "--unit=" + unit};
  if (reader->request.follow) argv.insert(argv.end(), {"--follow", "--no-tail"});
  const Running journal = Run_Begin(argv);
  char buffer[65536];
  for (ssize_t got = 1; got > 0;) {
    // An entry that nothing follows for a while is whole.
    pollfd ready = {journal.output, POLLIN, 0};
    if (reader->request.follow && poll(&ready, 1, kPause.tv_nsec / 1000000) == 0) {
      TakeRest(reader);
      continue;
    }
    got = read(journal.output, buffer, sizeof buffer);
    if (got > 0) TakeBytes(reader, std::string_view(buffer, static_cast<std::size_t>(got)));
  }
  if (Run_End(journal) != 0)
    Tool_Fail(EX_NOINPUT, "journalctl cannot show the log of %s", unit.c_str());
}

}  // namespace

int Command_Log(Request *request) {
  if (request->count && request->follow)
    Tool_Fail(EX_USAGE, "--count needs the end of a log, and --follow never comes to one");
  if (request->form == Form::kJson && !request->count)
    Tool_Fail(EX_USAGE, "--json is for --count alone: a log is text");
  Reader reader = {*request, {}, {}, "", 0};
  const bool is_needed = request->explain || request->level > 0;
  if (!Messages_Read(request->messages, &reader.messages) && is_needed)
    Tool_Fail(EX_NOINPUT, "cannot read %s: %s; --messages names another", request->messages.c_str(),
              std::strerror(errno));
  const Place place = PlaceOf(*request);
  if (!place.unit.empty()) {
    ReadJournal(&reader, place.unit);
  } else {
    const int fd = OpenLog(place.path);
    ReadToEnd(&reader, fd, place.path);
    if (request->follow) Follow(&reader, fd, place.path);
  }
  TakeEntry(&reader, reader.rest);
  if (request->count) PrintKinds(reader);
  return EX_OK;
}
