#include "protocol/cmd_hdr.h"

#include <cstring>
#include <string_view>

#include "debug/log.h"
#include "debug/text.h"
#include "protocol/pair.h"

namespace {

constexpr std::size_t kTokenSize = 1024;  // the longest token of a header
constexpr std::size_t kNameSize = 128;    // the longest name of a field
constexpr const char *kSeparators = "\t\n\r";

struct Field {
  std::string_view name;               // on the wire
  char (CmdHdr::*text)[kHdrText];      // where a text goes, or null
  std::int32_t CmdHdr::*number;        // where a number goes, or null
  void (*refused)(const char *value);  // reports a number below 0
};

constexpr Field kFields[] = {
    {"COMMAND", &CmdHdr::Command, nullptr, nullptr},
    {"BESTFIT", nullptr, &CmdHdr::BestFit,
     [](const char *value) {
       DPRINTF(nullptr, kWarning, "[Util: IntCmdHdr] BestFit %s not recognized\n", value);
     }},
    {"SEARCHGROUP", &CmdHdr::SearchGroup, nullptr, nullptr},
    {"RECTYPE", &CmdHdr::RecType, nullptr, nullptr},
    {"MACROFILE", &CmdHdr::MacroFile, nullptr, nullptr},
    {"DOCNUM", nullptr, &CmdHdr::DocNum,
     [](const char *value) {  // Kept for the operators: it says RecType
       DPRINTF(nullptr, kWarning, "[Util: IntCmdHdr] RecType %s not recognized\n", value);
     }},
    {"MAXHITS", nullptr, &CmdHdr::MaxHits,
     [](const char *value) {
       DPRINTF(nullptr, kWarning, "[Util: IntCmdHdr] MaxHits value %s not recognized\n", value);
     }},
    {"SCRIPT", &CmdHdr::Script, nullptr, nullptr},
    {"SEQNUM", nullptr, &CmdHdr::SeqNum,
     [](const char *value) {
       DPRINTF(nullptr, kWarning, "[Util: IntCmdHdr] SeqNum %s not recognized\n", value);
     }},
    {"AUTHCODE", &CmdHdr::AuthCode, nullptr, nullptr},
    {"FILENAME", &CmdHdr::FileName, nullptr, nullptr},
    {"EXPDATE", nullptr, &CmdHdr::ExpDate,
     [](const char *value) {
       DPRINTF(nullptr, kWarning, "[Util: IntCmdHdr] ExpDate %s not recognized\n", value);
     }},
};

const Field *FindField(std::string_view name) {
  for (const Field &field : kFields)
    if (field.name == name) return &field;
  return nullptr;
}

// These stand apart, so that a header that is in order needs no room on the stack for them.

[[gnu::noinline]] void ReportRefused(const Field &field, std::string_view value) {
  char shown[kTokenSize + 1];
  (void)Text_Copy(shown, value);
  field.refused(shown);
}

[[gnu::noinline]] void ReportNoPair(std::string_view token) {
  char whole[kTokenSize + 1];
  (void)Text_Copy(whole, token);
  DPRINTF(nullptr, kInfo, "[Util: IntCmdHdr] Token is not a NAME=VALUE pair: token = %s\n", whole);
}

// Stores one value.  False: a number below 0, logged.
bool Store(CmdHdr *hdr, const Field &field, std::string_view value) {
  if (field.text != nullptr) {
    if (!Text_Copy(hdr->*field.text, value))
      DPRINTF(nullptr, kWarning, "[Util: IntCmdHdr] Value of %s cut to %d characters\n",
              field.name.data(), static_cast<int>(kHdrText) - 1);
    return true;
  }
  hdr->*field.number = Text_ToInt32(value);  // also a refused one, so that a reply can echo it
  if (hdr->*field.number >= 0) return true;
  ReportRefused(field, value);
  return false;
}

// Takes one token, its "@" included.  False: it ends the parse and was logged.
bool TakeField(CmdHdr *hdr, std::string_view token, bool *predicate) {
  if (token.size() > kTokenSize) {
    DPRINTF(nullptr, kWarning, "[Util: IntCmdHdr] Token of %d characters is longer than %d\n",
            static_cast<int>(token.size()), static_cast<int>(kTokenSize));
    return false;
  }
  std::string_view name, value;
  if (!Util_SplitView(token.substr(1), &name, &value, '=')) {
    ReportNoPair(token);
    return false;
  }
  if (name.size() > kNameSize) {
    DPRINTF(nullptr, kWarning, "[Util: IntCmdHdr] Name of %d characters is longer than %d\n",
            static_cast<int>(name.size()), static_cast<int>(kNameSize));
    return false;
  }
  *predicate = name == "OPER";
  const Field *field = FindField(name);
  return field == nullptr || Store(hdr, *field, value);
}

constexpr std::size_t kShownSize = 256;

// An argument of its line: nothing is copied for one that is dropped.
const char *Beginning(const char *text, char (&out)[kShownSize]) {
  (void)Text_Copy(out, text);
  return out;
}

}  // namespace

