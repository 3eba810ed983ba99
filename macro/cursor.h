// macro/cursor.h: the cursor over the document that is being formatted.
//
// A document is a text of fields: tab, name, "=", value; a value ends at the next tab, or with the
// text.  One document at a time, which stays the caller's.
#ifndef MACRO_CURSOR_H
#define MACRO_CURSOR_H

#include <cstdint>
#include <string_view>

// Sets the cursor to the start of the document; 0.
int Macro_SetInput(char *document);

// Measures the document again, after text was appended to it.
void Macro_Remeasure();

char *Macro_Document();
int Macro_Length();

// The cursor as an offset, and back; an offset behind the end, kept from a longer document, is the
// end.
int Macro_Cursor();
void Macro_SetCursor(int offset);

// Sets the cursor to an offset below the length and returns 1; 0 otherwise.
int Macro_Seek(std::int32_t offset);

// Moves the cursor to the next field of that name, from the cursor on and then once around, and
// from there skip matches further without going around.  The position of the tab before the name;
// null: logged, and the cursor is where it was.
const char *Macro_FindField(const char *name, int skip);

// The value of the field at position, as it stands in the document, and at most capacity characters
// of it.  One that fills the capacity is logged; without "=" there is none (data null), logged.
std::string_view Macro_Terms(const char *position, int capacity);

// Copies the value of the field at position.  *size is the capacity of buffer and becomes the
// length of the value, terminator not counted.  The result is buffer; null: no "=", or a value that
// fills the capacity, both logged, with *size as it was and the part that fits, not terminated, in
// buffer.  buffer null: the result is a copy that the caller frees.
char *Macro_GetTerms(const char *position, char *buffer, int *size);

#endif
