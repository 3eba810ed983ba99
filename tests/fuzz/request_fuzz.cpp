// The header fields of a search: what is granted is within its limits, and the header alone counts.
#include <memory>
#include <sstream>

#include "searchmgr/request.h"
#include "tests/fuzz/support/fuzz.h"

namespace {

Schema Library() {
  std::istringstream in("Title text sort\nTopic keyword\nPages number\nNote stored\n");
  Schema schema;
  SchemaError error;
  FUZZ_CHECK(Schema_Read(&in, &schema, &error));
  return schema;
}

std::string Shown(const SearchRequest &request) {
  std::ostringstream shown;
  shown << request.first_hit << ' ' << request.hits << ' ' << request.deadline << ' '
        << request.best_fit << ' ' << request.status << ' ' << request.sort_descending << ' '
        << request.sort;
  return shown.str();
}

std::string Read(const CmdHdr &hdr, const std::string &whole) {
  const Bytes text = Fuzz_Terminated(whole);
  SearchRequest request;
  const char *reason = Request_Read(hdr, text.data(), &request);
  return reason != nullptr ? reason : Shown(request);
}

void CheckLimits(const SearchRequest &request) {
  FUZZ_CHECK(request.first_hit >= 0 && request.hits > 0);
  FUZZ_CHECK(request.first_hit + request.hits <= kRequestMostHits);
  FUZZ_CHECK(request.deadline >= 1 && request.deadline <= kRequestLongestDeadline);
  FUZZ_CHECK(request.best_fit >= 0 && request.best_fit <= 100);
  FUZZ_CHECK(request.status == 0 || request.status == 1);
}

std::string Slot(const SearchRequest &request) {
  static const Schema kSchema = Library();
  Xapian::valueno slot = 99;
  const std::string reason = Request_SortSlot(request, kSchema, &slot);
  FUZZ_CHECK(reason.empty() == (slot == 0 || slot == 2));
  return " " + std::to_string(slot) + reason;
}

}  // namespace

std::string Fuzz_Run(const Input &input) {
  const std::string whole = Fuzz_UpToNul(input[0].Whole());
  const Bytes text = Fuzz_Terminated(whole);
  const auto hdr = std::make_unique<CmdHdr>();
  const char *predicate = Util_IntCmdHdr(hdr.get(), text.data());
  const std::string shown = Read(*hdr, whole);
  if (predicate != nullptr) {
    const std::string header = whole.substr(0, static_cast<std::size_t>(predicate - text.data()));
    FUZZ_CHECK(Read(*hdr, header + "\tx\t@FIRSTHIT=7\n") == shown);
  }

  SearchRequest request;
  const char *reason = Request_Read(*hdr, text.data(), &request);
  if (reason != nullptr) return reason;
  CheckLimits(request);
  return shown + Slot(request);
}
