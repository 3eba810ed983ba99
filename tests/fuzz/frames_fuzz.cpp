// The frames of a page: what is sent of them.
//
// Parts: the header; the tail; the base name.
#include <unistd.h>

#include <algorithm>

#include "commmgr/commmgr.h"
#include "tests/fuzz/support/scratch.h"
#include "tests/fuzz/support/wire.h"

namespace {

constexpr std::size_t kLongestFrame = 10238;
constexpr std::size_t kLongestName = 128;

using SendFn = void (*)(const char *base, int client);

std::string Send(SendFn send, const std::string &base, const std::string &file,
                 const std::string &contents) {
  const bool written = Fuzz_WriteFile(file, contents);
  Wire client({});
  send(base.c_str(), client.Socket());
  if (written) unlink(file.c_str());
  const bool found = written && file.size() <= kLongestName;
  FUZZ_CHECK(client.Sent() ==
             (found ? Fuzz_UpToNul(contents.substr(0, kLongestFrame)) : std::string()));
  return client.Sent();
}

}  // namespace

std::string Fuzz_Run(const Input &input) {
  std::string name = Fuzz_UpToNul(input[2].Whole());
  std::replace(name.begin(), name.end(), '/', '_');
  const std::string base = Fuzz_ScratchDir() + "/" + name;
  return Send(CommMgr_SendHdr, base, base + ".hdr", input[0].Whole()) + '\n' +
         Send(CommMgr_SendTail, base, base + ".tail", input[1].Whole());
}
