// The two files around a page.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <latch>
#include <string>
#include <thread>
#include <vector>

#include "commmgr/commmgr.h"
#include "debug/log.h"
#include "tests/commmgr/handler_case.h"
#include "tests/support/log_capture.h"
#include "tests/support/syscall_seams.h"

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

// What is sent of a frame that is a FIFO.  Each piece is written once the one before has been read;
// the writer stays until the frame has been sent, or leaves behind the last piece.
std::string SentOfFifo(const std::vector<std::string> &pieces, bool stays) {
  EXPECT_EQ(mkfifo("page.hdr", 0600), 0);
  std::latch sent(1);
  std::thread writer([&] {
    const Fd fifo(open("page.hdr", O_WRONLY));
    for (const std::string &piece : pieces) {
      Await([&] {
        int unread = 0;
        return ioctl(fifo, FIONREAD, &unread) == 0 && unread == 0;
      });
      EXPECT_EQ(write(fifo, piece.data(), piece.size()), static_cast<ssize_t>(piece.size()));
    }
    if (stays) sent.wait();
  });
  Client client;
  EXPECT_EQ(Capture(kWarning, [&] { CommMgr_SendHdr("page", client.near); }).log, "");
  sent.count_down();
  writer.join();
  unlink("page.hdr");
  return client.Received();
}

HANDLER_CASE(Frames, Fifo_IsReadToItsEnd) {
  const TempDir dir;
  EXPECT_EQ(SentOfFifo({"HE", "AD", "\n"}, false), "HEAD\n");
}

HANDLER_CASE(Frames, Fifo_IsReadAsFarAsAFrameGoes) {
  const TempDir dir;
  const std::string most(10238, 'h');
  EXPECT_EQ(SentOfFifo({"h", most.substr(1), "i"}, true), most);
  EXPECT_EQ(SentOfFifo({"h", most.substr(1)}, false), most);
  EXPECT_EQ(SentOfFifo({"h", most + "and more"}, true), most);
}

HANDLER_CASE(Frames, FileThatCannotBeReadFurther_IsLoggedAndNothingIsSent) {
  const TempDir dir;
  WriteFile("page.tail", "TAIL\n");
  Client client;
  Seams seams;
  seams.Fail(Call::kRead, EIO, 2);
  EXPECT_EQ(Capture(kWarning, [&] { CommMgr_SendTail("page", client.near); }).log,
            "[CommMgr: MacroTail] Unable to open macro file page.tail: errno = 5.\n");
  EXPECT_EQ(client.Received(), "");
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
