// A schema: what was read and is written again reads the same.  And the numbers and dates of its
// fields.
//
// Parts: the schema; a value.
#include <algorithm>
#include <cmath>
#include <sstream>

#include "store/field.h"
#include "store/schema.h"
#include "tests/fuzz/support/fuzz.h"

namespace {

void CheckFields(const Schema &schema) {
  FUZZ_CHECK(!schema.fields.empty());
  for (const SchemaField &field : schema.fields) {
    FUZZ_CHECK(Field_IsName(field.name));
    FUZZ_CHECK(Schema_Find(schema, field.name) == &field);
    FUZZ_CHECK(Schema_Slot(schema, field) < schema.fields.size());
    FUZZ_CHECK(field.weight >= 1 && field.weight <= 100);
    FUZZ_CHECK(!Schema_IsRanged(field) || Schema_IsSorted(field));
  }
}

std::string ReadSchema(const std::string &text) {
  std::istringstream in(text);
  Schema schema;
  SchemaError error;
  if (!Schema_Read(&in, &schema, &error)) {
    FUZZ_CHECK(!error.reason.empty());
    FUZZ_CHECK(error.line <= std::count(text.begin(), text.end(), '\n') + 1);
    return std::to_string(error.line) + ": " + error.reason;
  }
  CheckFields(schema);
  const std::string written = Schema_Text(schema);
  std::istringstream again(written);
  Schema same;
  FUZZ_CHECK(Schema_Read(&again, &same, &error));
  FUZZ_CHECK(Schema_Text(same) == written);
  return written;
}

std::string ReadNumber(FieldKind kind, const std::string &text) {
  double first = 0, last = 0;
  const bool is_number = Schema_Number(kind, text, false, &first);
  FUZZ_CHECK(Schema_Number(kind, text, true, &last) == is_number);
  if (!is_number) return "-";
  FUZZ_CHECK(std::isfinite(first) && first <= last);
  return std::to_string(first) + ".." + std::to_string(last);
}

}  // namespace

std::string Fuzz_Run(const Input &input) {
  const std::string value = input[1].Whole();
  return ReadSchema(input[0].Whole()) + '\n' + ReadNumber(FieldKind::kNumber, value) + '\n' +
         ReadNumber(FieldKind::kDate, value);
}
