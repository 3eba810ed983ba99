// A document prepared as a script says: the record stays one, and what is HTML shows what was
// stored.
//
// Parts: SCRIPT; the document as it is stored; "o" for a database of Omega's, "g" for one with a
// schema, else one without; SEARCHGROUP.
#include <algorithm>
#include <array>
#include <cstring>
#include <sstream>

#include "debug/text.h"
#include "docmgr/prepare.h"
#include "docmgr/script.h"
#include "store/record.h"
#include "tests/fuzz/support/fuzz.h"

namespace {

constexpr std::string_view kOpen = "<mark>";
constexpr std::string_view kClose = "</mark>";

struct Entity {
  std::string_view name;
  char c;
};

constexpr std::array<Entity, 5> kEntities = {
    {{"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&#39;", '\''}}};

Schema SchemaOf(const std::string &kind) {
  Schema schema;
  if (kind == "o") schema.origin = SchemaOrigin::kOmega;
  if (kind != "g") return schema;
  std::istringstream in(
      "@language english\nKey keyword id\nTitle text weight=3\nSize number\nDay date\nLink stored\n"
      "Body text body\n");
  SchemaError error;
  FUZZ_CHECK(Schema_Read(&in, &schema, &error));
  return schema;
}

// The fields of a record, as a page macro gets them.
std::string_view FieldsOf(const std::string &record) {
  CmdHdr hdr = {};
  const char *rest = Util_IntCmdHdr(&hdr, record.c_str());
  FUZZ_CHECK(rest != nullptr);
  if (std::strcmp(hdr.Command, "ERROR") == 0) return {};
  FUZZ_CHECK(std::strcmp(hdr.Command, "HIT") == 0 && hdr.DocNum == 17 && record.ends_with("\t\n"));
  return {rest, std::strlen(rest) - 1};
}

Fields Split(std::string_view text) {
  Fields fields;
  for (std::string_view pair = Text_Token(&text, "\t"); !pair.empty();
       pair = Text_Token(&text, "\t")) {
    const std::size_t equals = pair.find('=');
    FUZZ_CHECK(equals != std::string_view::npos && Field_IsName(pair.substr(0, equals)));
    fields.push_back({std::string(pair.substr(0, equals)), std::string(pair.substr(equals + 1))});
    FUZZ_CHECK(fields.back().value.size() <= kRecordValueSize);
  }
  return fields;
}

// What a browser shows of a value: it has no tags but pairs of marks, and nothing but entities has
// one of the five characters.
std::string Shown(std::string_view html) {
  std::string text;
  bool marked = false;
  while (!html.empty()) {
    const std::string_view tag = marked ? kClose : kOpen;
    if (html.starts_with(tag)) {
      html.remove_prefix(tag.size());
      marked = !marked;
      continue;
    }
    const auto entity = std::find_if(kEntities.begin(), kEntities.end(), [&](const Entity &known) {
      return html.starts_with(known.name);
    });
    const bool found = entity != kEntities.end();
    FUZZ_CHECK(found || std::strchr("&<>\"'", html.front()) == nullptr);
    text += found ? entity->c : html.front();
    html.remove_prefix(found ? entity->name.size() : 1);
  }
  FUZZ_CHECK(!marked);
  return text;
}

bool IsAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return (c & 0x80) == 0; });
}

// A value as a header carries it.
std::string OneField(const std::string &text) {
  return text.substr(0, text.find_first_of(std::string_view("\t\n\r\0", 4)));
}

bool IsUtf8(std::string_view text) {
  for (Xapian::Utf8Iterator at(text.data(), text.size()); at != Xapian::Utf8Iterator();) {
    const unsigned code = *at;
    const std::size_t left = at.left();
    ++at;
    if (code >= 0x80 && left - at.left() == 1) return false;
  }
  return true;
}

std::string Prepared(const Xapian::Document &document, const Schema &schema, const CmdHdr &hdr) {
  std::string record = Prepare_Record(document, schema, hdr);
  FUZZ_CHECK(record.size() <= kRecordSize);
  FUZZ_CHECK(record.find_first_of(std::string_view("\n\r\0", 3)) == record.size() - 1);
  return record;
}

// As HTML a value is what it is as plain text, but that one of them may have more room.
void Compare(const Fields &html, const Fields &plain) {
  FUZZ_CHECK(html.size() == plain.size());
  for (std::size_t i = 0; i < html.size(); ++i) {
    const std::string shown = Shown(html[i].value);
    FUZZ_CHECK(html[i].name == plain[i].name);
    FUZZ_CHECK(!IsAscii(plain[i].value) || plain[i].value.starts_with(shown) ||
               shown.starts_with(plain[i].value));
  }
}

// The same wishes, as plain text; all of them are read and not only sent.
std::string PlainScript(const Script &script) {
  return std::string(script.all ? "all " : "") + (script.snippet ? "snippet " : "") + "place";
}

}  // namespace

std::string Fuzz_Run(const Input &input) {
  Xapian::Document document;
  document.set_data(input[1].Whole());
  const Schema schema = SchemaOf(input[2].Whole());
  CmdHdr hdr = {};
  (void)Text_Copy(hdr.Script, Fuzz_UpToNul(input[0].Whole()));
  (void)Text_Copy(hdr.SearchGroup, OneField(input[3].Whole()));
  hdr.DocNum = 17;
  const std::string record = Prepared(document, schema, hdr);
  const Script script = Script_Read(hdr.Script);
  if (!script.html || FieldsOf(record).empty()) return record;

  FUZZ_CHECK(IsUtf8(record));
  const Fields html = Split(FieldsOf(record));
  for (const Field &field : html) (void)Shown(field.value);
  if (!script.place) return record;
  std::string plain = PlainScript(script);
  for (const std::string &mark : script.marks) plain.append(" mark:").append(mark);
  (void)Text_Copy(hdr.Script, plain);
  Compare(html, Split(FieldsOf(Prepared(document, schema, hdr))));
  return record;
}
