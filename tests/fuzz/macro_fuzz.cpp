// A macro over documents, all arbitrary, with fetches that the input answers.
//
// Parts: code; the documents of a page, a segment each; capacity of the output and room behind the
// document, two bytes each, and how many macros are open before, one; then the answers, in turn.  A
// fetch without an answer fails.
#include <algorithm>
#include <cstring>

#include "macro/cursor.h"
#include "macro/exec.h"
#include "macro/table.h"
#include "tests/fuzz/support/fuzz.h"
#include "tests/fuzz/support/macros.h"

namespace {

constexpr std::size_t kFirstAnswer = 3;
constexpr std::size_t kDocuments = 8;  // more only take time
// Of code times bytes of a document: each look-up may stop at every byte, so more takes minutes.
constexpr std::size_t kWork = 1 << 26;

const Input *current = nullptr;
std::size_t fetches = 0;
std::string requests;

void CheckCursor() {
  FUZZ_CHECK(Macro_Length() == static_cast<int>(std::strlen(Macro_Document())));
  FUZZ_CHECK(Macro_Cursor() >= 0 && Macro_Cursor() <= Macro_Length());
}

// Fills its buffer to the brim, as a source of documents may.
int Fetch(int, CmdHdr *hdr, char *out, int *len, int format) {
  FUZZ_CHECK(format == 0);
  FUZZ_CHECK(*len >= 0);
  FUZZ_CHECK(std::string_view(hdr->Command) == "GETDOC");
  FUZZ_CHECK(Fuzz_IsTerminated(hdr->SearchGroup) && Fuzz_IsTerminated(hdr->RecType));
  CheckCursor();
  requests += std::string(hdr->SearchGroup) + '\t' + hdr->RecType + '\t' +
              std::to_string(hdr->DocNum) + '\n';
  out[0] = '\0';
  const std::size_t answer = kFirstAnswer + fetches++;
  if (answer >= current->parts.size()) return 0;
  const std::string text = Fuzz_UpToNul((*current)[answer].Whole());
  const std::size_t size = std::min(text.size(), static_cast<std::size_t>(*len));
  std::memcpy(out, text.data(), size);
  out[size] = '\0';
  *len = static_cast<int>(size);
  return 1;
}

// One document of the page, in a buffer that has room bytes behind it.
std::string Format(int macro, const std::string &text, int capacity, int room) {
  Bytes document(text.size() + static_cast<std::size_t>(room) + 1, '\x55');
  std::memcpy(document.data(), text.c_str(), text.size() + 1);
  Bytes output(static_cast<std::size_t>(capacity), '\x55');
  int length = capacity;
  const int result = Macro_Exec(macro, document.data(), output.data(), &length, room);
  FUZZ_CHECK(result == 1 || result == -1);
  FUZZ_CHECK(length >= 0 && length <= capacity);
  FUZZ_CHECK(result == 1 || length == capacity);
  const std::string_view after(document.data(), document.size());
  FUZZ_CHECK(after.find('\0') != std::string_view::npos);
  FUZZ_CHECK(after.starts_with(text));  // a document is appended to, never changed
  FUZZ_CHECK(Macro_Document() == document.data());
  if (result == 1) CheckCursor();

  std::string shown = std::to_string(result) + document.data();
  if (result == 1) shown.append(output.data(), static_cast<std::size_t>(length));
  static char none[1] = "";
  Macro_SetInput(none);  // the document ends here
  return shown;
}

}  // namespace

std::string Fuzz_Run(const Input &input) {
  current = &input;
  fetches = 0;
  requests.clear();
  Fuzz_ResetMacros();
  Macro_SetFetch(Fetch);
  Fuzz_OnMessage = Fuzz_EndUndefined;

  const std::string sizes = input[2].Whole();
  const int capacity = std::max(Fuzz_Number(sizes, 0, 2, kMessageSize), 1);
  const int room = Fuzz_Number(sizes, 2, 2, kMessageSize);
  Fuzz_FillTable(Fuzz_Number(sizes, 4, 1, 0) % (kMacroSlots + 2));
  const std::string code = input[0].Whole();
  const int macro = Fuzz_LoadMacro(code);
  std::string shown;
  for (std::size_t i = 0; i < input[1].segments.size() && i < kDocuments; ++i) {
    const std::string document = Fuzz_UpToNul(input[1].segments[i]);
    if (code.size() * document.size() <= kWork) shown += Format(macro, document, capacity, room);
  }
  return shown + requests;
}
