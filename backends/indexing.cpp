#include "backends/indexing.h"

#include <algorithm>
#include <cinttypes>
#include <cstdint>

#include "backends/record.h"
#include "debug/text.h"

namespace {

constexpr std::size_t kTermSize = 240;      // Xapian takes 245 bytes
constexpr Xapian::termpos kFieldGap = 100;  // no phrase reaches over the end of a field

std::string_view ValueOf(const Fields &fields, std::string_view name) {
  const auto field = std::find_if(fields.begin(), fields.end(),
                                  [&](const Field &candidate) { return candidate.name == name; });
  return field != fields.end() ? std::string_view(field->value) : std::string_view();
}

// FNV-1a in 64 bits: the same in every build, as a term that stays in the index has to be.
std::uint64_t Hash(std::string_view text) {
  std::uint64_t hash = 0xcbf29ce484222325;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
  return hash;
}

// A term that is too long keeps its start and ends in the hash of the whole.
std::string Shorten(std::string term) {
  if (term.size() <= kTermSize) return term;
  char digits[17];
  (void)Text_FormatTo(digits, sizeof digits, "%016" PRIx64, Hash(term));
  return term.substr(0, kTermSize - 16) + digits;
}

}  // namespace

std::string Indexing_UniqueTerm(const Fields &fields) {
  std::string term = "Q";  // Xapian's letter for unique terms
  term.append(fields.front().name).append("=").append(fields.front().value);
  term.append("\n").append(ValueOf(fields, "Version"));
  term.append("\n").append(ValueOf(fields, "Architecture"));
  return Shorten(term);
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
