// korvo-web: the search service in a browser.
#include <sysexits.h>

#include <string>

#include "tools/common/tool.h"
#include "web/conf.h"
#include "web/places.h"
#include "web/server.h"
#include "web/texts.h"

namespace {

constexpr const char *kHelp =
    "usage: korvo-web [OPTION]... [FILE]\n"
    "\n"
    "  --check    read the configuration and its files, and serve nothing\n"
    "  --help     this text\n"
    "  --version  name and version\n"
    "\n"
    "Status: 0; 64 wrong use; 69 the address cannot be listened on; 71 too few descriptors;\n"
    "73 the log cannot be opened; 78 the configuration is wrong.\n"
    "\n"
    "A line of FILE is a name and a value.  The names, with what they are when no line says it:\n";

constexpr option kOptions[] = {{"check", no_argument, nullptr, 'c'},
                               {"help", no_argument, nullptr, 'h'},
                               {"version", no_argument, nullptr, 'V'},
                               {nullptr, 0, nullptr, 0}};

struct Command {
  std::string file = kWebConf;
  bool check = false;
};

Command ReadCommand(int argc, char **argv) {
  const std::string help = kHelp + Conf_Help() + "\nWithout FILE it is " + kWebConf + ".\n";
  Command command;
  for (int letter; (letter = Tool_NextOption(argc, argv, ":", kOptions)) != -1;) {
    Tool_TakeInfoOption(letter, help.c_str());
    command.check = true;  // the one that is left
  }
  if (optind + 1 < argc) Tool_Fail(EX_USAGE, "takes one configuration file, not %d", argc - optind);
  if (optind < argc) command.file = argv[optind];
  return command;
}

}  // namespace

int main(int argc, char **argv) {
  Tool_Start();
  const Command command = ReadCommand(argc, argv);
  WebConf conf;
  Texts texts;
  std::string wrong;
  if (!Conf_Read(command.file, &conf, &wrong) || !Texts_Read(conf.texts, &texts, &wrong))
    Tool_Fail(EX_CONFIG, "%s", wrong.c_str());
  if (command.check) {
    if (!Conf_CheckFiles(conf, &wrong)) Tool_Fail(EX_CONFIG, "%s", wrong.c_str());
    Tool_Print(command.file + ": right\n");
    return EX_OK;
  }
  const int status = Server_Run(conf, texts, &wrong);
  if (status != EX_OK) Tool_Fail(status, "%s", wrong.c_str());
  return status;
}
