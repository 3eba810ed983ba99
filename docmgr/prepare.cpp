#include "docmgr/prepare.h"

#include <algorithm>
#include <set>

#include "debug/log.h"
#include "docmgr/html.h"
#include "docmgr/room.h"
#include "docmgr/script.h"
#include "docmgr/snippet.h"
#include "docmgr/words.h"
#include "store/document.h"
#include "store/record.h"

namespace {

// A field of the record that is being made.
struct Item {
  std::string name;
  std::string text;   // as it is stored
  bool words;         // that a search can find
  bool body = false;  // a snippet is taken from it, and it is cut first
  bool added = false;
  std::string value = {};  // as it is sent
};

using Items = std::vector<Item>;

// A record has no room for more.
constexpr std::size_t kMostFields = kRecordFieldsSize / std::string_view("\tA=").size();

// What omindex tells about a file; links are made of some.
constexpr std::string_view kOmegaFacts[] = {"url",  "type",  "modtime", "created",
                                            "size", "pages", "filename"};

bool IsOneOf(std::string_view name, std::initializer_list<std::string_view> names) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

bool HasWords(const Schema &schema, const SchemaField *field, const std::string &name) {
  if (schema.origin == SchemaOrigin::kGiven)
    return field != nullptr &&
           (field->kind == FieldKind::kText || field->kind == FieldKind::kKeyword);
  return schema.origin == SchemaOrigin::kNone ||
         std::find(std::begin(kOmegaFacts), std::end(kOmegaFacts), name) == std::end(kOmegaFacts);
}

// What the script adds takes the place of a field of that name: a document does not tell where it
// stands.
bool IsTaken(const Script &script, std::string_view name) {
  return (script.snippet && name == "Snippet") ||
         (script.place && IsOneOf(name, {"SearchGroup", "RecType", "DocNum"}));
}

Items InStoredOrder(const Fields &fields, const Schema &schema, const Script &script) {
  Items items;
  for (const Field &field : fields)
    if (!IsTaken(script, field.name) && items.size() < kMostFields)
      items.push_back(
          {field.name, field.value, HasWords(schema, Schema_Find(schema, field.name), field.name)});
  return items;
}

// Every field of the schema under the schema's name, and behind them what the schema does not know.
Items InOrderOfSchema(const Items &items, const Schema &schema, const Script &script) {
  std::vector<Items> places(schema.fields.size() + 1);
  for (const Item &item : items) {
    const SchemaField *field = Schema_Find(schema, item.name);
    Items *place = field != nullptr ? &places[Schema_Slot(schema, *field)] : &places.back();
    place->push_back(item);
    if (field != nullptr) place->back().name = field->name;
  }
  Items ordered;
  for (std::size_t i = 0; i < places.size(); ++i) {
    const SchemaField *field = i < schema.fields.size() ? &schema.fields[i] : nullptr;
    if (places[i].empty() && field != nullptr && !IsTaken(script, field->name))
      ordered.push_back({field->name, "", HasWords(schema, field, field->name)});
    ordered.insert(ordered.end(), places[i].begin(), places[i].end());
  }
  return ordered;
}

// Where names leave no room for values, or even for each other: first values before further ones
// of the same name, and those in front before those behind.
void LeaveOut(Items *items, std::size_t room) {
  const auto size = [](const Item &item) { return item.name.size() + 2; };
  std::size_t used = 0;
  for (const Item &item : *items) used += size(item);
  if (used <= room) return;
  std::set<std::string> seen;
  std::vector<bool> first, kept(items->size());
  for (const Item &item : *items) first.push_back(seen.insert(item.name).second);
  for (const bool wanted : {true, false})
    for (std::size_t i = 0; i < items->size(); ++i) {
      if (first[i] != wanted || size((*items)[i]) > room) continue;
      kept[i] = true;
      room -= size((*items)[i]);
    }
  std::size_t i = 0;
  std::erase_if(*items, [&](const Item &) { return !kept[i++]; });
}

bool CanBeBody(const Schema &schema, const Item &item) {
  if (schema.origin != SchemaOrigin::kGiven) return item.words;
  const SchemaField *field = Schema_Find(schema, item.name);
  return field != nullptr && field->kind == FieldKind::kText;
}

bool IsBody(const Schema &schema, const Item &item) {
  if (schema.origin == SchemaOrigin::kOmega) return item.name == "sample";
  const SchemaField *field = Schema_Find(schema, item.name);
  return field != nullptr && field->body;
}

// What a snippet is taken from: the field that is named as the body, or else the longest text, for
// a page wants to show something.
std::string BodyText(const Items &items, const Schema &schema) {
  std::string named;
  std::string_view longest;
  for (const Item &item : items) {
    if (item.body && named.size() <= kSnippetReach)
      named.append(named.empty() ? "" : " ").append(item.text);
    if (CanBeBody(schema, item) && longest.size() < item.text.size()) longest = item.text;
  }
  return named.empty() ? std::string(longest) : named;
}

void Add(Items *items, const char *name, std::string text, bool words) {
  items->push_back({name, std::move(text), words, false, true});
}

std::string ValueOf(const Item &item, const Script &script, const Wanted &wanted,
                    std::size_t size) {
  if (!script.html) return std::string(Field_Cut(item.text, size));
  const Spans marks = item.words ? Words_Find(wanted, item.text, size) : Spans();
  return Html_Text(item.text, marks, size);
}

// Fills the values, so that all of them together fit into a record.
void MakeValues(Items *items, const Script &script, const Wanted &wanted) {
  std::size_t room = kRecordFieldsSize - 1;
  std::vector<RoomClaim> claims;
  for (Item &item : *items) {
    room -= item.name.size() + std::string_view("=\t").size();
    item.value = ValueOf(item, script, wanted, kRecordValueSize);
    const RoomRank rank = item.body ? RoomRank::kBody : RoomRank::kOther;
    claims.push_back({item.value.size(), item.added ? RoomRank::kAdded : rank});
  }
  const std::vector<std::size_t> share = Room_Share(claims, room);
  for (std::size_t i = 0; i < items->size(); ++i) {
    Item &item = (*items)[i];
    if (share[i] < item.value.size()) item.value = ValueOf(item, script, wanted, share[i]);
  }
}

// The most that what the script adds can take.
constexpr std::size_t kAddedSize = 6144;
static_assert(kHdrText * 6 * 2 + kRecordValueSize + 128 <= kAddedSize);

Items ItemsOf(const Fields &fields, const Schema &schema, const Script &script,
              const Wanted &wanted, const CmdHdr &hdr) {
  Items items = InStoredOrder(fields, schema, script);
  if (script.all) items = InOrderOfSchema(items, schema, script);
  LeaveOut(&items, kRecordFieldsSize - 1 - (script.snippet || script.place ? kAddedSize : 0));
  for (Item &item : items) item.body = IsBody(schema, item);
  if (script.snippet) Add(&items, "Snippet", Snippet_Of(BodyText(items, schema), wanted), true);
  if (!script.place) return items;
  Add(&items, "SearchGroup", hdr.SearchGroup, false);
  Add(&items, "RecType", hdr.RecType, false);
  Add(&items, "DocNum", std::to_string(hdr.DocNum), false);
  return items;
}

// The language that the words of a database are stemmed in.
std::string LanguageOf(const Schema &schema) {
  return schema.origin == SchemaOrigin::kOmega ? "english" : schema.language;
}

std::string Refuse(const CmdHdr &hdr) {
  DPRINTF(nullptr, kWarning, "[DocMgr: GetDoc] Document %d of '%s' was not stored as a record\n",
          hdr.DocNum, hdr.RecType);
  return Record_Error("The document of this number cannot be sent");
}

}  // namespace

std::string Prepare_Record(const Xapian::Document &document, const Schema &schema,
                           const CmdHdr &hdr) {
  const std::string data = document.get_data();
  const Script script = Script_Read(hdr.Script);
  const bool as_stored = !script.html && !script.snippet && !script.place && !script.all;
  if (as_stored && Record_IsFields(data)) return Record_Document(hdr.DocNum, data);

  Fields fields;
  if (!Document_Read(data, schema.origin, &fields)) return Refuse(hdr);
  const Wanted wanted = Words_Wanted(LanguageOf(schema), script.marks);
  Items items = ItemsOf(fields, schema, script, wanted, hdr);
  MakeValues(&items, script, wanted);
  std::string text = "\t";
  for (const Item &item : items) text.append(item.name).append("=").append(item.value).append("\t");
  return Record_Document(hdr.DocNum, text);
}
