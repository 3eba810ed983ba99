#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "debug/log.h"
#include "tests/support/log_capture.h"

namespace {

constexpr std::size_t kPage = 4096;
const std::string kBlankLine = std::string(47, ' ') + "\n";

// A page at an address that every run prints alike; one byte before its end for dumps that cross
// it.
class FixedPage {
 public:
  FixedPage()
      : bytes_(static_cast<char *>(
            mmap(reinterpret_cast<void *>(0x00100000), kPage, PROT_READ | PROT_WRITE,
                 MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0))) {}
  ~FixedPage() { munmap(bytes_, kPage); }
  FixedPage(const FixedPage &) = delete;
  FixedPage &operator=(const FixedPage &) = delete;

  char *Fill(const std::string &bytes) {
    std::memcpy(bytes_, bytes.data(), bytes.size());
    return bytes_;
  }

 private:
  char *bytes_;
};

std::string Dump(const std::string &bytes, const char *title) {
  FixedPage page;
  const char *at = page.Fill(bytes);
  return Capture(101, [&] { HEXDUMP(nullptr, kInfo, at, static_cast<int>(bytes.size()), title); })
      .log;
}

std::string Padded(std::string hex) {
  hex.resize(47, ' ');
  return hex;
}

std::string Low32(const void *address) {
  char text[16];
  std::snprintf(text, sizeof text, "%08x",
                static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(address)));
  return text;
}

}  // namespace

TEST(HexDump, FiveBytesWithoutTitle_ShowAddressAndLength) {
  EXPECT_EQ(Dump("ABCDE", nullptr), "HEXDUMP @ 00100000 for 5 bytes\n" + kBlankLine +
                                        Padded("00100000: 41424344 45") + " A B C D E\n");
}

TEST(HexDump, Title_ReplacesAddressAndLength) {
  EXPECT_EQ(Dump("A", "Packet"),
            "HEXDUMP of Packet\n" + kBlankLine + Padded("00100000: 41") + " A\n");
}

TEST(HexDump, TitleThatEndsInANewline_GetsASecond) {
  EXPECT_EQ(Dump("A", "Packet\n"),
            "HEXDUMP of Packet\n\n" + kBlankLine + Padded("00100000: 41") + " A\n");
}

TEST(HexDump, OnlyTheTitleLine_HasAHeader) {
  const LogCapture log(101);
  HEXDUMP(nullptr, kInfo, "ABCDEFGHIJKLMNOPQRST", 20, "T");
  const std::string raw = log.Raw();
  EXPECT_EQ(raw.find("-----"), 0U);
  EXPECT_EQ(raw.find("PID: "), raw.rfind("PID: "));
  EXPECT_LT(raw.rfind("PID: "), raw.find("HEXDUMP of T\n"));
}

TEST(HexDump, LengthZero_PrintsOnlyItsTitle) {
  EXPECT_EQ(Dump("", "T"), "HEXDUMP of T\n");
  EXPECT_EQ(Dump("", nullptr), "HEXDUMP @ 00100000 for 0 bytes\n");
}

TEST(HexDump, NegativeLength_PrintsOnlyItsTitle) {
  const LogCapture log(101);
  HEXDUMP(nullptr, kInfo, "x", -1, "T");
  EXPECT_EQ(log.Messages(), "HEXDUMP of T\n");
}

TEST(HexDump, SixteenBytes_AreOneLineOfFourGroups) {
  EXPECT_EQ(Dump("ABCDEFGHIJKLMNOP", "T"), "HEXDUMP of T\n" + kBlankLine +
                                               "00100000: 41424344 45464748 494a4b4c 4d4e4f50  "
                                               " A B C D E F G H I J K L M N O P\n");
}

