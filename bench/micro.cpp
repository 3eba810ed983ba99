// korvo-micro: the parts of the daemon that need no socket, in nanoseconds and, where they read or
// write much, in bytes a second beside what the memory of the machine gives.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "debug/log.h"
#include "macro/cursor.h"
#include "macro/exec.h"
#include "macro/table.h"
#include "protocol/cmd_hdr.h"
#include "protocol/pair.h"

namespace {

constexpr int kFields = 200;
constexpr int kOutput = 40960;

// Eleven fields and a predicate, as they come from a client.
const char *const kHeader =
    "\t@COMMAND=QUERY\t@BESTFIT=1\t@SEARCHGROUP=newspapers\t@RECTYPE=article\t@MACROFILE=results"
    "\t@DOCNUM=4711\t@MAXHITS=25\t@SCRIPT=none\t@SEQNUM=99\t@AUTHCODE=abcdef\t@FILENAME=page"
    "\tquick brown fox\n";

// Fields of a hundred bytes each, the last one closed by a tab.
std::string Document() {
  std::string text;
  for (int i = 0; i < kFields; ++i) {
    std::string field = "\tFIELD" + std::to_string(i) + "=";
    field.resize(100, 'x');
    text += field;
  }
  return text + "\t\n";
}

void CountBytes(benchmark::State &state, std::size_t bytes) {
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes) * state.iterations());
}

void HeaderParse(benchmark::State &state) {
  for (auto _ : state) {
    CmdHdr hdr = {};
    benchmark::DoNotOptimize(Util_IntCmdHdr(&hdr, kHeader));
    benchmark::DoNotOptimize(hdr);
  }
  CountBytes(state, std::strlen(kHeader));
}
BENCHMARK(HeaderParse);

void HeaderFormat(benchmark::State &state) {
  CmdHdr hdr = {};
  Util_IntCmdHdr(&hdr, kHeader);
  static char out[kMessageSize + 1];
  int length = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(length = Util_FormatCmdHdr(&hdr, out));
    benchmark::ClobberMemory();
  }
  CountBytes(state, static_cast<std::size_t>(length));
}
BENCHMARK(HeaderFormat);

// The last pair of a long text.
void PairSearch(benchmark::State &state) {
  const std::string text = Document();
  const std::string tag = "FIELD" + std::to_string(kFields - 1);
  for (auto _ : state) {
    char pair[257];
    int length = sizeof pair - 1;
    benchmark::DoNotOptimize(Util_Search4Pair(text.c_str(), pair, &length, tag.c_str(), 1));
  }
  CountBytes(state, text.size());
}
BENCHMARK(PairSearch);

// The last field of a document, from its start.
void FieldLookUp(benchmark::State &state) {
  std::string text = Document();
  const std::string name = "FIELD" + std::to_string(kFields - 1);
  Macro_SetInput(text.data());
  for (auto _ : state) {
    Macro_SetCursor(0);
    benchmark::DoNotOptimize(Macro_FindField(name.c_str(), 0));
  }
  CountBytes(state, text.size());
}
BENCHMARK(FieldLookUp);

// Reads the same bytes as fast as the machine can: the bound of the searches.
void ReadForScale(benchmark::State &state) {
  const std::string text = Document();
  for (auto _ : state) benchmark::DoNotOptimize(std::memchr(text.data(), '\n', text.size()));
  CountBytes(state, text.size());
}
BENCHMARK(ReadForScale);

// Opens a macro of this code, for the life of the process.
int OpenMacro(const std::string &code) {
  char base[] = "/tmp/korvo-micro.XXXXXX";
  const int file = mkstemp(base);
  if (file < 0) std::abort();
  close(file);
  const std::string name = std::string(base) + ".mo";
  std::ofstream(name, std::ios::binary) << code;
  const int macro = Macro_Open(base);
  unlink(name.c_str());
  unlink(base);
  if (macro < 0) std::abort();
  return macro;
}

void RunMacro(benchmark::State &state, const std::string &code, bool count_output) {
  const int macro = OpenMacro(code);
  std::string text = Document();
  static char out[kOutput + 1];
  int length = 0;
  for (auto _ : state) {
    length = kOutput;
    benchmark::DoNotOptimize(Macro_Exec(macro, text.data(), out, &length));
  }
  if (count_output) CountBytes(state, static_cast<std::size_t>(length));
}

// Eight values, spread over the document and in its order, with a literal behind each.
void MacroEightFields(benchmark::State &state) {
  std::string code;
  for (int i = 0; i < 8; ++i) {
    const std::string name = "FIELD" + std::to_string(i * kFields / 8);
    code += '\x42' + std::string(1, static_cast<char>(name.size())) + name;
    code += std::string("\x41\x05<br>\n", 7);
  }
  RunMacro(state, code + '\0', false);
}
BENCHMARK(MacroEightFields);

// The whole document by op-code 7.
void MacroWhole(benchmark::State &state) { RunMacro(state, std::string("\x07\0", 2), true); }
BENCHMARK(MacroWhole);

void CopyForScale(benchmark::State &state) {
  const std::string text = Document();
  static char out[kOutput + 1];
  for (auto _ : state) {
    std::memcpy(out, text.data(), text.size());
    benchmark::DoNotOptimize(out);
    benchmark::ClobberMemory();
  }
  CountBytes(state, text.size());
}
BENCHMARK(CopyForScale);

// One line of sixteen bytes with its title and its blank line: three lines of log.
void DumpLine(benchmark::State &state) {
  SetLevel(kInfo);
  for (auto _ : state) HEXDUMP(nullptr, kInfo, kHeader, 16, "Dump:");
}
BENCHMARK(DumpLine);

void LogFiltered(benchmark::State &state) {
  SetLevel(kWarning);
  int number = 1;
  for (auto _ : state) {
    benchmark::DoNotOptimize(number);
    DPRINTF(nullptr, kInfo, "[Bench: Log] number %d\n", number);
  }
}
BENCHMARK(LogFiltered);

void LogKept(benchmark::State &state) {
  SetLevel(kWarning);
  int number = 1;
  for (auto _ : state) {
    benchmark::DoNotOptimize(number);
    DPRINTF(nullptr, kWarning, "[Bench: Log] number %d\n", number);
  }
}
BENCHMARK(LogKept);

}  // namespace

int main(int argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 64;
  const int null = open("/dev/null", O_WRONLY);
  if (null < 0 || dup2(null, STDERR_FILENO) < 0) return 1;  // where the log goes
  SetLevel(kWarning);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
