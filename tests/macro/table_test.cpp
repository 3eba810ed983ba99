#include "macro/table.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/macro/file_seams.h"
#include "tests/macro/macro_case.h"
#include "tests/support/log_capture.h"
#include "tests/support/loopback.h"
#include "tests/support/syscall_seams.h"

namespace {

constexpr int kLarge = 20000;  // bytes of a macro that has its buffer on the heap

struct Opened {
  int handle;
  std::string log;  // at 103
};

Opened Open(const std::string &name) {
  Opened opened = {-2, ""};
  opened.log = Capture(103, [&] { opened.handle = Macro_Open(name.c_str()); }).log;
  return opened;
}

std::string CodeOf(int handle) {
  int size = -1;
  const unsigned char *code = Macro_Code(handle, &size);
  return code == nullptr ? "none" : std::string(code, code + size);
}

std::string Unopened(const std::string &path, int error) {
  return "[Macro: Open] Unable to open macro '" + path + "': errno = " + std::to_string(error) +
         "\n";
}

// ---- Macro_Open

MACRO_CASE(Open, FirstMacros_HaveHandlesFrom0On) {
  EXPECT_EQ(Open(WriteMacro("a", "A")).handle, 0);
  EXPECT_EQ(Open(WriteMacro("b", "B")).handle, 1);
  EXPECT_EQ(Open(WriteMacro("c", "C")).handle, 2);
  EXPECT_EQ(CodeOf(0) + CodeOf(1) + CodeOf(2), "ABC");
}

MACRO_CASE(Open, Success_LogsNothing) {
  const std::string name = WriteMacro("a", "A");
  EXPECT_EQ(Capture(101, [&] { Macro_Open(name.c_str()); }).log, "");
}

MACRO_CASE(Open, Code_IsTheWholeFileWithItsRawBytes) {
  std::string bytes;
  for (int i = 0; i < 70000; ++i) bytes += static_cast<char>(i % 251);
  EXPECT_EQ(Open(WriteMacro("a", bytes)).handle, 0);
  EXPECT_EQ(CodeOf(0), bytes);
}

MACRO_CASE(Open, EmptyFile_IsOpened) {
  EXPECT_EQ(Open(WriteMacro("a", "")).handle, 0);
  EXPECT_EQ(CodeOf(0), "");
}

MACRO_CASE(Open, SameNameTwice_LoadsItTwice) {
  const std::string name = WriteMacro("a", "old");
  EXPECT_EQ(Open(name).handle, 0);
  WriteMacro("a", "new");
  EXPECT_EQ(Open(name).handle, 1);
  EXPECT_EQ(CodeOf(0), "old");
  EXPECT_EQ(CodeOf(1), "new");
}

MACRO_CASE(Open, AbsoluteName_GetsItsSuffix) {
  const std::string name = WriteMacro("page", "A");
  EXPECT_EQ(Open(name).handle, 0);
  EXPECT_EQ(file_seams.opened, name + ".mo");
}

MACRO_CASE(Open, OtherName_IsLookedForInTheLibrary) {
  const std::string name = WriteMacro("page", "A");
  file_seams.from = "/usr/local/korvo/lib";
  file_seams.to = name.substr(0, name.rfind('/'));
  EXPECT_EQ(Open("page").handle, 0);
  EXPECT_EQ(file_seams.opened, "/usr/local/korvo/lib/page.mo");
  EXPECT_EQ(CodeOf(0), "A");
}

MACRO_CASE(Open, NameWithASlashInside_IsLookedForInTheLibrary) {
  EXPECT_EQ(Open("no/such").log, Unopened("/usr/local/korvo/lib/no/such.mo", 2));
}

MACRO_CASE(Open, MissingFile_IsLoggedAt103WithErrno2) {
  int handle = 0;
  EXPECT_EQ(MessagesAt(103, [&] { handle = Macro_Open("/no/page"); }), Unopened("/no/page.mo", 2));
  EXPECT_EQ(handle, -1);
}

MACRO_CASE(Open, EmptyName_IsAFileOfTheLibrary) {
  EXPECT_EQ(Open("").log, Unopened("/usr/local/korvo/lib/.mo", 2));
}

MACRO_CASE(Open, FailingStat_ShowsItsError) {
  const std::string name = WriteMacro("a", "A");
  file_seams.fail_stat = EACCES;
  const Opened opened = Open(name);
  EXPECT_EQ(opened.handle, -1);
  EXPECT_EQ(opened.log, Unopened(name + ".mo", 13));
}

MACRO_CASE(Open, FailingMalloc_ShowsItsErrorAndKeepsTheSlot) {
  const std::string name = WriteMacro("a", std::string(kLarge, 'A'));
  file_seams.fail_malloc = ENOMEM;
  const Opened opened = Open(name);
  EXPECT_EQ(opened.handle, -1);
  EXPECT_EQ(opened.log,
            "[Macro: Open] Unable to malloc space for macro in '" + name + ".mo': errno = 12\n");
  EXPECT_EQ(file_seams.opened, "") << "the memory comes before the file";
  EXPECT_EQ(Open(name).handle, 0);
}

MACRO_CASE(Open, FileTooLargeToHold_IsLoggedLikeAFailedMalloc) {
  const std::string name = WriteMacro("a", "");
  ASSERT_EQ(truncate((name + ".mo").c_str(), INT32_MAX / 2), 0);  // its buffer would have 2 GiB
  const Opened opened = Open(name);
  EXPECT_EQ(opened.handle, -1);
  EXPECT_EQ(opened.log,
            "[Macro: Open] Unable to malloc space for macro in '" + name + ".mo': errno = 12\n");
}

MACRO_CASE(Open, FileOfATimeThatDoesNotFit32Bits_IsOpened) {
  const std::string name = WriteMacro("a", "A");
  ASSERT_EQ(std::system(("touch -d 2040-01-01 " + name + ".mo").c_str()), 0);
  EXPECT_EQ(Open(name).handle, 0);
  EXPECT_EQ(CodeOf(0), "A");
}

MACRO_CASE(Open, Buffer_HoldsTheFileTwice) {
  EXPECT_EQ(Open(WriteMacro("a", std::string(kLarge, 'A'))).handle, 0);
  EXPECT_EQ(file_seams.malloc_size, 2u * kLarge);
}

MACRO_CASE(Open, SmallMacros_ShareOneAreaToItsLastByte) {
  const std::string sizes[] = {std::string(3071, '1'), "2", ""};
  file_seams.malloc_size = 0;
  for (const std::string &code : sizes) ASSERT_GE(Open(WriteMacro("a", code)).handle, 0);
  EXPECT_EQ(file_seams.malloc_size, 0u);
  EXPECT_EQ(Open(WriteMacro("a", "3")).handle, 3);
  EXPECT_EQ(file_seams.malloc_size, 2u);
}

MACRO_CASE(Open, Macros_DoNotShareABuffer) {
  const std::string sizes[] = {std::string(1, '1'),    "",
                               std::string(7000, '2'), std::string(3000, '3'),
                               std::string(500, '4'),  std::string(kLarge, '5')};
  for (const std::string &code : sizes) ASSERT_GE(Open(WriteMacro("a", code)).handle, 0);
  for (int i = 0; i < 6; ++i) EXPECT_EQ(CodeOf(i), sizes[i]);
}

MACRO_CASE(Open, ClosedSlots_LeaveTheOthersTheirCode) {
  for (const char *code : {"one", "two"}) ASSERT_GE(Open(WriteMacro("a", code)).handle, 0);
  ASSERT_GE(Open(WriteMacro("a", std::string(kLarge, 'A'))).handle, 0);
  EXPECT_EQ(Macro_Close(0), 1);
  EXPECT_EQ(Macro_Close(2), 1);
  EXPECT_EQ(Open(WriteMacro("a", "three")).handle, 3);
  EXPECT_EQ(CodeOf(1), "two");
  EXPECT_EQ(CodeOf(3), "three");
}

MACRO_CASE(Open, FailingOpen_ShowsItsErrorAndKeepsTheSlot) {
  const std::string name = WriteMacro("a", "A");
  file_seams.fail_open = EACCES;
  const Opened opened = Open(name);
  EXPECT_EQ(opened.handle, -1);
  EXPECT_EQ(opened.log, Unopened(name + ".mo", 13));
  EXPECT_EQ(Open(name).handle, 0);
  EXPECT_EQ(CodeOf(0), "A");
}

MACRO_CASE(Open, FailingOpenOfALargeMacro_LeavesNothingToASmallOne) {
  file_seams.fail_open = EACCES;
  EXPECT_EQ(Open(WriteMacro("a", std::string(kLarge, 'A'))).handle, -1);
  EXPECT_EQ(Open(WriteMacro("b", "B")).handle, 0);
  EXPECT_EQ(CodeOf(0), "B");
  EXPECT_EQ(Macro_Close(0), 1);
  EXPECT_EQ(CodeOf(0), "none");
}

MACRO_CASE(Open, FailingRead_ShowsItsErrorAndKeepsTheSlot) {
  const std::string name = WriteMacro("a", "A");
  {
    Seams seams;
    seams.Fail(Call::kRead, EIO);
    const Opened opened = Open(name);
    EXPECT_EQ(opened.handle, -1);
    EXPECT_EQ(opened.log, "[Macro: Open] Unable to read macro '" + name + ".mo': errno = 5\n");
  }
  EXPECT_EQ(Open(name).handle, 0);
  EXPECT_EQ(CodeOf(0), "A");
}

MACRO_CASE(Open, FailingCall_IsLoggedAt103) {
  const std::string name = WriteMacro("a", std::string(kLarge, 'A'));
  const auto open_with = [&](int *failing) {
    return MessagesAt(103, [&, failing] {
      *failing = ENOMEM;
      Macro_Open(name.c_str());
    });
  };
  EXPECT_EQ(open_with(&file_seams.fail_stat), Unopened(name + ".mo", 12));
  EXPECT_EQ(open_with(&file_seams.fail_malloc),
            "[Macro: Open] Unable to malloc space for macro in '" + name + ".mo': errno = 12\n");
  EXPECT_EQ(open_with(&file_seams.fail_open), Unopened(name + ".mo", 12));
  EXPECT_EQ(MessagesAt(103,
                       [&] {
                         Seams seams;
                         seams.Fail(Call::kRead, EIO);
                         Macro_Open(name.c_str());
                       }),
            "[Macro: Open] Unable to read macro '" + name + ".mo': errno = 5\n");
}

MACRO_CASE(Open, Directory_CannotBeRead) {
  const std::string name = WriteMacro("a", "A");
  ASSERT_TRUE(std::filesystem::create_directory(name + "dir.mo"));
  const Opened opened = Open(name + "dir");
  EXPECT_EQ(opened.handle, -1);
  EXPECT_EQ(opened.log, "[Macro: Open] Unable to read macro '" + name + "dir.mo': errno = 21\n");
}

MACRO_CASE(Open, FileThatShrinks_IsAsLongAsWhatWasRead) {
  const std::string name = WriteMacro("a", "ABCDEF");
  {
    Seams seams;
    seams.Before(Call::kRead, 1, [&] { EXPECT_EQ(truncate((name + ".mo").c_str(), 2), 0); });
    const Opened opened = Open(name);
    EXPECT_EQ(opened.handle, 0);
    EXPECT_EQ(opened.log, "");
  }
  EXPECT_EQ(CodeOf(0), "AB");
}

MACRO_CASE(Open, FileThatGrows_IsReadAsFarAsItWasMeasured) {
  for (const std::string &code : {std::string("ABC"), std::string(kLarge, 'D')}) {
    const std::string name = WriteMacro("a", code);
    Seams seams;
    seams.Before(Call::kRead, 1, [&] { WriteMacro("a", code + "more"); });
    const Opened opened = Open(name);
    EXPECT_EQ(opened.log, "");
    EXPECT_EQ(CodeOf(opened.handle), code);
  }
}

MACRO_CASE(Open, Descriptors_AreClosedOnEveryPath) {
  const std::string name = WriteMacro("a", "A");
  std::filesystem::create_directory(name + "dir.mo");
  const int before = OpenDescriptors();
  Open(name);
  Open(name + "dir");
  Open("/no/page");
  EXPECT_EQ(OpenDescriptors(), before);
}

MACRO_CASE(Open, DescriptorOfAClosedStandardInput_IsClosedToo) {
  const std::string name = WriteMacro("a", "A");
  const Fd kept(dup(STDIN_FILENO));
  close(STDIN_FILENO);
  const int handle = Macro_Open(name.c_str());
  const bool closed = fcntl(STDIN_FILENO, F_GETFD) < 0;
  dup2(kept, STDIN_FILENO);
  EXPECT_TRUE(closed);
  EXPECT_EQ(CodeOf(handle), "A");
}

// "/././.../a" of the wanted length, ".mo" included.
std::string LongName(std::size_t path_length) {
  const std::string name = WriteMacro("a", "A");
  std::string prefix;
  while (prefix.size() + 2 + name.size() + 3 <= path_length) prefix += "/.";
  if (prefix.size() + name.size() + 3 < path_length) prefix += "/";
  return prefix + name;
}

MACRO_CASE(Open, PathOf2048Characters_IsOpened) {
  const std::string name = LongName(2048);
  ASSERT_EQ(name.size(), 2045u);
  EXPECT_EQ(Open(name).handle, 0);
}

MACRO_CASE(Open, LongerPath_IsRefusedWithOneLineAt103) {
  const std::string name = LongName(2049);
  int handle = 0;
  EXPECT_EQ(MessagesAt(103, [&] { handle = Macro_Open(name.c_str()); }),
            Unopened((name + ".mo").substr(0, 2048), ENAMETOOLONG));
  EXPECT_EQ(handle, -1);
  EXPECT_EQ(Open(std::string(5000, 'x')).handle, -1);
}

MACRO_CASE(Open, LongerPathInTheLibrary_IsRefusedWithOneLine) {
  const std::string library = std::string(kLibraryDir) + "/";
  const std::string name(2049 - library.size() - std::strlen(".mo"), 'x');
  EXPECT_EQ(MessagesAt(103, [&] { Macro_Open(name.c_str()); }),
            Unopened((library + name + ".mo").substr(0, 2048), ENAMETOOLONG));
}

MACRO_CASE(Open, The21stMacro_IsRefusedAndTheFirst20StayUsable) {
  const std::string name = WriteMacro("a", "A");
  for (int i = 0; i < 20; ++i) EXPECT_EQ(Open(name).handle, i);
  int handle = 0;
  EXPECT_EQ(MessagesAt(103, [&] { handle = Macro_Open(name.c_str()); }),
            "[Macro: Open] Unable to open macro '" + name + ".mo': all 20 slots are taken\n");
  EXPECT_EQ(handle, -1);
  for (int i = 0; i < 20; ++i) EXPECT_EQ(CodeOf(i), "A");
}

// ---- Macro_Code

MACRO_CASE(Code, HandleThatIsNotOpen_HasNone) {
  Open(WriteMacro("a", "A"));
  for (const int handle : {-1, 1, 19, 20, 1000}) {
    int size = -1;
    EXPECT_EQ(Macro_Code(handle, &size), nullptr) << handle;
    EXPECT_EQ(size, 0) << handle;
  }
}

// ---- Macro_Close, Macro_CloseAll

MACRO_CASE(Close, OpenMacro_LosesItsCode) {
  Open(WriteMacro("a", "A"));
  Open(WriteMacro("b", "B"));
  EXPECT_EQ(Macro_Close(0), 1);
  EXPECT_EQ(CodeOf(0), "none");
  EXPECT_EQ(CodeOf(1), "B");
  int size = -1;
  Macro_Code(0, &size);
  EXPECT_EQ(size, 0);
}

MACRO_CASE(Close, Twice_IsHarmless) {
  Open(WriteMacro("a", "A"));
  EXPECT_EQ(Macro_Close(0), 1);
  EXPECT_EQ(Macro_Close(0), 1);
  EXPECT_EQ(Macro_CloseAll(), 1);
}

MACRO_CASE(Close, HandleThatIsNotOpen_IsHarmless) {
  Open(WriteMacro("a", "A"));
  for (const int handle : {INT_MIN / 64, -1, 1, 20, 1000, INT_MAX / 64})
    EXPECT_EQ(Macro_Close(handle), 1) << handle;
  EXPECT_EQ(CodeOf(0), "A");
}

MACRO_CASE(Close, NextOpen_TakesANewSlot) {
  Open(WriteMacro("a", "A"));
  Macro_Close(0);
  EXPECT_EQ(Open(WriteMacro("b", "B")).handle, 1);
}

MACRO_CASE(Close, EmptyName_IsThatOfTheFirstClosedSlot) {
  for (const char *code : {"A", "B", "C"}) Open(WriteMacro("a", code));
  Macro_Close(1);
  Macro_Close(2);
  const Opened opened = Open("");
  EXPECT_EQ(opened.handle, 1);
  EXPECT_EQ(opened.log, "");
}

MACRO_CASE(CloseAll, EverySlot_LosesItsCodeAndTheCountGoesOn) {
  for (const char *code : {"A", "B", "C"}) Open(WriteMacro("a", code));
  EXPECT_EQ(Macro_CloseAll(), 1);
  for (const int handle : {0, 1, 2}) EXPECT_EQ(CodeOf(handle), "none") << handle;
  EXPECT_EQ(Open(WriteMacro("d", "D")).handle, 3);
}

MACRO_CASE(CloseAll, EmptyTable_IsHarmless) { EXPECT_EQ(Macro_CloseAll(), 1); }

}  // namespace
