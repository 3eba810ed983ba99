// web/markup.h: what of a page is open, so that one that breaks off can be closed.
#ifndef WEB_MARKUP_H
#define WEB_MARKUP_H

#include <string>
#include <string_view>
#include <vector>

enum class MarkupPlace {
  kText,
  kLess,    // behind a "<"
  kTag,     // and its name, or what stands behind that
  kDouble,  // within quotes of a tag
  kSingle,
  kBang,  // "<!"
  kBangDash,
  kComment,
  kCommentDash,
  kCommentDashes
};

struct Markup {
  MarkupPlace place = MarkupPlace::kText;
  bool ends = false;                   // the tag is an end tag
  bool named = false;                  // its name is over
  std::string name = {};               // in small letters
  std::vector<std::string> open = {};  // elements, the innermost last
  std::string stray = {};              // the first end tag without an element
};

// Goes on behind these bytes.
void Markup_Feed(Markup *markup, std::string_view html);

// What stands between a page that breaks off and the frame that is to end it: the end of a tag or a
// comment, and of the elements that the frame does not end.
std::string Markup_Close(const Markup &markup, std::string_view frame);

#endif
