// tests/soak/exchange.h: one client's visit, what the managers do about it, and the answers that
// are right.
//
// The answer follows from the plan alone, unless a manager resets or dies: then what it had done by
// that time leaves one answer, or the few that the order of packets decides between.
#ifndef TESTS_SOAK_EXCHANGE_H
#define TESTS_SOAK_EXCHANGE_H

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tests/soak/backend.h"
#include "tests/soak/form.h"
#include "tests/soak/pages.h"
#include "tests/soak/visitor.h"

// What a Document Manager answers to one request.
struct Document {
  enum class Result { kText, kEmpty, kFailed };
  Content content;
  Result result = Result::kText;  // once its answer has come
  std::shared_ptr<Deed> deed;     // null: nobody is asked
};

// One record of a Search Manager's stream.
struct Record {
  enum class What { kHit, kText, kLastText, kEnd, kOverflow, kIgnored };
  std::string bytes;
  What what;
  std::string text;  // what of it reaches the client
  std::size_t document = 0;
};

struct Exchange {
  int number = 0;
  const char *kind = "";
  Visit visit;
  bool left_early = false;     // the client sees a beginning of its answer at most
  bool cut_short = false;      // the daemon ends with bytes of the client unread
  const Page *page = nullptr;  // null: the answer is fixed
  std::string fixed;
  bool whole_document = false;  // GETDOC: documents holds the one
  int max_hits = 0;
  std::shared_ptr<Deed> search;  // null: the fixed answer, or GETDOC
  std::vector<Record> records;
  std::vector<Document> documents;
  std::map<int, std::shared_ptr<Deed>> fetched;  // by document number, the further ones too
};

// The answers that are right, by what the managers have done so far.
std::set<std::string> Exchange_Answers(const Exchange &exchange);

#endif
