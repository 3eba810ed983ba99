// korvo-macro: page macros written, seen and tried without the service.
#include <sysexits.h>

#include <cstdio>
#include <string>
#include <string_view>

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
  if (command.listing && !command.output.empty())
    Tool_Fail(EX_USAGE, "--listing writes no macro; leave -o out");
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
  Tool_Print(Asm_Disassemble(Files_Read(command.files.front(), kMacroLimit)));
  return EX_OK;
}

// As a user writes it.
std::string OptionName(int letter) {
  for (const option &known : kOptions)
    if (known.val == letter && letter != 'o') return std::string("--") + known.name;
  return "-o";
}

std::string TakeName(int letter) {
  if (*optarg == '\0')
    Tool_Fail(EX_USAGE, "%s takes a name, not an empty text", OptionName(letter).c_str());
  return optarg;
}

void TakeOption(Command *command, int letter) {
  Tool_TakeInfoOption(letter, kHelp);
  command->given += static_cast<char>(letter);
  switch (letter) {
    case 'u': command->allow_undefined = true; return;
    case 'l': command->listing = true; return;
    case 't': command->trace = true; return;
    case 'w': command->html = true; return;
    case 'a': command->level = Tool_Number("--at", optarg, kInfo, kFatal); return;
    case 'd': command->fetch = TakeName(letter); return;
    case 'f': command->fields = TakeName(letter); return;
    default: command->output = TakeName(letter); return;
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
  std::string_view options;  // their letters
  bool takes_documents;
};

constexpr Verb kVerbs[] = {{"asm", Assemble, "ulo", false},
                           {"dis", Disassemble, "", false},
                           {"check", Command_Check, "f", false},
                           {"run", Command_Run, "adtw", true}};

int Run(const Verb &verb, const Command &command) {
  for (const char letter : command.given)
    if (verb.options.find(letter) == std::string_view::npos)
      Tool_Fail(EX_USAGE, "%s takes no %s", verb.word, OptionName(letter).c_str());
  if (command.files.size() > 1 && !verb.takes_documents)
    Tool_Fail(EX_USAGE, "%s takes one file", verb.word);
  if (command.files.size() < 2 && verb.takes_documents)
    Tool_Fail(EX_USAGE, "%s takes a macro and documents", verb.word);
  return verb.run(command);
}

}  // namespace

int main(int argc, char **argv) {
  Tool_Start();
  const Command command = ReadCommand(argc, argv);
  if (command.files.empty())
    Tool_Fail(
        EX_USAGE,
        "takes a command and a file: asm FILE.ms, dis FILE.mo, check FILE or run FILE DOCUMENT");
  for (const Verb &verb : kVerbs)
    if (command.word == verb.word) return Run(verb, command);
  Tool_Fail(EX_USAGE, "there is no command %s; asm, dis, check and run are all",
            command.word.c_str());
}
