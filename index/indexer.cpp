#include "index/indexer.h"

#include <cstdlib>
#include <filesystem>
#include <set>
#include <sstream>
#include <system_error>
#include <vector>

namespace {

// Bytes of values.  What they become in memory before it is written is thirty times that, or nine
// times as much again where each word is a new one.
constexpr std::int64_t kMostUncommitted = 4 << 20;

// Documents that Xapian gathers in memory before it writes them, committed or not.  Its own 10000
// take seven times the memory and twice the time: they do not stay in a processor's cache.
constexpr const char *kFlushThreshold = "1000";

bool IsFresh(const std::string &location) {
  std::error_code none;
  const std::filesystem::path path(location);
  return !std::filesystem::exists(path, none) ||
         (std::filesystem::is_directory(path, none) &&
          !std::filesystem::exists(path / "iamglass", none));
}

// Only what Xapian makes: whatever else a user has there stays, and its folder too.
void RemoveDatabase(const std::string &location) {
  std::error_code none;
  for (const auto &entry : std::filesystem::directory_iterator(location, none)) {
    const std::string name = entry.path().filename().string();
    if (name == "iamglass" || name == "flintlock" || name.ends_with(".glass"))
      std::filesystem::remove(entry.path(), none);
  }
  std::filesystem::remove(location, none);
}

// The first line of one schema that the other has not; empty: it has all.
std::string LineMissing(const Schema &schema, const Schema &other) {
  std::istringstream lines(Schema_Text(schema));
  std::set<std::string> others;
  std::istringstream text(Schema_Text(other));
  for (std::string line; std::getline(text, line);) others.insert(line);
  for (std::string line; std::getline(lines, line);)
    if (!others.contains(line)) return line;
  return {};
}

std::string Difference(const Schema &kept, const Schema &given) {
  const std::string wanted = LineMissing(given, kept), missing = LineMissing(kept, given);
  if (!wanted.empty()) return "its schema has no line '" + wanted + "'";
  if (!missing.empty()) return "its schema has the line '" + missing + "' as well";
  return "its schema has the same lines in another order";
}

// Keeps the schema of this run, or finds that the database has it.
bool SettleSchema(Indexer *indexer, Schema *schema, std::string *reason) {
  const Schema *given = indexer->options.schema;
  if (schema->origin == SchemaOrigin::kOmega)
    *reason = "it is one of Omega's indexers, which alone can add to it";
  else if (given == nullptr || Schema_Text(*schema) == Schema_Text(*given))
    return true;
  else if (schema->origin == SchemaOrigin::kGiven)
    *reason = Difference(*schema, *given);
  else if (indexer->database.get_doccount() > 0)
    *reason = "it has documents without a schema";
  if (!reason->empty()) return false;
  Schema_Store(&indexer->database, *given);
  *schema = *given;
  return true;
}

void Commit(Indexer *indexer) {
  indexer->database.commit_transaction();
  indexer->committed = indexer->added + indexer->replaced;
  indexer->bytes = 0;
}

}  // namespace

void Indexer_Open(Indexer *indexer) {
  const std::string &location = indexer->options.location;
  const bool fresh = IsFresh(location);
  setenv("XAPIAN_FLUSH_THRESHOLD", kFlushThreshold, 0);  // whoever has set it knows better
  indexer->database = Xapian::WritableDatabase(
      location, indexer->options.create ? Xapian::DB_CREATE_OR_OPEN : Xapian::DB_OPEN);
  indexer->fresh = fresh;
  indexer->last = indexer->database.get_lastdocid();
}

bool Indexer_Begin(Indexer *indexer, std::string *reason) {
  Schema schema = Schema_Of(indexer->database);
  indexer->database.begin_transaction();
  if (!SettleSchema(indexer, &schema, reason)) return false;
  const SchemaField *named = Schema_Find(schema, indexer->options.id);
  if (named != nullptr) indexer->options.id = named->name;
  indexer->indexing.id = indexer->options.id;
  indexer->indexing.positions = indexer->options.positions;
  Indexing_Begin(&indexer->indexing, schema, &indexer->database, indexer->options.spelling);
  if (indexer->options.id.empty() || indexer->indexing.id == indexer->options.id) return true;
  *reason = "its documents are named by their field " + indexer->indexing.id;
  return false;
}

bool Indexer_Add(Indexer *indexer, Fields *fields, std::string *expected) {
  Xapian::Document document;
  if (!Indexing_Document(&indexer->indexing, fields, &document, expected)) return false;
  const Xapian::docid number =
      indexer->database.replace_document(Indexing_UniqueTerm(indexer->indexing, *fields), document);
  const bool is_new = number > indexer->last;
  if (is_new) indexer->last = number;
  ++(is_new ? indexer->added : indexer->replaced);
  for (const Field &field : *fields)
    indexer->bytes += static_cast<std::int64_t>(field.value.size());
  const std::int64_t waiting = indexer->added + indexer->replaced - indexer->committed;
  const std::int32_t commit = indexer->options.commit;
  if (commit > 0 && (waiting >= commit || indexer->bytes >= kMostUncommitted)) {
    Commit(indexer);
    indexer->database.begin_transaction();
  }
  return true;
}

void Indexer_Finish(Indexer *indexer) {
  const bool kept = indexer->committed > 0 || indexer->added > 0 || indexer->replaced > 0 ||
                    indexer->options.schema != nullptr;
  if (!kept) return Indexer_Abandon(indexer);
  Commit(indexer);
}

void Indexer_Abandon(Indexer *indexer) {
  try {
    // The files go while the lock is held, so that nobody else's do.
    if (indexer->fresh && indexer->committed == 0) RemoveDatabase(indexer->options.location);
    indexer->database.close();  // takes an open transaction back
  } catch (const Xapian::Error &) {
    // What could not be written is what is taken back.
  }
}

Xapian::doccount Indexer_Delete(Indexer *indexer, const std::string &id) {
  const std::string term = Indexing_IdTerm(indexer->indexing.id, id);
  std::vector<std::string> terms = {term};
  const std::string states = term + "\n";
  terms.insert(terms.end(), indexer->database.allterms_begin(states),
               indexer->database.allterms_end(states));
  Xapian::doccount deleted = 0;
  for (const std::string &unique : terms) {
    deleted += indexer->database.get_termfreq(unique);
    indexer->database.delete_document(unique);
  }
  return deleted;
}