TEST(HexDump, SeventeenBytes_StartASecondLineAtItsOwnAddress) {
  EXPECT_EQ(Dump("ABCDEFGHIJKLMNOPQ", "T"), "HEXDUMP of T\n" + kBlankLine +
                                                "00100000: 41424344 45464748 494a4b4c 4d4e4f50  "
                                                " A B C D E F G H I J K L M N O P\n" +
                                                Padded("00100010: 51") + " Q\n");
}

TEST(HexDump, BytesFrom0x80_HaveEightDigits) {
  EXPECT_EQ(
      Dump("\x7f\x80\xff", "T"),
      "HEXDUMP of T\n" + kBlankLine + Padded("00100000: 7fffffff80ffffffff") + " \x7f \x80 \xff\n");
}

TEST(HexDump, LineOfHighBytes_IsWholeAndTheNextBlankBelongsToIt) {
  const std::string group = "ffffff80ffffff80ffffff80ffffff80";
  std::string chars;
  for (int i = 0; i < 16; ++i) chars += " \x80";
  const std::string line = "00100000: " + group + " " + group + " " + group + " " + group;
  EXPECT_EQ(Dump(std::string(16, '\x80'), "T"),
            "HEXDUMP of T\n" + kBlankLine + line + chars + "\n");
  EXPECT_EQ(
      Dump(std::string(16, '\x80') + "A", "T"),
      "HEXDUMP of T\n" + kBlankLine + line + " " + chars + "\n" + Padded("00100010: 41") + " A\n");
}

TEST(HexDump, ControlCharacters_AreWrittenAsTheyAre) {
  EXPECT_EQ(Dump("\t\n\r\x1b", "T"),
            "HEXDUMP of T\n" + kBlankLine + Padded("00100000: 090a0d1b") + " \t \n \r \x1b\n");
}

TEST(HexDump, ZeroByte_LeavesItsBlankAndTheNextByteFollows) {
  EXPECT_EQ(Dump(std::string("A\0B", 3), "T"),
            "HEXDUMP of T\n" + kBlankLine + Padded("00100000: 410042") + " A  B\n");
}

TEST(HexDump, PercentInBytesAndTitle_IsNotFormatted) {
  EXPECT_EQ(Dump("%s", "%d%n"),
            "HEXDUMP of %d%n\n" + kBlankLine + Padded("00100000: 2573") + " % s\n");
}

TEST(HexDump, AnyAddress_IsShownByItsLow32Bits) {
  const char bytes[] = "AB";
  const Output output = Capture(101, [&] { HEXDUMP(nullptr, kInfo, bytes, 2, nullptr); });
  EXPECT_EQ(output.log, "HEXDUMP @ " + Low32(bytes) + " for 2 bytes\n" + kBlankLine +
                            Padded(Low32(bytes) + ": 4142") + " A B\n");
}

TEST(HexDump, Level_IsThatOfTheCall) {
  FixedPage page;
  const char *at = page.Fill("A");
  const std::string line = kBlankLine + Padded("00100000: 41") + " A\n";
  for (const int level : {101, 103}) {
    EXPECT_EQ(MessagesAt(level, [&] { HEXDUMP(nullptr, level, at, 1, "T"); }),
              "HEXDUMP of T\n" + line);
    EXPECT_EQ(MessagesAt(level, [&] { HEXDUMP(nullptr, level, at, 1, nullptr); }),
              "HEXDUMP @ 00100000 for 1 bytes\n" + line);
  }
}

TEST(HexDump, Stream_TakesTheWholeDump) {
  FixedPage page;
  const char *at = page.Fill("A");
  const std::string line = kBlankLine + Padded("00100000: 41") + " A\n";
  const Output output = Capture(101, [&] {
    HEXDUMP(stdout, kInfo, at, 1, "T");
    HEXDUMP(stdout, kInfo, at, 1, nullptr);
  });
  EXPECT_EQ(output.out, "HEXDUMP of T\n" + line + "HEXDUMP @ 00100000 for 1 bytes\n" + line);
  EXPECT_EQ(output.log, "");
}
