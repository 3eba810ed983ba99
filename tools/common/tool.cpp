#include "tools/common/tool.h"

#include <fcntl.h>
#include <poll.h>
#include <sysexits.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr std::size_t kLineSize = 1024;  // of an error line; what is longer is cut

[[gnu::format(printf, 2, 0)]] void WriteLine(const char *program, const char *format,
                                             va_list args) {
  char text[kLineSize];
  std::vsnprintf(text, sizeof text, format, args);
  std::string line;
  if (program != nullptr) line.append(program).append(": ");
  line += Tool_Visible(text) + '\n';
  (void)Tool_Write(STDERR_FILENO, line);  // there is nowhere left to complain
}

}  // namespace

void Tool_Start() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd)
    if (fcntl(fd, F_GETFD) < 0) open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
}

void Tool_Line(const char *format, ...) {
  va_list args;
  va_start(args, format);
  WriteLine(nullptr, format, args);
  va_end(args);
}

void Tool_Warn(const char *format, ...) {
  va_list args;
  va_start(args, format);
  WriteLine(program_invocation_short_name, format, args);
  va_end(args);
}

void Tool_Fail(int status, const char *format, ...) {
  va_list args;
  va_start(args, format);
  WriteLine(program_invocation_short_name, format, args);
  va_end(args);
  std::exit(status);
}

std::string Tool_Visible(std::string_view text) {
  std::string visible;
  for (const char c : text) visible += (c >= 0 && c < ' ') || c == 0x7f ? '?' : c;
  return visible;
}

int Tool_Write(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t done = write(fd, bytes.data(), bytes.size());
    if (done >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(done));
    } else if (errno == EAGAIN) {  // somebody made the other end non-blocking
      pollfd ready = {fd, POLLOUT, 0};
      poll(&ready, 1, -1);
    } else if (errno != EINTR) {
      return errno;
    }
  }
  return 0;
}

void Tool_Print(std::string_view bytes) {
  const int err = Tool_Write(STDOUT_FILENO, bytes);
  if (err != 0) Tool_Fail(EX_IOERR, "cannot write to standard output: %s", std::strerror(err));
}

std::string Tool_Format(const char *format, ...) {
  va_list args;
  va_start(args, format);
  va_list again;
  va_copy(again, args);
  const int length = std::vsnprintf(nullptr, 0, format, args);
  std::string text(static_cast<std::size_t>(length), '\0');
  std::vsnprintf(text.data(), text.size() + 1, format, again);
  va_end(again);
  va_end(args);
  return text;
}

int Tool_NextOption(int argc, char **argv, const char *letters, const option *options) {
  opterr = 0;
  const int at = optind;
  const int letter = getopt_long(argc, argv, letters, options, nullptr);
  if (letter == ':') Tool_Fail(EX_USAGE, "%s needs a value; --help shows which", argv[optind - 1]);
  if (letter == '?')
    Tool_Fail(EX_USAGE, "%s is no option that can stand here; --help lists all",
              argv[optind > at ? optind - 1 : at]);
  return letter;
}

void Tool_TakeInfoOption(int letter, const char *help) {
  if (letter != 'h' && letter != 'V') return;
  Tool_Print(letter == 'h' ? std::string(help)
                           : std::string(program_invocation_short_name) + " " KORVO_VERSION "\n");
  std::exit(EX_OK);
}

std::int32_t Tool_Number(const char *name, const char *text, std::int32_t least,
                         std::int32_t most) {
  const char *end = text + std::strlen(text);
  std::int32_t value = 0;
  const auto [stop, code] = std::from_chars(text, end, value);
  if (code != std::errc{} || stop != end || value < least || value > most)
    Tool_Fail(EX_USAGE, "%s takes a number from %d to %d, not '%s'", name, least, most, text);
  return value;
}
