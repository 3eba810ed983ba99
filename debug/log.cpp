#include "debug/log.h"

#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstring>

#include "debug/signal_hold.h"
#include "debug/text.h"

int Debug_Level = 0;

namespace {

constexpr const char *kFallBackFile = "debug.log";

// Shared by every call.  A call that comes while another still runs replaces what is in it; the
// outer one has no more use for it then.
char log_text[kLogTextSize + 1];

Debug_SendFn send_text = nullptr;
int send_depth = 0;

// A failed send is itself reported, and that report is sent too.  The report on the report is not:
// it would never end, and the fall-back says what happened.
constexpr int kMaxSendDepth = 2;

const char *TimeText(std::time_t seconds, char (&out)[kTimeTextSize]) {
  out[0] = '\0';
  return ctime_r(&seconds, out) != nullptr ? out : "\n";
}

std::size_t Header(char *out, std::size_t size) {
  char when[kTimeTextSize];
  const int length = std::snprintf(
      out, size,
      "---------------------------------------------------------------\nPID: %d, TIME: %s",
      static_cast<int>(getpid()), TimeText(std::time(nullptr), when));
  return static_cast<std::size_t>(length);
}

// Formats behind used bytes of log_text.  A text that is cut still ends its line, so that the next
// message starts on its own.
[[gnu::format(printf, 2, 0)]] void Append(std::size_t used, const char *format, va_list args) {
  const std::size_t room = sizeof log_text - used;
  const int length = std::vsnprintf(log_text + used, room, format, args);
  if (length >= 0 && static_cast<std::size_t>(length) >= room) log_text[kLogTextSize - 1] = '\n';
}

// Formats a whole message into log_text.
[[gnu::format(printf, 1, 0)]] void Compose(const char *format, va_list args) {
  const bool continues = format[0] == '@';
  const std::size_t header = continues ? 0 : Header(log_text, sizeof log_text);
  Append(header, continues ? format + 1 : format, args);
}

void WriteStream(std::FILE *stream) {
  std::fputs(log_text, stream);
  std::fflush(stream);
}

// What is in log_text, in one write, so that the lines of several processes do not mix.  Not with
// signals held: whoever stopped reading must not keep one from ending the process.
void WriteTo(int fd) {
  const char *text = log_text;
  std::size_t length = std::strlen(text);
  while (length > 0) {
    const ssize_t written = write(fd, text, length);
    if (written <= 0) return;  // a text that cannot be written is given up
    text += written;
    length -= static_cast<std::size_t>(written);
  }
}

[[gnu::format(printf, 4, 0)]] void FallBack(int sent, int level, std::FILE *file,
                                            const char *format, va_list args) {
  std::FILE *out = file != nullptr ? file : stdout;
  DPRINTF(out, kFatal, "[DEBUG: DPRINTF] Error %1d (0x%0x) from SendTCP().\n", sent,
          static_cast<unsigned>(sent));
  if (file == nullptr)
    DPRINTF(out, kFatal, "[DEBUG: DPRINTF] Unable to open default syslog '%s'\n", kFallBackFile);
  if (!Debug_Shows(level)) return;
  Compose(format, args);
  WriteStream(out);
}

[[gnu::format(printf, 2, 0)]] int Send(int level, const char *format, va_list args) {
  if (send_depth == kMaxSendDepth) return 0;
  ++send_depth;
  const int sent = send_text(log_text, static_cast<int>(std::strlen(log_text)) + 1);
  --send_depth;
  if (sent == 1) return 1;
  // Kept: opened anew for every failure and never closed.
  FallBack(sent, level, std::fopen(kFallBackFile, "a"), format, args);
  return 0;
}

// A line of a dump: the address, sixteen bytes of at most eight digits in four groups, and a blank
// behind.
struct DumpLine {
  char hex[8 + 2 + 16 * 8 + 4 + 1];
  std::size_t hex_length;
  char chars[16 * 2 + 1];
  std::size_t chars_length;
};

void AppendByte(DumpLine *line, unsigned char byte) {
  static constexpr char kDigits[] = "0123456789abcdef";
  if (byte >= 0x80) {  // Kept: a byte is a signed char, as readers of the dumps know it
    std::memcpy(line->hex + line->hex_length, "ffffff", 6);
    line->hex_length += 6;
  }
  line->hex[line->hex_length++] = kDigits[byte >> 4];
  line->hex[line->hex_length++] = kDigits[byte & 15];
  line->chars[line->chars_length++] = ' ';
  if (byte != 0) line->chars[line->chars_length++] = static_cast<char>(byte);
}

void PrintLine(std::FILE *stream, int level, DumpLine *line) {
  line->hex[line->hex_length] = '\0';
  line->chars[line->chars_length] = '\0';
  DPRINTF(stream, level, "@%-47s%s\n", line->hex, line->chars);
}

}  // namespace

int Debug_Print(std::FILE *stream, int level, const char *format, ...) {
  const int saved = errno;
  const bool to_stderr = stream == nullptr && send_text == nullptr;
  int result = 1;
  {
    const SignalHold hold;
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    Compose(format, args);
    if (stream != nullptr)
      WriteStream(stream);
    else if (!to_stderr)
      result = Send(level, format, again);
    va_end(again);
    va_end(args);
  }
  if (to_stderr) WriteTo(STDERR_FILENO);
  errno = saved;
  return result;
}

void Debug_Output(const char *format, ...) {
  {
    const SignalHold hold;
    va_list args;
    va_start(args, format);
    Append(0, format, args);
    va_end(args);
  }
  WriteTo(STDOUT_FILENO);
}

void HEXDUMP(std::FILE *stream, int level, const void *address, int length, const char *title) {
  if (!Debug_Shows(level)) return;
  // The low 32 bits, so that both word sizes print alike.
  const auto low = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(address));
  if (title != nullptr)
    DPRINTF(stream, level, "HEXDUMP of %s\n", title);
  else
    DPRINTF(stream, level, "HEXDUMP @ %08x for %1d bytes\n", low, length);

  const auto *bytes = static_cast<const unsigned char *>(address);
  DumpLine line = {};
  for (int i = 0; i < length; ++i) {
    if (i % 4 == 0) line.hex[line.hex_length++] = ' ';
    if (i % 16 ==
        0) {  // Kept: the first line is blank, and the blank before byte 16k ends the old line
      PrintLine(stream, level, &line);
      line.hex_length = static_cast<std::size_t>(
          std::snprintf(line.hex, sizeof line.hex, "%08x: ", low + static_cast<std::uint32_t>(i)));
      line.chars_length = 0;
    }
    AppendByte(&line, bytes[i]);
  }
  if (line.hex_length > 0) PrintLine(stream, level, &line);
}

int SetLevel(int level) {
  if (level < kInfo || level > kOff) return 0;
  Debug_Level = level;
  DPRINTF(nullptr, level, "[DEBUG: SetLevel] Global Debug Level Set to %d\n", level);
  return 1;
}

const char *Debug_TimeText(std::time_t seconds, char (&out)[kTimeTextSize]) {
  const SignalHold hold;
  return TimeText(seconds, out);
}

void Debug_SetSend(Debug_SendFn send) { send_text = send; }
