#include <sysexits.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "tools/common/tool.h"
#include "tools/ctl/survey.h"
#include "tools/macro/asm.h"
#include "tools/macro/check.h"

namespace {

namespace fs = std::filesystem;

constexpr std::uintmax_t kMaxFrame = 10238;

void CheckFrame(Survey *survey, const std::string &path) {
  std::error_code error;
  const std::uintmax_t size = fs::file_size(path, error);
  if (!error && size > kMaxFrame)
    Survey_Report(survey, path, 1, Weight::kSurvived,
                  Tool_Format("has %d characters, of which the first %d are sent; shorten it",
                              static_cast<int>(size), static_cast<int>(kMaxFrame)));
}

// What fields documents have is not known here; korvo-macro check can be told.
void CheckMacro(Survey *survey, const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  std::string code(kMacroLimit, '\0');
  file.read(code.data(), static_cast<std::streamsize>(code.size()));
  code.resize(static_cast<std::size_t>(file.gcount()));
  for (const Finding &finding : Check_Macro(code, Documents_For(code)))
    if (Check_IsFault(finding) && finding.fault != Fault::kFetchLacks &&
        finding.fault != Fault::kWords)
      Survey_Report(survey, path, 1, Weight::kSurvived,
                    Tool_Format("offset %zu: %s; see korvo-macro check", finding.offset,
                                finding.what.c_str()));
}

}  // namespace

void Survey_Pages(Survey *survey, const std::string &folder) {
  std::error_code error;
  fs::recursive_directory_iterator file(folder, error);
  if (error) Tool_Fail(EX_NOINPUT, "cannot read %s: %s", folder.c_str(), error.message().c_str());
  std::vector<fs::path> paths;
  for (; file != fs::recursive_directory_iterator(); file.increment(error))
    if (file->is_regular_file(error)) paths.push_back(file->path());
  std::sort(paths.begin(), paths.end());
  for (const fs::path &path : paths) {
    if (path.extension() == ".hdr" || path.extension() == ".tail")
      CheckFrame(survey, path.string());
    if (path.extension() == ".mo") CheckMacro(survey, path.string());
  }
}
