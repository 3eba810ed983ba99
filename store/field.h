// store/field.h: the fields that a document is made of.
#ifndef STORE_FIELD_H
#define STORE_FIELD_H

#include <string>
#include <string_view>
#include <vector>

struct Field {
  std::string name;   // as Field_IsName has it
  std::string value;  // one line of text, without control characters
};

// One document: its fields in their order, at least one.
using Fields = std::vector<Field>;

// A letter and then letters, digits, "-", "_" and ".", at most 64 characters in all.
bool Field_IsName(std::string_view name);

// What stands before each term of that field in the index.  Capitals and small letters are the same
// name.
std::string Field_Prefix(std::string_view name);

// Makes blanks of the control characters of a value, from that byte on.
void Field_MakeLine(std::string *value, std::size_t from);

// The first size bytes of text, less those of a UTF-8 character that does not fit whole.
std::string_view Field_Cut(std::string_view text, std::size_t size);

#endif
