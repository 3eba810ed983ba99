// The two files around a page.
#include <gtest/gtest.h>

#include <filesystem>

#include "commmgr/commmgr.h"
#include "debug/log.h"
#include "tests/commmgr/handler_case.h"
#include "tests/support/log_capture.h"

namespace {

HANDLER_CASE(Frames, Sent_SaysAt101WhichFileIsLookedFor) {
  const TempDir dir;
  WriteFile("page.hdr", "HEAD\n");
  WriteFile("page.tail", "TAIL\n");
  Client client;
  ExpectLog({{kInfo, "[CommMgr: SendHdr] Looking for page.hdr\n"}},
            [&] { CommMgr_SendHdr("page", client.near); });
  ExpectLog({{kInfo, "[CommMgr: SendTail] Looking for page.tail\n"}},
            [&] { CommMgr_SendTail("page", client.near); });
  EXPECT_EQ(client.Received(),
            "HEAD\nHEAD\nHEAD\nHEAD\nHEAD\nTAIL\nTAIL\nTAIL\nTAIL\nTAIL\n");  // once a level
}

HANDLER_CASE(Frames, Missing_IsLoggedAt103AndNothingIsSent) {
  const TempDir dir;
  Client client;
  ExpectLog({{kInfo, "[CommMgr: SendHdr] Looking for page.hdr\n"},
             {kWarning, "[CommMgr: MacroHdr] Unable to open macro file page.hdr: errno = 2.\n"}},
            [&] { CommMgr_SendHdr("page", client.near); });
  ExpectLog({{kInfo, "[CommMgr: SendTail] Looking for page.tail\n"},
             {kWarning, "[CommMgr: MacroTail] Unable to open macro file page.tail: errno = 2.\n"}},
            [&] { CommMgr_SendTail("page", client.near); });
  EXPECT_EQ(client.Received(), "");
}

HANDLER_CASE(Frames, Files_AreClosedOnEveryPath) {
  const TempDir dir;
  WriteFile("page.hdr", "HEAD\n");
  WriteFile("page.tail", "TAIL\n");
  std::filesystem::create_directory("folder.hdr");
  std::filesystem::create_directory("folder.tail");
  Client open, refusing;
  refusing.Refuse();
  const int before = OpenDescriptors();
  Capture(kOff, [&] {
    for (const char *base : {"page", "folder", "missing"}) {
      for (const int client : {int{open.near}, int{refusing.near}}) {
        CommMgr_SendHdr(base, client);
        CommMgr_SendTail(base, client);
      }
    }
  });
  EXPECT_EQ(OpenDescriptors(), before);
}

HANDLER_CASE(Frames, ClientRefuses_IsLoggedAt103) {
  const TempDir dir;
  WriteFile("page.hdr", "HEAD\n");
  WriteFile("page.tail", "TAIL\n");
  Client client;
  client.Refuse();
  const std::string sock = Num(client.near);
  ExpectLog(
      {{kInfo, "[CommMgr: SendHdr] Looking for page.hdr\n"},
       SendRefused(client),
       {kWarning, "[CommMgr: MacroHdr] Unable to send to client sock " + sock + " rc = -32\n"}},
      [&] { CommMgr_SendHdr("page", client.near); });
  ExpectLog(
      {{kInfo, "[CommMgr: SendTail] Looking for page.tail\n"},
       SendRefused(client),
       {kWarning, "[CommMgr: MacroTail] Unable to send to client sock " + sock + " rc = -32\n"}},
      [&] { CommMgr_SendTail("page", client.near); });
}

}  // namespace
