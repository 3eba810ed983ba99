#include "store/document.h"

#include <algorithm>

namespace {

// Control characters would end a field, a record or a line.
void AddField(Fields *fields, std::string_view pair) {
  const std::size_t equals = pair.find('=');
  if (equals == std::string_view::npos || !Field_IsName(pair.substr(0, equals))) return;
  fields->push_back({std::string(pair.substr(0, equals)), std::string(pair.substr(equals + 1))});
  Field_MakeLine(&fields->back().value, 0);
}

}  // namespace

std::string Document_Data(const Fields &fields, int *cut) {
  std::string data = "\t";
  for (const Field &field : fields) {
    const std::size_t used = data.size() + field.name.size() + std::string_view("=\t").size();
    if (used > kDocumentSize) {
      ++*cut;
      continue;
    }
    const std::string_view value = Field_Cut(field.value, kDocumentSize - used);
    if (value.size() < field.value.size()) ++*cut;
    data.append(field.name).append("=").append(value).append("\t");
  }
  return data;
}

bool Document_Read(std::string_view data, SchemaOrigin origin, Fields *fields) {
  fields->clear();
  const char separator = origin == SchemaOrigin::kOmega ? '\n' : '\t';
  while (!data.empty()) {
    const std::size_t end = std::min(data.find(separator), data.size());
    AddField(fields, data.substr(0, end));
    data.remove_prefix(std::min(end + 1, data.size()));
  }
  return !fields->empty();
}
