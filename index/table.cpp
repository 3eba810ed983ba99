#include "index/table.h"

#include <csv.h>

#include <exception>
#include <new>
#include <utility>

namespace {

struct Cell {
  bool given;
  std::string value;
};
using Row = std::vector<Cell>;

}  // namespace

// The parser, and what it has called back with.
struct CsvState {
  csv_parser parser;
  std::vector<Cell> row;
  bool ended;                 // the row is whole
  std::exception_ptr thrown;  // in a call back: the parser is C and does not expect it
};

void CsvFree::operator()(CsvState *state) const {
  csv_free(&state->parser);
  delete state;
}

namespace {

constexpr std::size_t kGrowth = 65536;  // of the parser's buffer; its own 128 make long values slow

// Carriage returns belong to the ends of lines, so that they end no row by themselves.
int IsSpace(unsigned char c) { return c == ' ' || c == '\t' || c == '\r' ? 1 : 0; }
int IsLineEnd(unsigned char c) { return c == '\n' ? 1 : 0; }

void TakeCell(void *text, std::size_t size, void *state) {
  auto *csv = static_cast<CsvState *>(state);
  try {
    if (csv->row.size() > kMostValues) return;  // one too many says that they are
    csv->row.push_back({text != nullptr, ""});
    if (text != nullptr)
      Reader_Append(&csv->row.back().value, {static_cast<const char *>(text), size});
  } catch (...) {
    csv->thrown = std::current_exception();
  }
}

void EndRow(int, void *state) { static_cast<CsvState *>(state)->ended = true; }

void OpenCsv(Reader *reader) {
  reader->csv.reset(new CsvState{});
  csv_parser *parser = &reader->csv->parser;
  if (csv_init(parser, CSV_STRICT | CSV_EMPTY_IS_NULL) != 0) throw std::bad_alloc();
  csv_set_space_func(parser, IsSpace);
  csv_set_term_func(parser, IsLineEnd);
  csv_set_blk_size(parser, kGrowth);
}

// The parser after a fault is as before its first byte.
void StartRow(CsvState *csv) {
  csv_fini(&csv->parser, nullptr, nullptr, nullptr);
  csv->row.clear();
  csv->ended = false;
}

bool ParseLine(CsvState *csv, std::string_view line) {
  for (const std::string_view piece : {line, std::string_view("\n")}) {
    const std::size_t done =
        csv_parse(&csv->parser, piece.data(), piece.size(), TakeCell, EndRow, csv);
    if (csv->thrown != nullptr) std::rethrow_exception(std::exchange(csv->thrown, nullptr));
    if (done == piece.size()) continue;
    if (csv_error(&csv->parser) != CSV_EPARSE) throw std::bad_alloc();
    return false;
  }
  return true;
}

// The next row, which ends with the first line end that is not in quotes.
ReadResult ReadCsvRow(Reader *reader, Row *row) {
  if (reader->csv == nullptr) OpenCsv(reader);
  CsvState *csv = reader->csv.get();
  StartRow(csv);
  std::string_view line;
  for (std::size_t size = 0; !csv->ended;) {
    const LineResult result = Lines_Next(&reader->lines, kMostRecord, &line);
    const bool quoted = csv->parser.quoted != 0;
    if (!quoted) reader->line = reader->lines.number;
    if (result == LineResult::kFailed) return ReadResult::kFailed;
    if (result == LineResult::kEnd && !quoted) return ReadResult::kEnd;
    if (result == LineResult::kEnd)
      return Reader_Bad(reader, "expected a quote at the end of each value that begins with one",
                        ReadResult::kBroken);
    size += line.size() + 1;
    if (result == LineResult::kTooLong || size > kMostRecord)
      return Reader_Bad(reader, kExpectedSize, quoted ? ReadResult::kBroken : ReadResult::kBad);
    if (!ParseLine(csv, line)) {
      reader->line = reader->lines.number;
      return Reader_Bad(reader,
                        "expected quotes around the whole of a value, and doubled ones within it");
    }
  }
  row->swap(csv->row);
  return ReadResult::kDocument;
}

ReadResult ReadTsvRow(Reader *reader, Row *row) {
  row->clear();
  std::string_view line;
  const LineResult result = Lines_Next(&reader->lines, kMostRecord, &line);
  reader->line = reader->lines.number;
  if (result == LineResult::kFailed) return ReadResult::kFailed;
  if (result == LineResult::kEnd) return ReadResult::kEnd;
  if (result == LineResult::kTooLong) return Reader_Bad(reader, kExpectedSize);
  for (std::size_t tab = 0; tab != std::string_view::npos && row->size() <= kMostValues;) {
    tab = line.find('\t');
    const std::string_view text = Reader_Trim(line.substr(0, tab));
    row->push_back({!text.empty(), ""});
    Reader_Append(&row->back().value, text);
    if (tab != std::string_view::npos) line.remove_prefix(tab + 1);
  }
  return ReadResult::kDocument;
}

ReadResult TakeNames(Reader *reader, const Row &row) {
  if (row.size() > kMostValues) return Reader_Bad(reader, kExpectedValues, ReadResult::kBroken);
  for (const Cell &cell : row) {
    if (!Field_IsName(cell.value))
      return Reader_Bad(reader, Reader_ExpectedName(cell.value), ReadResult::kBroken);
    reader->names.push_back(cell.value);
  }
  return ReadResult::kDocument;
}

ReadResult TakeValues(Reader *reader, Row *row, Fields *fields) {
  if (row->size() != reader->names.size())
    return Reader_Bad(reader, "expected " + std::to_string(reader->names.size()) +
                                  " values, a value a name of the first line, not " +
                                  std::to_string(row->size()));
  for (std::size_t i = 0; i < row->size(); ++i)
    if ((*row)[i].given) fields->push_back({reader->names[i], std::move((*row)[i].value)});
  return ReadResult::kDocument;
}

bool HasValue(const Row &row) {
  for (const Cell &cell : row)
    if (cell.given) return true;
  return false;
}

ReadResult Read(Reader *reader, Fields *fields, ReadResult (*read)(Reader *, Row *)) {
  fields->clear();
  Row row;
  while (fields->empty()) {
    ReadResult result = read(reader, &row);
    if (result == ReadResult::kDocument && HasValue(row))
      result = reader->names.empty() ? TakeNames(reader, row) : TakeValues(reader, &row, fields);
    else if (result == ReadResult::kBad && reader->names.empty())
      result = ReadResult::kBroken;  // what the columns are is not known
    if (result != ReadResult::kDocument) return result;
  }
  return ReadResult::kDocument;
}

}  // namespace

ReadResult Table_ReadCsv(Reader *reader, Fields *fields) {
  return Read(reader, fields, ReadCsvRow);
}

ReadResult Table_ReadTsv(Reader *reader, Fields *fields) {
  return Read(reader, fields, ReadTsvRow);
}
