// tools/ctl/messages.h: the texts that programs write to the log, and what each one means.
//
// The file has a line a text and level: module, level, text with the conversions of the source,
// cause, effect and remedy, parted by tabs; "#" begins a comment.
#ifndef TOOLS_CTL_MESSAGES_H
#define TOOLS_CTL_MESSAGES_H

#include <string>
#include <string_view>
#include <vector>

struct Message {
  std::string module;  // "-" for none
  int level;
  std::string text;                 // as the file has it
  std::vector<std::string> pieces;  // the fixed bytes between its conversions
  std::string cause, effect, remedy;
};

// False: the file cannot be read, and errno says why.
bool Messages_Read(const std::string &path, std::vector<Message> *messages);

// What stands in the square brackets at the beginning of a body, "-" when nothing does; and the
// text behind them.
std::string_view Messages_Module(std::string_view body);
std::string_view Messages_Text(std::string_view body);

// The message of a body, that with the most fixed bytes: one for each level that its text comes at,
// the highest first; or none.
std::vector<const Message *> Messages_Find(const std::vector<Message> &messages,
                                           std::string_view body);

#endif
