#include "tools/wire/misbehave.h"

#include <sysexits.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "tools/common/tool.h"

namespace {

constexpr std::size_t kRecord = 40960;  // bytes of the longest record
constexpr std::size_t kField = 1000;    // bytes of a field that fills; a header ends at one of 1025
constexpr int kManyHits = 10000;

// The first record becomes one of that many bytes, its newline included, by unknown fields in
// front: it says what it said.
void Fill(Sent *sent, std::size_t size) {
  const std::string_view front = "\t@Y=";
  const std::size_t end = sent->bytes.find('\n');
  if (!sent->first || end == std::string::npos || end + 1 + front.size() > size) return;
  const std::size_t room = size - end - 1, count = (room + kField - 1) / kField;
  std::string fields;
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t length = room / count + (i < room % count ? 1 : 0);
    fields.append(front).append(length - front.size(), 'y');
  }
  sent->bytes.insert(0, fields);
}

void Halve(Sent *sent, After after) {
  if (!sent->first) return;
  sent->bytes.resize(sent->bytes.size() / 2);
  sent->after = after;
}

void Repeat(Sent *sent) {
  if (!sent->first) return;
  const std::string record = sent->bytes.substr(0, sent->bytes.find('\n') + 1);
  std::string all;
  for (int i = 1; i < kManyHits; ++i) all += record;
  sent->bytes.insert(0, all);
}

constexpr Misbehaviour kMisbehaviours[] = {
    {"drips", [](Sent *sent) { sent->piece = sent->every = 1; }},
    {"hangs", [](Sent *sent) { Halve(sent, After::kHang); }},
    {"resets", [](Sent *sent) { Halve(sent, After::kReset); }},
    {"half-closes", [](Sent *sent) { sent->after = After::kHalfClose; }},
    {"40960-bytes", [](Sent *sent) { Fill(sent, kRecord); }},
    {"40961-bytes", [](Sent *sent) { Fill(sent, kRecord + 1); }},
    {"no-newline",
     [](Sent *sent) {
       sent->bytes.resize(std::min(sent->bytes.find('\n'), sent->bytes.size()));
       sent->after = After::kClose;
     }},
    {"nuls",
     [](Sent *sent) {
       const std::size_t end = sent->bytes.find('\n');
       if (sent->first && end != std::string::npos) sent->bytes.insert(end, 1, '\0');
     }},
    {"10000-hits", Repeat},
    {"unknown-words",
     [](Sent *sent) {
       if (sent->first) sent->bytes.insert(0, "\t@COMMAND=UNKNOWN\tx\n");
     }},
};

}  // namespace

const Misbehaviour *Misbehave_Of(const char *word) {
  for (const Misbehaviour &known : kMisbehaviours)
    if (std::strcmp(word, known.word) == 0) return &known;
  Tool_Fail(EX_USAGE,
            "--misbehave takes drips, hangs, resets, half-closes, 40960-bytes, 40961-bytes, "
            "no-newline, nuls, 10000-hits or unknown-words, not '%s'",
            word);
}
