#include "config/conf_file.h"

#include <cerrno>
#include <cstdio>
#include <string_view>

#include "debug/log.h"
#include "debug/signal_hold.h"
#include "debug/text.h"

namespace {

constexpr int kLineSize = 1024;  // bytes of one read; a longer line is read, and counted, in pieces
constexpr std::string_view kBlanks = " \t\n";

struct LineReader {
  std::FILE *file;
  int number;  // of the piece in line, from 1
  char line[kLineSize];
};

enum class Next { kLine, kEnd, kFailed };

// Reads the next piece.  Kept: what the end of the file stops is the end, so a last line without
// its newline is not seen.
Next ReadLine(LineReader *reader) {
  ++reader->number;
  const char *got = std::fgets(reader->line, kLineSize, reader->file);
  if (std::feof(reader->file) != 0) return Next::kEnd;
  return got != nullptr ? Next::kLine : Next::kFailed;
}

// Finds the line that begins with id and leaves the tokens behind it.
Next FindLine(LineReader *reader, std::string_view id, std::string_view *tokens) {
  for (;;) {
    const Next next = ReadLine(reader);
    if (next != Next::kLine) return next;
    *tokens = reader->line;
    const std::string_view first = Text_Token(tokens, kBlanks);
    if (!first.empty() && first.front() != '#' && first == id) return next;
  }
}

template <std::size_t N>
void CopyConf(char (&field)[N], std::string_view value, const char *name) {
  if (!Text_Copy(field, value))
    DPRINTF(nullptr, kWarning, "[Init: ReadConf] %s cut to '%s'\n", name, field);
}

template <std::size_t N>
void CopyDB(char (&field)[N], std::string_view value, const char *name) {
  if (!Text_Copy(field, value))
    DPRINTF(nullptr, kWarning, "[Init: ReadDB] %s cut to '%s'\n", name, field);
}

// Takes the next token as a port; false when there is none.
bool TakePort(std::string_view *tokens, std::int16_t *port) {
  const std::string_view token = Text_Token(tokens, kBlanks);
  if (token.empty()) return false;
  *port = Text_ToPort(token);
  return true;
}

enum class Match { kComplete, kOtherType, kIncomplete };

Match FillConfig(ConfigInfo *config, const char *id, char type, std::string_view tokens) {
  (void)Text_Copy(config->ID, id);
  const std::string_view letter = Text_Token(&tokens, kBlanks);
  if (letter.size() != 1) return Match::kIncomplete;
  if (letter.front() != type) return Match::kOtherType;
  config->Type = letter.front();
  CopyConf(config->ID, id, "ID");  // says, once, that it is cut

  const std::string_view ip = Text_Token(&tokens, kBlanks);
  if (ip.empty()) return Match::kIncomplete;
  CopyConf(config->IP, ip, "IP");
  if (!TakePort(&tokens, &config->ClientPort)) return Match::kIncomplete;
  if (!TakePort(&tokens, &config->AdminPort)) return Match::kIncomplete;

  const std::string_view parent = Text_Token(&tokens, kBlanks);
  if (parent.empty()) return Match::kIncomplete;
  if (parent.front() != '-') CopyConf(config->ParentID, parent, "PARENTID");
  return Match::kComplete;
}

int FillDB(DBInfo *dbinfo, const char *filename, int number, const char *id,
           std::string_view tokens) {
  CopyDB(dbinfo->ID, id, "ID");
  const std::string_view name = Text_Token(&tokens, kBlanks);
  if (name.empty()) {
    DPRINTF(nullptr, kFatal, "[Init: ReadDB:DBName] Error reading '%s': Incomplete line [%d].\n",
            filename, number);
    return 0;
  }
  CopyDB(dbinfo->DBName, name, "DBNAME");
  const std::string_view search = Text_Token(&tokens, kBlanks);
  if (search.empty()) {
    DPRINTF(nullptr, kFatal, "[Init: ReadDB:SearchLoc] Error reading '%s': Incomplete line [%d].\n",
            filename, number);
    return 0;
  }
  CopyDB(dbinfo->SearchLocation, search, "SEARCHLOC");
  const std::string_view doc = Text_Token(&tokens, kBlanks);
  if (doc.empty()) {
    DPRINTF(nullptr, kFatal, "[Init: ReadDB:DocLoc] Error reading '%s': Incomplete line [%d].\n",
            filename, number);
    return 0;
  }
  CopyDB(dbinfo->DocLocation, doc, "DOCLOC");
  return 1;
}

bool IsEmpty(const char *text) { return text == nullptr || *text == '\0'; }

}  // namespace

