#include "index/indexing.h"

#include <algorithm>

#include "store/record.h"
#include "store/schema.h"

namespace {

constexpr Xapian::termpos kFieldGap = 100;  // no phrase reaches over the end of a field

std::string_view ValueOf(const Fields &fields, std::string_view name) {
  const auto field = std::find_if(fields.begin(), fields.end(),
                                  [&](const Field &candidate) { return candidate.name == name; });
  return field != fields.end() ? std::string_view(field->value) : std::string_view();
}

}  // namespace

std::string Indexing_UniqueTerm(const Fields &fields) {
  std::string term = "Q";  // Xapian's letter for unique terms
  term.append(fields.front().name).append("=").append(fields.front().value);
  term.append("\n").append(ValueOf(fields, "Version"));
  term.append("\n").append(ValueOf(fields, "Architecture"));
  return Schema_ShortTerm(term);
}

Xapian::Document Indexing_Document(const Fields &fields, int *cut) {
  Xapian::Document document;
  Xapian::TermGenerator terms;
  terms.set_document(document);
  for (const Field &field : fields) {
    terms.index_text(field.value);
    terms.increase_termpos(kFieldGap);
    terms.index_text(field.value, 1, Field_Prefix(field.name));
    terms.increase_termpos(kFieldGap);
  }
  document.add_boolean_term(Indexing_UniqueTerm(fields));
  document.set_data(Record_Fields(fields, cut));
  return document;
}
