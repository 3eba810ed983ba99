// engine/fields.h: the fields of a database that can be searched.
#ifndef ENGINE_FIELDS_H
#define ENGINE_FIELDS_H

#include <xapian.h>

#include <cstddef>
#include <string>

// Bytes of a list that fit into an announcement behind the longest names and ports.
inline constexpr std::size_t kEngineFieldsSize = 840;

// Their names parted by commas: those of the schema, else in capitals those that terms have.  Cut
// at a name where it would grow beyond size.  Throws what Xapian throws.
std::string Engine_Fields(const Xapian::Database &database, std::size_t size);

#endif
