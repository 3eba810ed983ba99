// index/reader.h: reads the documents of an input, whatever its format.
//
// Whatever an input holds, it costs no more memory than one document of kMostRecord bytes and
// kMostValues values.
#ifndef INDEX_READER_H
#define INDEX_READER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "index/lines.h"
#include "store/field.h"

inline constexpr std::size_t kMostRecord = 16 << 20;
inline constexpr std::size_t kMostValues = 10000;

// What a reader expects of every format.
inline constexpr const char *kExpectedSize = "expected a document of at most 16 MiB";
inline constexpr const char *kExpectedValues = "expected a document of at most 10000 values";

enum class Format { kControl, kJsonLines, kCsv, kTsv };

enum class ReadResult {
  kDocument,
  kEnd,
  kBad,     // this document is none; the next call goes on behind it
  kBroken,  // and nobody can tell where the next one begins
  kFailed,  // the input cannot be read
};

struct CsvState;
struct CsvFree {
  void operator()(CsvState *state) const;
};

struct Reader {
  Format format;
  Lines lines;
  std::int64_t line = 0;      // where a document begins, or what is wrong stands; from 1
  std::string expected = {};  // what would be right there

  bool in_bad_document = false;         // the rest of one comes next
  std::vector<std::string> names = {};  // of the columns of a table
  std::unique_ptr<CsvState, CsvFree> csv = {};
};

// Reads the next document.  Each value is one line of text without control characters.  One without
// a value is none.
ReadResult Reader_Next(Reader *reader, Fields *fields);

// The format of that name: control, jsonl, csv or tsv.  False: there is none.
bool Reader_Format(std::string_view name, Format *format);

// What the name of a file says: .jsonl, .ndjson and .json; .csv; .tsv; control for any other.
Format Reader_FormatOf(std::string_view file);

// What the readers have in common.

// Text without the blanks, tabs and carriage returns around it.
std::string_view Reader_Trim(std::string_view text);

// Appends text as it stands in a value: control characters are blanks.
void Reader_Append(std::string *value, std::string_view text);

// That reader->line is wrong, and why.
ReadResult Reader_Bad(Reader *reader, std::string expected, ReadResult result = ReadResult::kBad);

// What Reader_Bad says of a name that none can be.
std::string Reader_ExpectedName(std::string_view name);

#endif
