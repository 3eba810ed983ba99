// The command header: what the parser accepts the writer can write, and the parser reads it back.
#include <cstring>
#include <memory>

#include "protocol/cmd_hdr.h"
#include "tests/fuzz/support/fuzz.h"

namespace {

constexpr std::string_view kSeparators = "\t\n\r";
constexpr std::size_t kLongestToken = 1024;
constexpr std::size_t kLongestName = 128;

using TextField = char (CmdHdr::*)[kHdrText];
constexpr TextField kTexts[] = {&CmdHdr::Command,   &CmdHdr::SearchGroup, &CmdHdr::RecType,
                                &CmdHdr::MacroFile, &CmdHdr::Script,      &CmdHdr::AuthCode,
                                &CmdHdr::FileName};
using NumberField = std::int32_t CmdHdr::*;
constexpr NumberField kNumbers[] = {&CmdHdr::BestFit, &CmdHdr::DocNum, &CmdHdr::MaxHits,
                                    &CmdHdr::SeqNum, &CmdHdr::ExpDate};

void CheckTexts(const CmdHdr &hdr) {
  for (const TextField field : kTexts) {
    FUZZ_CHECK(Fuzz_IsTerminated(hdr.*field));
    FUZZ_CHECK(std::string_view(hdr.*field).find_first_of(kSeparators) == std::string_view::npos);
  }
}

int Negatives(const CmdHdr &hdr) {
  int count = 0;
  for (const NumberField field : kNumbers) count += hdr.*field < 0;
  return count;
}

// All that stands before a predicate is fields, none too long.
void CheckFields(std::string_view fields) {
  while (!fields.empty()) {
    fields.remove_prefix(1);
    const std::string_view token = fields.substr(0, fields.find_first_of(kSeparators));
    FUZZ_CHECK(token.starts_with('@') && token.size() <= kLongestToken);
    const std::size_t equals = token.find('=');
    FUZZ_CHECK(equals != std::string_view::npos && equals - 1 <= kLongestName);
    fields.remove_prefix(token.size());
  }
}

// A predicate begins with a separator and a whole token: one without "@", or OPER.
void CheckPredicate(std::string_view predicate) {
  FUZZ_CHECK(!predicate.empty());
  FUZZ_CHECK(kSeparators.find(predicate.front()) != std::string_view::npos);
  predicate.remove_prefix(1);
  FUZZ_CHECK(predicate.find_first_of(kSeparators) != std::string_view::npos);
  FUZZ_CHECK(!predicate.starts_with('@') || predicate.starts_with("@OPER="));
}

// What can be seen of a record: behind the end of a text lies what an earlier, longer one left.
std::string Shown(const CmdHdr &hdr) {
  std::string shown;
  for (const TextField field : kTexts) shown += std::string(hdr.*field) + '\t';
  for (const NumberField field : kNumbers) shown += std::to_string(hdr.*field) + '\t';
  return shown;
}

// Only MaxHits is not written.
void CheckWritten(CmdHdr hdr) {
  hdr.MaxHits = 0;
  Bytes out(kMessageSize);
  const int length = Util_FormatCmdHdr(&hdr, out.data());
  FUZZ_CHECK(length > 0 && length + 1 < kMessageSize);
  FUZZ_CHECK(std::strlen(out.data()) == static_cast<std::size_t>(length));

  const Bytes line = Fuzz_Terminated(std::string(out.data()) + "\n");
  CmdHdr again = {};
  FUZZ_CHECK(Util_IntCmdHdr(&again, line.data()) == nullptr);
  FUZZ_CHECK(Shown(again) == Shown(hdr));
}

}  // namespace

std::string Fuzz_Run(const Input &input) {
  const std::string whole = Fuzz_UpToNul(input[0].Whole());
  const Bytes text = Fuzz_Terminated(whole);
  const auto hdr = std::make_unique<CmdHdr>();
  const char *predicate = Util_IntCmdHdr(hdr.get(), text.data());
  FUZZ_CHECK(whole == text.data());
  CheckTexts(*hdr);
  FUZZ_CHECK(Negatives(*hdr) <= 1);  // a number below 0 ends the parse
  if (predicate != nullptr) {
    FUZZ_CHECK(predicate >= text.data() && predicate < text.data() + whole.size());
    FUZZ_CHECK(Negatives(*hdr) == 0);
    CheckFields({text.data(), static_cast<std::size_t>(predicate - text.data())});
    CheckPredicate(predicate);
  }
  Util_Display(hdr.get(), predicate);
  if (Negatives(*hdr) == 0) CheckWritten(*hdr);

  return Shown(*hdr) + (predicate != nullptr ? predicate : "");
}
