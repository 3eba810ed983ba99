#include "macro/cursor.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "tests/macro/file_seams.h"
#include "tests/support/log_capture.h"

namespace {

// A document with the cursor at its start.
class Document {
 public:
  explicit Document(const std::string &text) : text_(text) { Macro_SetInput(text_.data()); }

  // The offset that a look-up gives, -1 for null; log() is what it wrote at 103.
  int Find(const std::string &name, int skip = 0) {
    const char *found = nullptr;
    log_ = Capture(103, [&] { found = Macro_FindField(name.c_str(), skip); }).log;
    return found == nullptr ? -1 : static_cast<int>(found - text_.data());
  }
  const std::string &Log() const { return log_; }
  const char *At(std::size_t offset) const { return text_.data() + offset; }

 private:
  std::string text_, log_;
};

std::string Wraparound(const std::string &name, const std::string &pattern) {
  return "[Macro: FindField] Wraparound looking for '" + name + "' (" + pattern + ")\n";
}

std::string NoField(const std::string &name, const std::string &pattern) {
  return "[Macro: FindField] Unable to find field = '" + name + "' (" + pattern + ")\n";
}

// ---- Macro_SetInput, Macro_Seek

TEST(SetInput, Document_IsMeasuredAndTheCursorAtItsStart) {
  char text[] = "\ta=1\tb=2\t";
  char other[] = "\tc=3";
  Macro_SetInput(text);
  Macro_Seek(5);
  EXPECT_EQ(Macro_SetInput(other), 0);
  EXPECT_EQ(Macro_Document(), other);
  EXPECT_EQ(Macro_Length(), 4);
  EXPECT_EQ(Macro_Cursor(), 0);
}

TEST(SetInput, Document_EndsAtItsFirstZero) {
  char text[] = "\ta=1\0\tb=2\t";
  Macro_SetInput(text);
  EXPECT_EQ(Macro_Length(), 4);
  EXPECT_EQ(Capture(105, [] { EXPECT_EQ(Macro_FindField("b", 0), nullptr); }).log, "");
}

TEST(Seek, OffsetBelowTheLength_MovesTheCursor) {
  const Document document("\ta=1\tb=2\t");
  for (const int offset : {8, 4, 0}) {
    EXPECT_EQ(Macro_Seek(offset), 1) << offset;
    EXPECT_EQ(Macro_Cursor(), offset);
  }
}

TEST(Seek, OffsetOfTheLengthOrMore_IsRefusedAndLeavesTheCursor) {
  const Document document("\ta=1\tb=2\t");
  Macro_Seek(4);
  for (const int offset : {9, 10, 40960, INT32_MAX}) {
    EXPECT_EQ(Macro_Seek(offset), 0) << offset;
    EXPECT_EQ(Macro_Cursor(), 4);
  }
}

TEST(Seek, OffsetBeforeTheDocument_IsRefused) {
  const Document document("\ta=1\tb=2\t");
  Macro_Seek(4);
  for (const std::int32_t offset : {-1, INT32_MIN}) {
    EXPECT_EQ(Macro_Seek(offset), 0) << offset;
    EXPECT_EQ(Macro_Cursor(), 4);
  }
}

TEST(Seek, EmptyDocument_RefusesEveryOffset) {
  const Document document("");
  EXPECT_EQ(Macro_Seek(0), 0);
  EXPECT_EQ(Macro_Cursor(), 0);
}

// ---- Macro_FindField

TEST(FindField, FromTheStart_FindsTheFirst) {
  Document document("\ta=1\tb=2\ta=3\t");
  EXPECT_EQ(document.Find("a"), 0);
  EXPECT_EQ(Macro_Cursor(), 0);
  EXPECT_EQ(document.Log(), "");
}

TEST(FindField, Success_LogsNothing) {
  const Document document("\ta=1\t");
  EXPECT_EQ(Capture(101, [] { Macro_FindField("a", 0); }).log, "");
}

TEST(FindField, SameFieldAgain_StaysWhereItIs) {
  Document document("\ta=1\tb=2\ta=3\t");
  EXPECT_EQ(document.Find("b"), 4);
  EXPECT_EQ(document.Find("b"), 4);
  EXPECT_EQ(document.Log(), "");
}

TEST(FindField, SkipThenAnother_WrapsAround) {
  Document document("\ta=1\tb=2\ta=3\t");
  EXPECT_EQ(document.Find("a", 0), 0);
  EXPECT_EQ(document.Find("a", 1), 8);
  EXPECT_EQ(Macro_Cursor(), 8);
  EXPECT_EQ(document.Log(), "");
  EXPECT_EQ(document.Find("b"), 4);
  EXPECT_EQ(document.Log(), Wraparound("b", "\tb="));
  EXPECT_EQ(Macro_Cursor(), 4);
}

TEST(FindField, BehindTheLast_WrapsAround) {
  Document document("\ta=1\tb=2\t");
  Macro_Seek(8);
  EXPECT_EQ(document.Find("a"), 0);
  EXPECT_EQ(document.Log(), Wraparound("a", "\ta="));
}

TEST(FindField, MissingField_LogsBothLinesAndLeavesTheCursor) {
  Document document("\ta=1\tb=2\t");
  Macro_Seek(4);
  EXPECT_EQ(document.Find("c"), -1);
  EXPECT_EQ(document.Log(), Wraparound("c", "\tc=") + NoField("c", "\tc="));
  EXPECT_EQ(Macro_Cursor(), 4);
}

TEST(FindField, Failures_AreLoggedAt103) {
  const Document document("\ta=1\tb=2\t");
  EXPECT_EQ(MessagesAt(103, [] { Macro_FindField("c", 0); }),
            Wraparound("c", "\tc=") + NoField("c", "\tc="));
  EXPECT_EQ(MessagesAt(103, [] { Macro_FindField("a", 1); }), NoField("a", "\ta="));
}

TEST(FindField, SkipOverTheLast_DoesNotWrapAndLeavesTheCursor) {
  Document document("\ta=1\tb=2\ta=3\t");
  Macro_Seek(2);
  EXPECT_EQ(document.Find("a", 1), -1);
  EXPECT_EQ(document.Log(), NoField("a", "\ta="));
  EXPECT_EQ(Macro_Cursor(), 2);
}

TEST(FindField, WrapThenSkip_GoesOnFromTheWrappedPlace) {
  Document document("\ta=1\ta=2\tb=3\ta\t");
  Macro_Seek(8);
  EXPECT_EQ(document.Find("a", 1), 4);
  EXPECT_EQ(document.Log(), Wraparound("a", "\ta="));
}

TEST(FindField, WrapThenTooManySkips_LogsBothLines) {
  Document document("\ta=1\tb=2\t");
  Macro_Seek(4);
  EXPECT_EQ(document.Find("a", 2), -1);
  EXPECT_EQ(document.Log(), Wraparound("a", "\ta=") + NoField("a", "\ta="));
  EXPECT_EQ(Macro_Cursor(), 4);
}

TEST(FindField, SeveralSkips_CountMatches) {
  Document document("\ta=1\ta=2\tb=0\ta=3\ta=4\t");
  const int places[] = {0, 4, 12, 16};
  for (int skip = 0; skip < 4; ++skip) {
    Macro_Seek(0);
    EXPECT_EQ(document.Find("a", skip), places[skip]) << skip;
  }
}

TEST(FindField, NameWithATabInFront_GetsNoSecondOne) {
  Document document("\ta=1\tb=2\t");
  EXPECT_EQ(document.Find("\tb"), 4);
  EXPECT_EQ(document.Find("\tc"), -1);
  EXPECT_EQ(document.Log(), Wraparound("\tc", "\tc=") + NoField("\tc", "\tc="));
}

TEST(FindField, Name_IsMatchedWholeAndWithItsCase) {
  Document document("\txa=1\tA=2\tab=3\ta\ta=4\t");
  EXPECT_EQ(document.Find("a"), 16);
  EXPECT_EQ(document.Log(), "");
}

TEST(FindField, TextInsideOfAValue_IsNoField) {
  Document document("\tx=a=1\ta=2\t");
  EXPECT_EQ(document.Find("a"), 6);
}

TEST(FindField, FirstFieldWithoutItsTab_IsNotFound) {
  Document document("a=1\tb=2\t");
  EXPECT_EQ(document.Find("a"), -1);
}

TEST(FindField, CursorInsideOfAField_MissesIt) {
  Document document("\ta=1\ta=2\t");
  Macro_Seek(1);
  EXPECT_EQ(document.Find("a"), 4);
}

TEST(FindField, EmptyName_FindsTheFieldWithoutOne) {
  Document document("\ta=1\t=2\t");
  EXPECT_EQ(document.Find(""), 4);
}

TEST(FindField, EmptyDocument_HasNoField) {
  Document document("");
  EXPECT_EQ(document.Find("a"), -1);
  EXPECT_EQ(document.Log(), Wraparound("a", "\ta=") + NoField("a", "\ta="));
}

TEST(FindField, TextThatEndsBeforeTheCursor_IsSearchedFromItsStart) {
  Document document("\ta=1\tb=2\t");
  ASSERT_EQ(document.Find("b"), 4);
  Macro_Document()[3] = '\0';
  Macro_Remeasure();
  EXPECT_EQ(document.Find("a"), 0);
  EXPECT_EQ(document.Log(), Wraparound("a", "\ta="));
}

TEST(FindField, PatternOf1024Characters_IsSearched) {
  const std::string name(1022, 'n');
  Document document("\ta=1\t" + name + "=2\t");
  EXPECT_EQ(document.Find(name), 4);
  EXPECT_EQ(document.Log(), "");
}

TEST(FindField, LongerPattern_IsRefusedWithOneLine) {
  const std::string name(1023, 'n');
  Document document("\ta=1\t" + name + "=2\t");
  Macro_Seek(2);
  EXPECT_EQ(document.Find(name), -1);
  EXPECT_EQ(document.Log(), NoField(name, "\t" + name));
  EXPECT_EQ(Macro_Cursor(), 2);
}

// ---- Macro_GetTerms

// A value taken into a buffer of the given capacity, and what it left there.
struct Terms {
  Terms(const char *position, int capacity)
      : buffer(static_cast<std::size_t>(capacity) + 1, '#'), size(capacity) {
    log = Capture(103, [&] {
            found = Macro_GetTerms(position, buffer.data(), &size) == buffer.data();
          }).log;
  }

