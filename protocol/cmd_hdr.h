// protocol/cmd_hdr.h: the command header that begins every message of the system.
//
// A message is one line: fields of the form tab, "@", NAME, "=", value, in any order, and then the
// predicate, which begins with the separator before the first token without "@", or before the
// token @OPER.  Separators are tab, newline and carriage return.  A token counts only when a
// separator follows it.
#ifndef PROTOCOL_CMD_HDR_H
#define PROTOCOL_CMD_HDR_H

#include <cstddef>
#include <cstdint>

inline constexpr std::size_t kHdrText = 128;  // bytes of a text field, terminator included

struct CmdHdr {
  char Command[kHdrText];
  std::int32_t BestFit;
  char SearchGroup[kHdrText];
  char RecType[kHdrText];
  char MacroFile[kHdrText];
  std::int32_t DocNum;
  std::int32_t MaxHits;
  char Script[kHdrText];
  std::int32_t SeqNum;
  char AuthCode[kHdrText];
  char FileName[kHdrText];
  std::int32_t ExpDate;  // seconds since 1970
};

// Bytes of a message buffer; its storage is one byte larger, for the terminator.
inline constexpr int kMessageSize = 40960;

// That storage.  It begins a page, since a new process pays for each page that it touches, and most
// messages fit into one.
struct alignas(4096) MessageBuffer {
  char text[kMessageSize + 1];
};

// Fills the fields that text carries; the caller has cleared the record.  The result is where the
// predicate begins in text.  Null: there is no predicate, text is no header, or a field was refused
// and logged; the fields before it stay.  text is neither changed nor kept.
const char *Util_IntCmdHdr(CmdHdr *hdr, const char *text);

// Writes the header, without a newline and without MaxHits, and returns its length.  out has
// kMessageSize bytes, of which the longest header takes about 1,100.
int Util_FormatCmdHdr(const CmdHdr *hdr, char *out);

// Logs the record at 102, and up to 255 characters of the predicate if there is one.
void Util_Display(const CmdHdr *hdr, const char *predicate);

#endif
