#include "engine/fields.h"

#include "store/schema.h"

namespace {

// False: it does not fit any more.
bool AddName(std::string *list, const std::string &name, std::size_t size) {
  const std::size_t comma = list->empty() ? 0 : 1;
  if (list->size() + comma + name.size() > size) return false;
  if (comma == 1) *list += ',';
  list->append(name);
  return true;
}

// The terms of a field stand together: X, its name, a colon, and the word.
std::string NamesOfTerms(const Xapian::Database &database, std::size_t size) {
  std::string list;
  Xapian::TermIterator term = database.allterms_begin("X");
  while (term != database.allterms_end("X")) {
    const std::string text = *term;
    const std::size_t colon = text.find(':');
    if (colon == std::string::npos) {
      ++term;
      continue;
    }
    if (!AddName(&list, text.substr(1, colon - 1), size)) break;
    term.skip_to(text.substr(0, colon) + ';');  // behind all that begin so
  }
  return list;
}

}  // namespace

std::string Engine_Fields(const Xapian::Database &database, std::size_t size) {
  const Schema schema = Schema_Of(database);
  if (schema.origin != SchemaOrigin::kGiven) return NamesOfTerms(database, size);
  std::string list;
  for (const SchemaField &field : schema.fields)
    if (field.kind != FieldKind::kStored && !AddName(&list, field.name, size)) break;
  return list;
}