  std::string buffer;
  int size;
  bool found = false;
  std::string log;
};

TEST(GetTerms, ValueBeforeATab_IsCopiedAndMeasured) {
  const Document document("\ta=1\tb=two words\t");
  const Terms first(document.At(0), 4096), second(document.At(4), 4096);
  EXPECT_TRUE(first.found);
  EXPECT_EQ(first.size, 1);
  EXPECT_STREQ(first.buffer.c_str(), "1");
  EXPECT_EQ(second.size, 9);
  EXPECT_STREQ(second.buffer.c_str(), "two words");
  EXPECT_EQ(first.log + second.log, "");
}

TEST(GetTerms, Success_LogsNothingAndLeavesTheCursor) {
  const Document document("\ta=1\tb=2\t");
  Macro_Seek(4);
  char buffer[10];
  int size = 10;
  EXPECT_EQ(Capture(101, [&] { Macro_GetTerms(document.At(0), buffer, &size); }).log, "");
  EXPECT_EQ(Macro_Cursor(), 4);
}

TEST(GetTerms, EmptyValue_IsALengthOf0) {
  const Document document("\ta=\tb=2\t");
  const Terms terms(document.At(0), 10);
  EXPECT_TRUE(terms.found);
  EXPECT_EQ(terms.size, 0);
  EXPECT_STREQ(terms.buffer.c_str(), "");
}

TEST(GetTerms, Value_BeginsBehindTheFirstEqualsSign) {
  const Document document("\ta=1=2\n3\t");
  const Terms terms(document.At(0), 10);
  EXPECT_STREQ(terms.buffer.c_str(), "1=2\n3");
  EXPECT_EQ(terms.size, 5);
}

TEST(GetTerms, ZeroInsideOfTheDocument_EndsNoValueAndNoSearch) {
  char text[] = "\ta=1x2\tb=3\t";
  Macro_SetInput(text);
  text[4] = '\0';
  const Terms terms(text, 10);
  EXPECT_TRUE(terms.found);
  EXPECT_EQ(terms.size, 3);
  EXPECT_EQ(terms.buffer.substr(0, 5), std::string("1\0002\0#", 5));
  EXPECT_EQ(Macro_FindField("b", 0), text + 6);
}

TEST(GetTerms, FieldWithoutAnEqualsSign_TakesTheNextOne) {
  const Document document("\ta\tb=2\t");
  EXPECT_STREQ(Terms(document.At(0), 10).buffer.c_str(), "2");
}

TEST(GetTerms, FieldOutsideOfTheDocument_EndsWithItsOwnText) {
  char texts[][6] = {"\tx=8", "\ta=1", "\ty=9"};
  Macro_SetInput(texts[1]);
  EXPECT_STREQ(Terms(texts[0], 10).buffer.c_str(), "8");
  EXPECT_STREQ(Terms(texts[2], 10).buffer.c_str(), "9");
}

TEST(GetTerms, NoEqualsSign_IsLoggedAt103) {
  const Document document("\ta=1\tb\tc");
  char buffer[10] = "kept";
  int size = 10;
  const char *result = buffer;
  EXPECT_EQ(MessagesAt(103, [&] { result = Macro_GetTerms(document.At(4), buffer, &size); }),
            "[Macro: GetTerms] Unable to locate delimeter in \tb\tc\n");
  EXPECT_EQ(result, nullptr);
  EXPECT_EQ(size, 10);
  EXPECT_STREQ(buffer, "kept");
}

TEST(GetTerms, LastValueWithoutATab_EndsWithTheText) {
  const Document document("\ta=1\tb=2\n");
  const Terms terms(document.At(4), 10);
  EXPECT_TRUE(terms.found);
  EXPECT_EQ(terms.size, 2);
  EXPECT_STREQ(terms.buffer.c_str(), "2\n");
}

TEST(GetTerms, Value_ShorterThanTheCapacityFits) {
  const Document document("\ta=" + std::string(4095, 'v') + "\t");
  const Terms terms(document.At(0), 4096);
  EXPECT_TRUE(terms.found);
  EXPECT_EQ(terms.size, 4095);
  EXPECT_EQ(terms.buffer, std::string(4095, 'v') + '\0' + '#');
  EXPECT_EQ(terms.log, "");
}

TEST(GetTerms, ValueOfTheCapacity_IsTooLongThoughATabFollows) {
  const Document document("\ta=" + std::string(4096, 'v') + "\tb=2\t");
  const Terms terms(document.At(0), 4096);
  EXPECT_FALSE(terms.found);
  EXPECT_EQ(terms.size, 4096);
  EXPECT_EQ(terms.buffer, std::string(4096, 'v') + '#');
  EXPECT_EQ(terms.log, "[Macro: GetTerms] Buffer too small (size = 4096)\n");
}

TEST(GetTerms, LongerValue_LeavesItsFirstCharacters) {
  const Document document("\ta=" + std::string(4096, 'v') + "xyz\t");
  const Terms terms(document.At(0), 4096);
  EXPECT_FALSE(terms.found);
  EXPECT_EQ(terms.size, 4096);
  EXPECT_EQ(terms.buffer, std::string(4096, 'v') + '#');
  EXPECT_EQ(terms.log, "[Macro: GetTerms] Buffer too small (size = 4096)\n");
}

TEST(GetTerms, CapacityOfNone_TakesNothing) {
  const Document document("\ta=123\t");
  const Terms terms(document.At(0), 0);
  EXPECT_FALSE(terms.found);
  EXPECT_EQ(terms.buffer, "#");
  EXPECT_EQ(terms.log, "[Macro: GetTerms] Buffer too small (size = 0)\n");
}

TEST(GetTerms, TooLongAValue_IsLoggedAt103) {
  const Document document("\ta=12345\t");
  char buffer[5];
  int size = 5;
  EXPECT_EQ(MessagesAt(103, [&] { Macro_GetTerms(document.At(0), buffer, &size); }),
            "[Macro: GetTerms] Buffer too small (size = 5)\n");
}

TEST(GetTerms, CapacityOfZero_IsTooSmallForAnEmptyValue) {
  const Document document("\ta=\t");
  const Terms terms(document.At(0), 0);
  EXPECT_FALSE(terms.found);
  EXPECT_EQ(terms.log, "[Macro: GetTerms] Buffer too small (size = 0)\n");
}

TEST(GetTerms, NoBuffer_GivesACopyForTheCaller) {
  const Document document("\ta=one\tb=two\n");
  int size = 1;  // is no limit here
  char *first = Macro_GetTerms(document.At(0), nullptr, &size);
  char *second = Macro_GetTerms(document.At(6), nullptr, &size);
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  EXPECT_STREQ(first, "one");
  EXPECT_STREQ(second, "two\n");
  std::free(first);
  std::free(second);
}

TEST(GetTerms, NoBufferAndAnEmptyValue_IsAnEmptyCopy) {
  const Document document("\ta=\t");
  int size = 5;
  char *value = Macro_GetTerms(document.At(0), nullptr, &size);
  ASSERT_NE(value, nullptr);
  EXPECT_STREQ(value, "");
  EXPECT_EQ(size, 0);
  std::free(value);
}

TEST(GetTerms, NoBuffer_MeasuresTheValueToo) {
  const Document document("\ta=one\t");
  int size = 1;
  std::free(Macro_GetTerms(document.At(0), nullptr, &size));
  EXPECT_EQ(size, 3);
}

TEST(GetTerms, NoBuffer_TakesUpTo2047Characters) {
  const Document document("\ta=" + std::string(2047, 'v') + "\tb=" + std::string(2048, 'w') + "\t");
  int size = 9999;
  char *value = Macro_GetTerms(document.At(0), nullptr, &size);
  ASSERT_NE(value, nullptr);
  EXPECT_EQ(value, std::string(2047, 'v'));
  std::free(value);
  size = 9999;
  EXPECT_EQ(MessagesAt(103, [&] { value = Macro_GetTerms(document.At(2050), nullptr, &size); }),
            "[Macro: GetTerms] Buffer too small (size = 2048)\n");
  EXPECT_EQ(value, nullptr);
  EXPECT_EQ(size, 9999);
}

TEST(GetTerms, NoBufferAndNoEqualsSign_IsLogged) {
  const Document document("\tb");
  int size = 5;
  char *value = nullptr;
  EXPECT_EQ(MessagesAt(103, [&] { value = Macro_GetTerms(document.At(0), nullptr, &size); }),
            "[Macro: GetTerms] Unable to locate delimeter in \tb\n");
  EXPECT_EQ(value, nullptr);
}

TEST(GetTerms, NoBufferAndNoMemory_IsNull) {
  const Document document("\ta=one\t");
  int size = 5;
  file_seams.fail_malloc = ENOMEM;
  EXPECT_EQ(Macro_GetTerms(document.At(0), nullptr, &size), nullptr);
  file_seams.fail_malloc = 0;
}

}  // namespace
