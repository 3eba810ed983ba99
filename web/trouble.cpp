#include "web/trouble.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr TroubleInfo kInfos[kTroubles] = {
    {"none", 200},     {"no-page", 404},      {"no-group", 404},      {"no-document", 404},
    {"method", 405},   {"long-request", 414}, {"too-many", 429},      {"query", 400},
    {"gone", 502},     {"failed", 502},       {"broken", 502},        {"busy", 503},
    {"stopping", 503}, {"too-late", 504},     {"lost-document", 502}, {"missing-hits", 502},
    {"shards", 200},
};

struct Line {
  std::string_view text;
  Trouble trouble;
  bool ends;  // without a newline
};

constexpr Line kLines[] = {
    {"Unable to locate SearchMgr", Trouble::kGone, false},
    {"Unable to connect to SearchMgr", Trouble::kGone, false},
    {"Unable to receive from Search Manager", Trouble::kBroken, false},
    {"Unable to retreive document.", Trouble::kLostDocument, true},
    {"Unable to locate Document Server.", Trouble::kNoDocument, true},
};

struct Reason {
  std::string_view text;
  Trouble trouble;
};

constexpr Reason kReasons[] = {
    {"Unable to parse query", Trouble::kQuery},
    {"Unable to sort", Trouble::kQuery},
    {"The search took too long", Trouble::kTooLate},
    {"Unable to read the database", Trouble::kFailed},
    {"Unable to figure out this command", Trouble::kFailed},
};

}  // namespace

const TroubleInfo &Trouble_Info(Trouble trouble) { return kInfos[static_cast<int>(trouble)]; }

Trouble Trouble_OfLine(std::string_view text, std::size_t *size) {
  *size = 0;
  for (const Line &line : kLines) {
    if (!text.starts_with(line.text)) continue;
    if (line.ends) *size = line.text.size();
    return line.trouble;
  }
  return Trouble::kFailed;
}

Trouble Trouble_OfReason(std::string_view text) {
  for (const Reason &reason : kReasons)
    if (text.starts_with(reason.text)) return reason.trouble;
  return Trouble::kFailed;
}

bool Trouble_MayBeReason(std::string_view text) {
  return std::any_of(std::begin(kReasons), std::end(kReasons), [text](const Reason &reason) {
    return text.starts_with(reason.text) || reason.text.starts_with(text);
  });
}