int Init_ReadConf(const char *filename, const char *id, char type, ConfigInfo *config) {
  if (IsEmpty(filename)) {
    DPRINTF(nullptr, kFatal, "[Init: ReadConf] Filename NULL or zero-length.\n");
    return 0;
  }
  if (IsEmpty(id)) {
    DPRINTF(nullptr, kFatal, "[Init: ReadConf] ID NULL or zero-length.\n");
    return 0;
  }
  if (config == nullptr) {
    DPRINTF(nullptr, kFatal, "[Init: ReadConf] ConfigInfo NULL.\n");
    return 0;
  }
  DPRINTF(nullptr, kInfo, "[Init: ReadConf] Searching '%s' for '%s' (type '%c').\n", filename, id,
          type);
  *config = {};

  const SignalHold hold;  // for the stream
  LineReader reader = {};
  // Kept: never closed.  Start-up reads three times at most, and the open file shows operators
  // which configuration a process was started from.
  reader.file = std::fopen(filename, "r");
  if (reader.file == nullptr) {
    DPRINTF(nullptr, kFatal, "[Init: ReadConf] Unable to open '%s': errno = %d\n", filename, errno);
    return 0;
  }
  std::string_view tokens;
  Next next;
  while ((next = FindLine(&reader, id, &tokens)) == Next::kLine) {
    const Match match = FillConfig(config, id, type, tokens);
    if (match == Match::kComplete) return 1;
    if (match == Match::kIncomplete) {
      DPRINTF(nullptr, kFatal, "[Init: ReadConf] Error reading '%s': Incomplete line [%d].\n",
              filename, reader.number);
      return 0;
    }
  }
  if (next == Next::kFailed)  // a directory, say
    DPRINTF(nullptr, kFatal, "[Init: ReadConf] Unable to open '%s': errno = %d\n", filename, errno);
  else
    DPRINTF(nullptr, kFatal, "[Init: ReadConf] Could not locate id = '%s' in file '%s'\n", id,
            filename);
  return 0;
}

bool Init_HasConf(const char *filename, const char *id, char type) {
  const SignalHold hold;
  LineReader reader = {};
  reader.file = std::fopen(filename, "r");
  if (reader.file == nullptr) return false;
  std::string_view tokens;
  bool found = false;
  while (!found && FindLine(&reader, id, &tokens) == Next::kLine)
    found = Text_Token(&tokens, kBlanks) == std::string_view(&type, 1);
  std::fclose(reader.file);
  return found;
}

int Init_ReadDB(const char *filename, const char *id, DBInfo *dbinfo) {
  if (IsEmpty(filename)) {
    DPRINTF(nullptr, kFatal, "[Init: ReadDB] Filename NULL or zero-length.\n");
    return 0;
  }
  if (IsEmpty(id)) {
    DPRINTF(nullptr, kFatal, "[Init: ReadDB] ID NULL or zero-length.\n");
    return 0;
  }
  if (dbinfo == nullptr) {
    DPRINTF(nullptr, kFatal, "[Init: ReadDB] DBInfo NULL.\n");
    return 0;
  }
  // Kept for scripts that follow a start in the log: the prefix is that of the other reader.
  DPRINTF(nullptr, kInfo, "[Init: ReadConf] Searching '%s' for '%s'.\n", filename, id);
  *dbinfo = {};

  const SignalHold hold;
  LineReader reader = {};
  reader.file = std::fopen(filename, "r");  // Kept: never closed, as above
  if (reader.file == nullptr) {
    DPRINTF(nullptr, kFatal, "[Init: ReadDB] Unable to open '%s': errno = %d\n", filename, errno);
    return 0;
  }
  std::string_view tokens;
  const Next next = FindLine(&reader, id, &tokens);
  if (next == Next::kLine) return FillDB(dbinfo, filename, reader.number, id, tokens);
  if (next == Next::kFailed)
    DPRINTF(nullptr, kFatal, "[Init: ReadDB] Unable to open '%s': errno = %d\n", filename, errno);
  else
    DPRINTF(nullptr, kFatal, "[Init: ReadDB] Could not locate id = '%s' in file '%s'\n", id,
            filename);
  return 0;
}

void Init_DisplayCfg(const ConfigInfo *config) {
  DPRINTF(nullptr, kFatal, "[Init: DisplayCfg] Configuration Info\n");
  DPRINTF(nullptr, kFatal, "@[Init: DisplayCfg] ------------------\n");
  DPRINTF(nullptr, kFatal, "@[Init: DisplayCfg] ID         = %s\n", config->ID);
  DPRINTF(nullptr, kFatal, "@[Init: DisplayCfg] Type       = %c\n", config->Type);
  DPRINTF(nullptr, kFatal, "@[Init: DisplayCfg] ParentID   = %s\n", config->ParentID);
  DPRINTF(nullptr, kFatal, "@[Init: DisplayCfg] IP         = %s\n", config->IP);
  DPRINTF(nullptr, kFatal, "@[Init: DisplayCfg] ClientPort = %d\n", config->ClientPort);
  DPRINTF(nullptr, kFatal, "@[Init: DisplayCfg] AdminPort  = %d\n", config->AdminPort);
}

void Init_DisplayDB(const DBInfo *dbinfo) {
  DPRINTF(nullptr, kFatal, "[Init: DisplayDB] Database Info\n");
  DPRINTF(nullptr, kFatal, "@[Init: DisplayDB] -------------\n");
  DPRINTF(nullptr, kFatal, "@[Init: DisplayDB] ID             = %s\n", dbinfo->ID);
  DPRINTF(nullptr, kFatal, "@[Init: DisplayDB] DBName         = %s\n", dbinfo->DBName);
  DPRINTF(nullptr, kFatal, "@[Init: DisplayDB] SearchLocation = %s\n", dbinfo->SearchLocation);
  DPRINTF(nullptr, kFatal, "@[Init: DisplayDB] DocLocation    = %s\n", dbinfo->DocLocation);
  if (!IsEmpty(dbinfo->FieldList))
    DPRINTF(nullptr, kFatal, "[Init: DisplayDB] FieldList\t= %s\n", dbinfo->FieldList);
}
