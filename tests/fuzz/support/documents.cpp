#include "tests/fuzz/support/documents.h"

#include <algorithm>

namespace {

bool IsControl(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 0x20 || byte == 0x7f;
}

void CheckDocument(const Fields &fields) {
  FUZZ_CHECK(!fields.empty() && fields.size() <= kMostValues);
  for (const Field &field : fields) {
    FUZZ_CHECK(Field_IsName(field.name));
    FUZZ_CHECK(std::none_of(field.value.begin(), field.value.end(), IsControl));
  }
}

std::string Shown(const Fields &fields) {
  std::string shown;
  for (const Field &field : fields) shown += field.name + '=' + field.value + '\t';
  return shown + '\n';
}

// Gives the segments one after the other, and no byte of two at once.
std::ptrdiff_t Give(std::vector<std::string> *segments, char *bytes, std::size_t size) {
  while (!segments->empty() && segments->front().empty()) segments->erase(segments->begin());
  if (segments->empty()) return 0;
  std::string &segment = segments->front();
  const std::size_t count = std::min(size, segment.size());
  std::copy_n(segment.data(), count, bytes);
  segment.erase(0, count);
  return static_cast<std::ptrdiff_t>(count);
}

}  // namespace

Documents Fuzz_ReadDocuments(Format format, const Part &part) {
  std::vector<std::string> segments = part.segments;
  Reader reader = {format, {[&segments](char *bytes, std::size_t size) {
                     return Give(&segments, bytes, size);
                   }}};
  Documents documents;
  Fields fields;
  const std::string whole = part.Whole();
  auto most = std::count(whole.begin(), whole.end(), '\n') + 2;  // a line is a document at most
  std::int64_t line = 0;
  for (;; --most) {
    FUZZ_CHECK(most > 0);
    const ReadResult result = Reader_Next(&reader, &fields);
    FUZZ_CHECK(result != ReadResult::kFailed);
    if (result == ReadResult::kEnd) return documents;
    FUZZ_CHECK(reader.line >= line && reader.line <= reader.lines.number);
    line = reader.line;
    documents.shown += std::to_string(line) + ": ";
    if (result == ReadResult::kDocument) {
      CheckDocument(fields);
      documents.all.push_back(fields);
      documents.shown += Shown(fields);
      continue;
    }
    FUZZ_CHECK(reader.expected.starts_with("expected "));
    documents.shown += reader.expected + '\n';
    if (result == ReadResult::kBroken) return documents;
  }
}

Documents Fuzz_ReadCut(Format format, const Part &part) {
  const Documents documents = Fuzz_ReadDocuments(format, part);
  const std::string whole = part.Whole();
  FUZZ_CHECK(Fuzz_ReadDocuments(format, {{whole}}).shown == documents.shown);
  const std::size_t half = whole.size() / 2;
  FUZZ_CHECK(Fuzz_ReadDocuments(format, {{whole.substr(0, half), whole.substr(half)}}).shown ==
             documents.shown);
  return documents;
}

bool Fuzz_SameDocuments(const std::vector<Fields> &a, const std::vector<Fields> &b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](const Fields &x, const Fields &y) { return Shown(x) == Shown(y); });
}
