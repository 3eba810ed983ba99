// tools/common/tool.h: how a command-line tool reads its options, speaks and ends.
//
// Standard output carries what was asked for and nothing else.  Whatever goes wrong is one line on
// standard error, and the process ends with a status of <sysexits.h>.
#ifndef TOOLS_COMMON_TOOL_H
#define TOOLS_COMMON_TOOL_H

#include <getopt.h>

#include <cstdint>
#include <string>
#include <string_view>

// First call of main.  A descriptor 0 to 2 that the parent closed is opened so that its use fails:
// no file and no socket can take its place.
void Tool_Start();

// One line on standard error; control characters of what it quotes are shown as "?".
[[gnu::format(printf, 1, 2)]] void Tool_Line(const char *format, ...);

// The same behind the name of the program.
[[gnu::format(printf, 1, 2)]] void Tool_Warn(const char *format, ...);

// The same, and the end of the process.
[[noreturn, gnu::format(printf, 2, 3)]] void Tool_Fail(int status, const char *format, ...);

// The text with "?" for its control characters.
std::string Tool_Visible(std::string_view text);

// Writes all of the bytes; 0 or the errno of the write that failed.
[[nodiscard]] int Tool_Write(int fd, std::string_view bytes);

// Writes all of the bytes to standard output, or ends the process with EX_IOERR.
void Tool_Print(std::string_view bytes);

// The next option as getopt_long gives it, -1 behind the last; ends the process with EX_USAGE over
// an unknown option or a missing value.
int Tool_NextOption(int argc, char **argv, const char *letters, const option *options);

// Text as printf makes it.
[[gnu::format(printf, 1, 2)]] std::string Tool_Format(const char *format, ...);

// Prints the help for the letter h, and name and version for V, and ends the process with 0; does
// nothing for any other letter.  Every tool has both, as --help and --version.
void Tool_TakeInfoOption(int letter, const char *help);

// The value of an option as a decimal number from least to most, or the end of the process with
// EX_USAGE.
std::int32_t Tool_Number(const char *name, const char *text, std::int32_t least, std::int32_t most);

#endif
