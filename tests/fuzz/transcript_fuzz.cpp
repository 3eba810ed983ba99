// Transcripts: what is shown reads the same, and neither what fits nor what is counted depends on
// how the bytes are cut.
//
// Parts: the transcript; what comes, a segment a piece.
#include <algorithm>

#include "tests/fuzz/support/fuzz.h"
#include "tools/wire/exchange.h"
#include "tools/wire/pattern.h"
#include "tools/wire/transcript.h"

namespace {

constexpr std::size_t kShownWhole = 400;  // bytes of a literal

// Repetitions make megabytes, which are allowed and take long.
bool IsLarge(const std::vector<Item> &items) {
  return std::any_of(items.begin(), items.end(), [](const Item &item) {
    return (item.kind == ItemKind::kTimes && item.count > 9) || IsLarge(item.inside);
  });
}

std::string Shown(const std::vector<Item> &items) {
  const std::string shown = Pattern_Show(items, {});
  if (std::any_of(items.begin(), items.end(), Transcript_HasPattern)) return shown;
  const std::string bytes = Pattern_Bytes(items, {});
  if (bytes.empty() || bytes.size() > kShownWhole) return shown;
  Transcript again;
  std::string wrong;
  FUZZ_CHECK(Transcript_Parse("client > " + shown, "f", &again, &wrong));
  FUZZ_CHECK(Pattern_Bytes(again.cases.front().steps.front().items, {}) == bytes);
  return shown;
}

void CheckCuts(const std::vector<Item> &items, const Part &part) {
  const std::string whole = part.Whole();
  Scene scene;
  std::size_t length = 0, so_far = 0;
  const Fit fit = Pattern_Match(items, whole, false, &scene, &length);
  FUZZ_CHECK(length <= whole.size());
  for (const std::string &segment : part.segments) {
    so_far += segment.size();
    Scene cut_scene;
    std::size_t cut_length = 0;
    const Fit cut = Pattern_Match(items, std::string_view(whole).substr(0, so_far), false,
                                  &cut_scene, &cut_length);
    if (cut == Fit::kMore) continue;
    FUZZ_CHECK(cut == fit);
    FUZZ_CHECK(cut == Fit::kNo || (cut_length == length && cut_scene.kept == scene.kept));
  }
}

Exchange Told(const std::vector<std::string> &pieces) {
  Exchange exchange;
  exchange.recorded = true;
  for (const std::string &piece : pieces) {
    Exchange_TakeRequest(&exchange, piece);
    if (!piece.empty()) Exchange_TakeAnswer(&exchange, piece);
  }
  return exchange;
}

void CheckTold(const Part &part) {
  const std::string whole = part.Whole();
  const Exchange cut = Told(part.segments), once = Told({whole});
  FUZZ_CHECK(cut.hits == once.hits && cut.errors == once.errors);
  FUZZ_CHECK(cut.request_bytes == once.request_bytes);
  const std::string redacted = Exchange_Redact(whole);
  FUZZ_CHECK(redacted.size() == whole.size());
  for (std::size_t i = 0; i < whole.size(); ++i)
    FUZZ_CHECK(redacted[i] == 'x' || redacted[i] == whole[i]);
  Transcript transcript;
  std::string wrong;
  FUZZ_CHECK(cut.transcript.empty() || Transcript_Parse(cut.transcript, "f", &transcript, &wrong));
}

}  // namespace

std::string Fuzz_Run(const Input &input) {
  CheckTold(input[1]);
  Transcript transcript;
  std::string wrong;
  if (!Transcript_Parse(input[0].Whole(), "f", &transcript, &wrong)) {
    FUZZ_CHECK(wrong.starts_with("f:"));
    return wrong + '\n';
  }
  std::string shown;
  for (const Case &which : transcript.cases) {
    shown += which.name + ": " + which.says + '\n';
    for (const Step &step : which.steps) {
      if (IsLarge(step.items)) continue;
      shown += step.actor + ' ' + Shown(step.items) + '\n';
      if (step.verb == Verb::kExpect) CheckCuts(step.items, input[1]);
    }
  }
  return shown;
}