const char *Util_IntCmdHdr(CmdHdr *hdr, const char *text) {
  if (text == nullptr) return nullptr;
  const char *at = text;
  while (*at != '\0' && std::strchr(kSeparators, *at) != nullptr) {
    const char *end = std::strpbrk(at + 1, kSeparators);
    if (end == nullptr) return nullptr;
    const std::string_view token(at + 1, static_cast<std::size_t>(end - at - 1));
    if (token.empty() || token.front() != '@') return at;
    bool predicate = false;
    if (!TakeField(hdr, token, &predicate)) return nullptr;
    if (predicate) return at;
    at = end;
  }
  return nullptr;
}

int Util_FormatCmdHdr(const CmdHdr *hdr, char *out) {
  (void)Text_FormatTo(
      out, kMessageSize,
      "\t@COMMAND=%s\t@BESTFIT=%d\t@SEARCHGROUP=%s\t@RECTYPE=%s\t@MACROFILE=%s\t@DOCNUM=%d\t@SCRIPT=%s\t@SEQNUM=%d\t@AUTHCODE=%s\t@FILENAME=%s\t@EXPDATE=%ld",
      hdr->Command, hdr->BestFit, hdr->SearchGroup, hdr->RecType, hdr->MacroFile, hdr->DocNum,
      hdr->Script, hdr->SeqNum, hdr->AuthCode, hdr->FileName, static_cast<long>(hdr->ExpDate));
  return Text_Length(out);
}

void Util_Display(const CmdHdr *hdr, const char *predicate) {
  DPRINTF(nullptr, kStatus, "[Util: Display] CmdHdr->Command       = %s\n", hdr->Command);
  DPRINTF(nullptr, kStatus, "[Util: Display] CmdHdr->BestFit       = %d\n", hdr->BestFit);
  DPRINTF(nullptr, kStatus, "[Util: Display] CmdHdr->SearchGroup   = %s\n", hdr->SearchGroup);
  DPRINTF(nullptr, kStatus, "[Util: Display] CmdHdr->RecType       = %s\n", hdr->RecType);
  DPRINTF(nullptr, kStatus, "[Util: Display] CmdHdr->MacroFile     = %s\n", hdr->MacroFile);
  DPRINTF(nullptr, kStatus, "[Util: Display] CmdHdr->DocNum        = %d\n", hdr->DocNum);
  DPRINTF(nullptr, kStatus, "[Util: Display] CmdHdr->Script        = %s\n", hdr->Script);
  DPRINTF(nullptr, kStatus, "[Util: Display] CmdHdr->SeqNum        = %d\n", hdr->SeqNum);
  DPRINTF(nullptr, kStatus, "[Util: Display] CmdHdr->AuthCode      = %s\n", hdr->AuthCode);
  DPRINTF(nullptr, kStatus, "[Util: Display] CmdHdr->FileName      = %s\n", hdr->FileName);
  char when[kTimeTextSize];
  DPRINTF(nullptr, kStatus, "[Util: Display] CmdHdr->ExpDate       = (%d) %s", hdr->ExpDate,
          Debug_TimeText(hdr->ExpDate, when));
  if (predicate == nullptr) return;
  char shown[kShownSize];
  DPRINTF(nullptr, kStatus, "[Util: Display] CmdHdr->Predicate (first 255 chars) = %s\n",
          Beginning(predicate, shown));
}
