#include "tools/macro/page.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "debug/text.h"
#include "macro/exec.h"
#include "protocol/cmd_hdr.h"
#include "tools/common/tool.h"
#include "tools/macro/files.h"
#include "tools/macro/input.h"

namespace {

constexpr std::size_t kFetchedFile = 1 << 20;

std::string fetch_folder;

// A word that is one name of a file.
bool IsPlain(const char *word) {
  return word[0] != '\0' && word[0] != '.' && std::strchr(word, '/') == nullptr;
}

bool ReadFetched(const CmdHdr &hdr, std::string *document) {
  const std::string path =
      fetch_folder + "/" + hdr.SearchGroup + "/" + hdr.RecType + "/" + std::to_string(hdr.DocNum);
  std::string text;
  std::vector<std::string> documents;
  if (fetch_folder.empty() || !IsPlain(hdr.SearchGroup) || !IsPlain(hdr.RecType) ||
      !Files_TryRead(path, kFetchedFile, &text) || !Input_Read(text, &documents).empty() ||
      documents.empty())
    return false;
  *document = documents.front();
  return true;
}

int Fetch(int, CmdHdr *hdr, char *out, int *len, int) {
  std::string document;
  out[0] = '\0';
  if (!ReadFetched(*hdr, &document)) {
    Tool_Warn("a fetch fails: there is no document %s/%s/%d in the folder of --fetch",
              hdr->SearchGroup, hdr->RecType, hdr->DocNum);
    return 0;
  }
  if (!Text_CopyTo(out, static_cast<std::size_t>(*len) + 1, document))
    Tool_Warn("a fetch is cut to %d characters", *len);
  *len = static_cast<int>(std::strlen(out));
  return 1;
}

}  // namespace

void Page_FetchFrom(const std::string &folder) {
  fetch_folder = folder;
  Macro_SetFetch(Fetch);
}

PageText Page_Run(int handle, const std::string &document) {
  static MessageBuffer raw, formatted;
  (void)Text_Copy(raw.text, document);
  const int length = Text_Length(raw.text);
  int produced = kMessageSize;
  PageText page;
  page.result = Macro_Exec(handle, raw.text, formatted.text, &produced, kMessageSize - length);
  if (page.result == 1) page.output.assign(formatted.text, static_cast<std::size_t>(produced));
  return page;
}
