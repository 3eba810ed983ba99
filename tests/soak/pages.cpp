#include "tests/soak/pages.h"

#include <algorithm>

namespace {

std::string Shown(std::string text) {
  std::replace(text.begin(), text.end(), '\t', '\n');
  return text;
}

std::string DocumentOp() { return "\x07"; }

std::string Named(char op, const std::string &name) {
  return op + std::string(1, static_cast<char>(name.size())) + name;
}

constexpr std::size_t kValueSize = 4096;  // to which a macro cuts a value

struct Kind {
  const char *name;
  std::string code;
  bool fetches;
  std::optional<std::string> (*format)(const Content &content);
};

const std::vector<Kind> &Kinds() {
  static const std::vector<Kind> kinds = {
      {"whole", DocumentOp() + EndOp(), false,
       [](const Content &c) -> std::optional<std::string> { return Shown(c.raw); }},
      {"fields", TextOp("<b>") + ValueOp("NAME") + TextOp("</b>") + ValueOp("BODY") + TextOp("\n"),
       false,
       [](const Content &c) -> std::optional<std::string> {
         return "<b>" + c.name + "</b>" + c.body.substr(0, kValueSize) + "\n";
       }},
      {"nothing", EndOp(), false, [](const Content &) -> std::optional<std::string> { return ""; }},
      {"broken", TextOp("lost") + "\x41\x09" + "cut", false,
       [](const Content &) -> std::optional<std::string> { return std::nullopt; }},
      {"fetch", TextOp("[") + Named(13, "FETCH") + Named(4, "none").substr(1) + TextOp("]"), true,
       [](const Content &c) -> std::optional<std::string> { return "[" + c.further + "]"; }},
      {"insert", Named(14, "FETCH") + DocumentOp() + EndOp(), true,
       [](const Content &c) -> std::optional<std::string> { return Shown(c.raw + c.further); }},
  };
  return kinds;
}

}  // namespace

std::vector<Page> Pages_Write(const Folder &folder) {
  std::vector<Page> pages;
  for (const Kind &kind : Kinds()) {
    const std::string name = kind.name;
    Page page = {folder.Path() + "/" + name, "<" + name + ">\n", "</" + name + ">\n", kind.fetches,
                 kind.format};
    folder.Write(name + ".mo", kind.code);
    folder.Write(name + ".hdr", page.header);
    folder.Write(name + ".tail", page.tail);
    pages.push_back(page);
  }
  // Without frames, and with frames longer than what is sent of them.
  Page bare = pages[1];
  bare.base = folder.Path() + "/bare";
  bare.header = bare.tail = "";
  folder.Write("bare.mo", Kinds()[1].code);
  pages.push_back(bare);
  Page framed = pages[0];
  framed.base = folder.Path() + "/framed";
  framed.header = std::string(10238, 'h');
  framed.tail = std::string(10238, 't');
  folder.Write("framed.mo", Kinds()[0].code);
  folder.Write("framed.hdr", framed.header + "cut");
  folder.Write("framed.tail", framed.tail + "cut");
  pages.push_back(framed);
  return pages;
}
