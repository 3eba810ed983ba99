// store/record.h: the records that the managers answer with.
//
// A record is a command header and what stands behind it, ended by a newline.
#ifndef STORE_RECORD_H
#define STORE_RECORD_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "protocol/cmd_hdr.h"
#include "store/field.h"

// Bytes of a record, its newline included: its reader's buffer of kMessageSize keeps one for the
// terminator.
inline constexpr std::size_t kRecordSize = kMessageSize - 1;

// Bytes of a document in its record, behind the longest header.
inline constexpr std::size_t kRecordFieldsSize =
    kRecordSize - std::string_view("\t@COMMAND=HIT\t@DOCNUM=2147483647\n").size();

// Bytes of a value: page macros cannot show a longer one.
inline constexpr std::size_t kRecordValueSize = 4095;

inline constexpr const char *kRecordSearchComplete = "\t@COMMAND=SEARCHCOMPLETE\n";

// One match of a search: the Document Manager that holds it, its record type, its number there, and
// how it is to be prepared, if that is said at all.  The texts fit into header fields.
std::string Record_Hit(const std::string &group, const std::string &type, std::int32_t docnum,
                       const std::string &script);

// The plain reason why there is no other answer.
std::string Record_Error(const std::string &reason);

// A document: its fields between tabs, NAME=value, with one before the first and one behind the
// last, so that the last value does not carry the record's newline.
std::string Record_Document(std::int32_t docnum, std::string_view fields);

// Whether text can stand in a document's record as it is: no value is longer than kRecordValueSize.
bool Record_IsFields(std::string_view text);

#endif
