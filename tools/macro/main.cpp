// korvo-macro: page macros written, seen and tried without the service.
#include <sysexits.h>

#include <cstdio>
#include <string>

#include "debug/log.h"
#include "tools/common/tool.h"
#include "tools/macro/asm.h"
#include "tools/macro/command.h"
#include "tools/macro/files.h"

namespace {

constexpr const char *kHelp =
    "usage: korvo-macro asm [OPTION]... FILE.ms  assemble into FILE.mo\n"
    "       korvo-macro dis FILE.mo              disassemble to standard output\n"
    "       korvo-macro check [OPTION]... FILE   say what can go wrong, and with which document\n"
    "       korvo-macro run [OPTION]... FILE DOCUMENT...\n"
    "                                            make the page of these documents\n"
    "\n"
    "  -o, --output OUTPUT  of asm: assemble into OUTPUT\n"
    "  --allow-undefined    of asm: take op-codes that do not exist; a run repeats one for ever\n"
    "  --listing            of asm: show the lines beside their bytes, and write no macro\n"
    "  --fields SCHEMA      of check: the documents have these fields\n"
    "  --fetch DIR          of run: DIR/GROUP/TYPE/NUMBER is what a macro fetches\n"
    "  --trace              of run: each instruction with cursor, stack and output\n"
    "  --at LEVEL           of run: log from 101 on, or 102, 103 (usual) or 104\n"
    "  --html               of run: show the page in a browser\n"
    "  --help               this text\n"
    "  --version            name and version\n"
    "\n"
    "FILE of check and run is FILE.mo or FILE.ms. A DOCUMENT is a file in control format, JSON\n"
    "Lines or lines of \\tNAME=VALUE fields, or such a line. \"-\" stands for standard input or\n"
    "output. Status: 0; of check 1 where a run logs lines; 64 wrong use; 65 the text, the macro\n"
    "or a document has a fault; 66 the input cannot be read; 73 the output, or 74 standard\n"
    "output, cannot be written.\n";

constexpr option kOptions[] = {{"allow-undefined", no_argument, nullptr, 'u'},
                               {"at", required_argument, nullptr, 'a'},
                               {"fetch", required_argument, nullptr, 'd'},
                               {"fields", required_argument, nullptr, 'f'},
                               {"help", no_argument, nullptr, 'h'},
                               {"html", no_argument, nullptr, 'w'},
                               {"listing", no_argument, nullptr, 'l'},
                               {"output", required_argument, nullptr, 'o'},
                               {"trace", no_argument, nullptr, 't'},
                               {"version", no_argument, nullptr, 'V'},
                               {nullptr, 0, nullptr, 0}};

std::string OutputName(const Command &command) {
  const std::string &input = command.files.front();
  if (!command.output.empty() || Files_IsStandard(input))
    return command.output.empty() ? "-" : command.output;
  if (!input.ends_with(".ms"))
    Tool_Fail(EX_USAGE, "%s does not end in .ms; name the output with -o", input.c_str());
  return input.substr(0, input.size() - 2) + "mo";
}

int Assemble(const Command &command) {
  const std::string output = command.listing ? "" : OutputName(command);
  AsmProgram program;
  Files_Assemble(command.files.front(), command.allow_undefined, &program);
  if (command.listing)
    Tool_Print(Asm_Listing(program));
  else
    Files_Write(output, program.code);
  return EX_OK;
}

int Disassemble(const Command &command) {
  if (!command.output.empty())
    Tool_Fail(EX_USAGE, "-o belongs to asm; dis writes to standard output");
  if (command.allow_undefined)
    Tool_Fail(EX_USAGE, "--allow-undefined belongs to asm; dis shows any op-code");
  Tool_Print(Asm_Disassemble(Files_Read(command.files.front(), kMacroLimit)));
  return EX_OK;
}

void TakeOutput(Command *command) {
  command->output = optarg;
  if (command->output.empty())
    Tool_Fail(EX_USAGE, "-o takes the name of a file, not an empty text");
}

void TakeOption(Command *command, int letter) {
  Tool_TakeInfoOption(letter, kHelp);
  switch (letter) {
    case 'u': command->allow_undefined = true; return;
    case 'l': command->listing = true; return;
    case 't': command->trace = true; return;
    case 'w': command->html = true; return;
    case 'a': command->level = Tool_Number("--at", optarg, kInfo, kFatal); return;
    case 'd': command->fetch = optarg; return;
    case 'f': command->fields = optarg; return;
    default: return TakeOutput(command);
  }
}

Command ReadCommand(int argc, char **argv) {
  Command command;
  for (int letter; (letter = Tool_NextOption(argc, argv, ":o:", kOptions)) != -1;)
    TakeOption(&command, letter);
  if (optind < argc) command.word = argv[optind++];
  while (optind < argc) command.files.emplace_back(argv[optind++]);
  return command;
}

struct Verb {
  const char *word;
  int (*run)(const Command &command);
  bool takes_documents;
};

constexpr Verb kVerbs[] = {{"asm", Assemble, false},
                           {"dis", Disassemble, false},
                           {"check", Command_Check, false},
                           {"run", Command_Run, true}};

}  // namespace

int main(int argc, char **argv) {
  Tool_Start();
  const Command command = ReadCommand(argc, argv);
  if (command.files.empty())
    Tool_Fail(
        EX_USAGE,
        "takes a command and a file: asm FILE.ms, dis FILE.mo, check FILE or run FILE DOCUMENT");
  for (const Verb &verb : kVerbs) {
    if (command.word != verb.word) continue;
    if (command.files.size() > 1 && !verb.takes_documents)
      Tool_Fail(EX_USAGE, "%s takes one file", verb.word);
    if (command.files.size() < 2 && verb.takes_documents)
      Tool_Fail(EX_USAGE, "%s takes a macro and documents", verb.word);
    return verb.run(command);
  }
  Tool_Fail(EX_USAGE, "there is no command %s; asm, dis, check and run are all",
            command.word.c_str());
}
