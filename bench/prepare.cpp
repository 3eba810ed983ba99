// korvo-micro-docmgr: what a Document Manager does to a document before it sends it, step by step.
//
// From the root: cmake --preset release -DKORVO_BENCH=ON -DKORVO_TESTS=OFF -B build/bench &&
// cmake --build build/bench --target korvo-micro-docmgr && build/bench/bin/korvo-micro-docmgr
#include "docmgr/prepare.h"

#include <benchmark/benchmark.h>

#include <sstream>
#include <string>

#include "debug/text.h"
#include "docmgr/html.h"
#include "docmgr/script.h"
#include "docmgr/snippet.h"
#include "docmgr/words.h"
#include "store/document.h"

namespace {

constexpr const char *kDescription =
    "GNU Bourne Again SHell Bash is an sh-compatible command language interpreter that executes "
    "commands read from the standard input or from a file. Bash also incorporates useful features "
    "from the Korn and C shells (ksh and csh). . Bash is ultimately intended to be a conformant "
    "implementation of the IEEE POSIX Shell and Tools standard (IEEE Working Group 1003.2). . "
    "The Programmable Completion Code, by Ian Macdonald, is now found in the bash-completion "
    "package.";

constexpr const char *kScript = "html mark:shell mark:interpret snippet all place";

Schema PackageSchema() {
  std::istringstream in(
      "@language english\nPackage keyword id\nVersion stored\nArchitecture keyword\n"
      "Section keyword\nMaintainer text\nInstalled-Size number\nHomepage stored\n"
      "Depends text\nSummary text weight=3\nDescription text body\n");
  Schema schema;
  SchemaError error;
  Schema_Read(&in, &schema, &error);
  return schema;
}

// A package record; its description takes size bytes.
std::string Package(std::size_t size) {
  std::string body = kDescription;
  while (body.size() < size) body.append(" ").append(kDescription);
  body.resize(size);
  return "\tPackage=bash\tVersion=5.2.15-2+b7\tArchitecture=amd64\tSection=shells"
         "\tMaintainer=Matthias Klose <doko@debian.org>\tInstalled-Size=7164"
         "\tHomepage=http://tiswww.case.edu/php/chet/bash/bashtop.html"
         "\tDepends=base-files (>= 2.1.12), debianutils (>= 5.6-0.1)"
         "\tSummary=GNU Bourne Again SHell\tDescription=" +
         body + "\t";
}

void Run(benchmark::State &state, const char *script) {
  const Schema schema = PackageSchema();
  Xapian::Document document;
  document.set_data(Package(static_cast<std::size_t>(state.range(0))));
  CmdHdr hdr = {};
  (void)Text_Copy(hdr.SearchGroup, "packages");
  (void)Text_Copy(hdr.RecType, "packages");
  (void)Text_Copy(hdr.Script, script);
  hdr.DocNum = 4711;
  for (auto _ : state) benchmark::DoNotOptimize(Prepare_Record(document, schema, hdr));
}

// Whole records, by the script and the bytes of the description.
void Record(benchmark::State &state) { Run(state, kScript); }
void RecordAsStored(benchmark::State &state) { Run(state, ""); }
void RecordHtml(benchmark::State &state) { Run(state, "html all place"); }
void RecordMarked(benchmark::State &state) {
  Run(state, "html mark:shell mark:interpret all place");
}
BENCHMARK(Record)->Arg(490)->Arg(2000)->Arg(1 << 14)->Arg(1 << 20);
BENCHMARK(RecordAsStored)->Arg(490)->Arg(2000)->Arg(1 << 20);
BENCHMARK(RecordHtml)->Arg(490)->Arg(2000);
BENCHMARK(RecordMarked)->Arg(490)->Arg(2000);

// The steps of it, over a description alone.
void StepScript(benchmark::State &state) {
  for (auto _ : state) benchmark::DoNotOptimize(Script_Read(kScript));
}
BENCHMARK(StepScript);

void StepRead(benchmark::State &state) {
  const std::string data = Package(490);
  Fields fields;
  for (auto _ : state) benchmark::DoNotOptimize(Document_Read(data, SchemaOrigin::kGiven, &fields));
}
BENCHMARK(StepRead);

void StepWords(benchmark::State &state) {
  const Wanted wanted = Words_Wanted("english", {"shell", "interpret"});
  for (auto _ : state) benchmark::DoNotOptimize(Words_Find(wanted, kDescription, SIZE_MAX));
}
BENCHMARK(StepWords);

void StepHtml(benchmark::State &state) {
  for (auto _ : state) benchmark::DoNotOptimize(Html_Text(kDescription, {}, SIZE_MAX));
}
BENCHMARK(StepHtml);

void StepSnippet(benchmark::State &state) {
  const Wanted wanted = Words_Wanted("english", {"shell", "interpret"});
  for (auto _ : state) benchmark::DoNotOptimize(Snippet_Of(kDescription, wanted));
}
BENCHMARK(StepSnippet);

}  // namespace

BENCHMARK_MAIN();
