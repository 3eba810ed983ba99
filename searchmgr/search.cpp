#include "searchmgr/search.h"

#include <limits>
#include <vector>

#include "core/workers.h"
#include "debug/log.h"
#include "manager/manager.h"
#include "searchmgr/query.h"
#include "searchmgr/request.h"
#include "searchmgr/shards.h"
#include "searchmgr/status.h"
#include "store/record.h"

namespace {

using std::chrono::milliseconds;

constexpr const char *kTooLong = "\t@COMMAND=ERROR\tThe search took too long\n";
constexpr Xapian::doccount kCounted = 1000;  // hits that are counted rather than estimated

// A database among those that are searched as one: a shard, or one of those that a shard's file
// names.
struct Part {
  const SearchShard *shard;
  Xapian::docid of, parts;  // which of the shard's, and how many it has
};

// One search: the shards that take part, as one database.
struct Search {
  const SearchRequest &request;
  const char *script;
  const char *predicate;
  ShardClock::time_point begin;
  std::vector<const SearchShard *> open = {};
  std::vector<Part> parts = {};  // as the database numbers them
  Xapian::Database database = {};
  const Schema *schema = nullptr;
  int shards = 0;
};

// That of the first shard with documents: one without any may not know yet what its fields are.
const Schema &SchemaOf(const std::vector<const SearchShard *> &open) {
  for (const SearchShard *shard : open)
    if (shard->shard.database->get_doccount() > 0) return shard->shard.schema;
  return open.front()->shard.schema;
}

void Join(Search *search) {
  search->open.clear();
  search->parts.clear();
  search->database = Xapian::Database();
  for (const SearchShard &shard : Shards_All()) {
    if (!shard.shard.database) continue;
    search->database.add_database(*shard.shard.database);
    search->open.push_back(&shard);
    const auto parts = static_cast<Xapian::docid>(shard.shard.database->size());
    for (Xapian::docid of = 0; of < parts; ++of) search->parts.push_back({&shard, of, parts});
  }
  search->schema = &SchemaOf(search->open);
}

// Leaves out hits below so many per cent of the best hit's weight: whatever the order, and however
// few of the words the best one has.
void SetFit(const Search &search, Xapian::Enquire *enquire) {
  if (search.request.best_fit == 0) return;
  const Xapian::MSet best = enquire->get_mset(0, 1);
  constexpr double kRounding = 1 - 1e-9;  // the same sum in another order
  if (!best.empty())
    enquire->set_cutoff(0, best[0].get_weight() * search.request.best_fit / 100 * kRounding);
}

// Empty, or why hits cannot be in that order.
std::string SetOrder(const Search &search, Xapian::Enquire *enquire) {
  if (search.request.sort.empty()) return {};
  Xapian::valueno slot = 0;
  std::string wrong = Request_SortSlot(search.request, *search.schema, &slot);
  if (wrong.empty())
    enquire->set_sort_by_value_then_relevance(slot, search.request.sort_descending);
  return wrong;
}

// Document Managers that mark words need to know which.
std::string ScriptFor(std::string script, const std::vector<std::string> &marks) {
  const std::string words = " " + script + " ";
  if (words.find(" html ") == std::string::npos && words.find(" snippet ") == std::string::npos)
    return script;
  for (const std::string &mark : marks) {
    const std::string word = " mark:" + mark;
    if (script.size() + word.size() < kHdrText) script += word;
  }
  return script;
}

// Best hit first; of equal ones the lower number.
std::string Hits(const Search &search, const Xapian::MSet &hits, const std::string &script) {
  const auto all = static_cast<Xapian::docid>(search.parts.size());
  std::string records;
  for (auto hit = hits.begin(); hit != hits.end(); ++hit) {
    const Part &part = search.parts[(*hit - 1) % all];
    const SearchShard &shard = *part.shard;
    const Xapian::docid number = (*hit - 1) / all * part.parts + part.of + 1;
    if (number > std::numeric_limits<std::int32_t>::max()) continue;  // DOCNUM cannot name it
    records += Record_Hit(shard.group, shard.type, static_cast<std::int32_t>(number), script);
  }
  return records;
}

// The corrected text, if it finds more than what was typed.
std::string BetterSpelling(const Search &search, Xapian::doccount matches) {
  const CorrectedQuery corrected = Query_Correct(search.database, *search.schema, search.predicate);
  if (corrected.text.empty()) return {};
  Xapian::Enquire enquire(search.database);
  enquire.set_query(corrected.query);
  const Xapian::MSet found = enquire.get_mset(0, 0, matches + 1);
  return found.get_matches_estimated() > matches ? corrected.text : "";
}

std::string Status(const Search &search, const Xapian::MSet &hits) {
  const auto spent = ShardClock::now() - search.begin;
  SearchStatus status = {};
  status.matches = hits.get_matches_estimated();
  status.exact = hits.get_matches_lower_bound() == hits.get_matches_upper_bound();
  status.first = static_cast<std::uint64_t>(search.request.first_hit) + 1;
  status.shown = hits.size();
  status.shards_searched = static_cast<int>(search.open.size());
  status.shards = search.shards;
  status.milliseconds = std::chrono::duration_cast<milliseconds>(spent).count();
  status.spelling = BetterSpelling(search, hits.get_matches_estimated());
  return Status_Record(status);
}

// The records of one match over what is open.
std::string Page(const Search &search) {
  SearchQuery query;
  const char *wrong = Query_Parse(search.database, *search.schema, search.predicate, &query);
  if (wrong != nullptr) return Record_Error(wrong);
  Xapian::Enquire enquire(search.database);
  enquire.set_query(query.query);
  SetFit(search, &enquire);
  const std::string disorder = SetOrder(search, &enquire);
  if (!disorder.empty()) return Record_Error(disorder);
  const auto first = static_cast<Xapian::doccount>(search.request.first_hit);
  const auto most = static_cast<Xapian::doccount>(search.request.hits);
  const Xapian::MSet hits =
      enquire.get_mset(first, most, search.request.status == 1 ? kCounted : 0);
  return (search.request.status == 1 ? Status(search, hits) : std::string()) +
         Hits(search, hits, ScriptFor(search.script, query.marks)) + kRecordSearchComplete;
}

// As often as a shard fails, from the rest; as often as a database is written to meanwhile, anew.
std::string PageOfTheRest(Search *search, std::span<Shard *const> shards,
                          const ShardRequest &time) {
  for (;;) {
    if (Shard_Ready(shards, time) == 0) return Record_Error("No part of the documents can be read");
    try {
      Join(search);
      return Page(*search);
    } catch (const Xapian::DatabaseModifiedError &) {
      // Shard_Ready looks at it anew.
    } catch (const Xapian::Error &error) {
      Shard *failed = Shard_OfError(shards, error);
      if (failed == nullptr) throw;  // it is the request's
      Shard_Fail(shards, failed, error, time);
    }
    if (ShardClock::now() >= time.end) return kTooLong;
  }
}

}  // namespace

std::string Search_Answer(const CmdHdr &hdr, const char *text, const char *predicate) {
  SearchRequest request;
  const char *wrong = Request_Read(hdr, text, &request);
  if (wrong != nullptr) return Record_Error(wrong);
  const milliseconds deadline(request.deadline);
  MainCore_EndAfter(static_cast<int>((deadline + kManagerGrace).count()), kTooLong);
  std::vector<Shard *> shards;
  for (SearchShard &shard : Shards_All()) shards.push_back(&shard.shard);
  Search search = {request, hdr.Script, predicate, ShardClock::now()};
  search.shards = static_cast<int>(shards.size());
  return PageOfTheRest(&search, shards, {search.begin, search.begin + deadline});
}
