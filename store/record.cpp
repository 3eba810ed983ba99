#include "store/record.h"

#include <algorithm>

#include "config/conf_file.h"
#include "debug/text.h"

namespace {

constexpr std::size_t kHeadSize =
    256;  // a header with two names of a configuration record and a number
static_assert(sizeof ConfigInfo::ID + sizeof DBInfo::DBName + 64 <= kHeadSize);

bool Has(std::string_view text, char c) { return text.find(c) != std::string_view::npos; }

bool HasLongValue(std::string_view text) {
  while (text.size() > kRecordValueSize) {
    const std::size_t end = std::min(text.find('\t'), text.size() - 1);
    const std::size_t equals = text.substr(0, end).find('=');
    if (equals != std::string_view::npos && end - equals - 1 > kRecordValueSize) return true;
    text.remove_prefix(end + 1);
  }
  return false;
}

}  // namespace

std::string Record_Hit(const std::string &group, const std::string &type, std::int32_t docnum,
                       const std::string &script) {
  std::string record = "\t@COMMAND=HIT\t@SEARCHGROUP=";
  record.append(group).append("\t@RECTYPE=").append(type);
  record.append("\t@DOCNUM=").append(std::to_string(docnum));
  if (!script.empty()) record.append("\t@SCRIPT=").append(script);
  return record.append("\n");
}

std::string Record_Error(const std::string &reason) { return "\t@COMMAND=ERROR\t" + reason + "\n"; }

std::string Record_Document(std::int32_t docnum, std::string_view fields) {
  char head[kHeadSize];
  (void)Text_FormatTo(head, sizeof head, "\t@COMMAND=HIT\t@DOCNUM=%d", docnum);
  return std::string(head).append(fields).append("\n");
}

bool Record_IsFields(std::string_view text) {
  return text.size() > 1 && text.size() <= kRecordFieldsSize && text.front() == '\t' &&
         text.back() == '\t' && text[1] != '@' && !Has(text, '\n') && !Has(text, '\r') &&
         !Has(text, '\0') && !HasLongValue(text);
}
