#include "web/trouble.h"

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
  if (text.starts_with("Unable to parse query") || text.starts_with("Unable to sort"))
    return Trouble::kQuery;
  return text.starts_with("The search took too long") ? Trouble::kTooLate : Trouble::kFailed;
}
