#include "searchmgr/status.h"

#include <string_view>

std::string Status_Encode(const std::string &text) {
  constexpr std::string_view kPlain =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._";
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string encoded;
  for (const char c : text) {
    if (kPlain.find(c) != std::string_view::npos) {
      encoded += c;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    encoded.append("%").append({kDigits[byte >> 4], kDigits[byte & 15]});
  }
  return encoded;
}

std::string Status_Record(const SearchStatus &status) {
  std::string record = "\t@COMMAND=RAW\t<!--korvo matches=";
  if (!status.exact) record += '~';
  record.append(std::to_string(status.matches));
  record.append(" first=").append(std::to_string(status.first));
  record.append(" shown=").append(std::to_string(status.shown));
  record.append(" shards=").append(std::to_string(status.shards_searched));
  record.append("/").append(std::to_string(status.shards));
  record.append(" ms=").append(std::to_string(status.milliseconds));
  if (!status.spelling.empty()) record.append(" spelling=").append(Status_Encode(status.spelling));
  return record.append("-->\n");
}
