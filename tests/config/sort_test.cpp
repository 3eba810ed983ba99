#include "config/sort.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

using Values = std::vector<std::uint32_t>;
using Strings = std::vector<const char *>;

class Random {
 public:
  explicit Random(unsigned seed) : engine_(seed) {}
  std::uint32_t Below(std::uint32_t limit) { return static_cast<std::uint32_t>(engine_() % limit); }

 private:
  std::mt19937 engine_;
};

// ---- the algorithms, step by step, against which the sorts are held

void PlainSortU32(Values &v, int first, int last) {
  if (first >= last) return;
  std::uint32_t three[3] = {v[first], v[first + (last - first) / 2], v[last]};
  std::sort(three, three + 3);
  std::uint32_t pivot;
  if (three[0] < three[1]) {
    pivot = three[1];
  } else if (three[1] < three[2]) {
    pivot = three[2];
  } else {
    int k = first + 1;
    while (k <= last && v[k] == v[first]) ++k;
    if (k > last) return;
    pivot = std::max(v[first], v[k]);
  }
  int i = first, j = last;
  while (j >= i) {
    while (v[i] < pivot) ++i;
    while (v[j] >= pivot) --j;
    if (j > i) {
      std::swap(v[i], v[j]);
      ++i;
      --j;
    }
  }
  PlainSortU32(v, first, i - 1);
  PlainSortU32(v, i, last);
}

int PlainPivot(Strings &a, int low, int high) {
  const int mid = low + (high - low) / 2;
  if (std::strcmp(a[low], a[mid]) > 0) std::swap(a[low], a[mid]);
  if (std::strcmp(a[low], a[high]) > 0) std::swap(a[low], a[high]);
  if (std::strcmp(a[mid], a[high]) > 0) std::swap(a[mid], a[high]);
  if (std::strcmp(a[low], a[mid]) < 0) return mid;
  if (std::strcmp(a[mid], a[high]) < 0) return high;
  int k = low + 1;
  while (k <= high && std::strcmp(a[k], a[low]) == 0) ++k;
  if (k > high) return -1;
  return std::strcmp(a[k], a[low]) > 0 ? k : low;
}

void PlainSortStrings(Strings &a, int low, int high) {
  if (low >= high) return;
  const int pivot = PlainPivot(a, low, high);
  if (pivot < 0) return;
  int i = low, j = high;
  while (j > i) {
    while (i <= high && std::strcmp(a[i], a[pivot]) < 0) ++i;
    while (j >= low && std::strcmp(a[j], a[pivot]) >= 0) --j;
    if (j > i) {
      std::swap(a[i], a[j]);
      ++i;
      --j;
    }
  }
  PlainSortStrings(a, low, i - 1);
  PlainSortStrings(a, i, high);
}

Values SortedU32(Values values) {
  Util_SortU32(values.data(), values.data() + values.size() - 1);
  return values;
}

// ---- Util_SortU32

TEST(SortU32, OneElement_IsLeft) { EXPECT_EQ(SortedU32({7}), Values({7})); }

TEST(SortU32, AllEqual_IsLeft) {
  EXPECT_EQ(SortedU32({4, 4, 4, 4}), Values({4, 4, 4, 4}));
  EXPECT_EQ(SortedU32(Values(1000000, 4)), Values(1000000, 4));
}

TEST(SortU32, FirstMiddleAndLastEqual_TheScanFindsThePivot) {
  EXPECT_EQ(SortedU32({2, 1, 2, 5, 2}), Values({1, 2, 2, 2, 5}));
  EXPECT_EQ(SortedU32({2, 2, 2, 2, 1, 2, 2}), Values({1, 2, 2, 2, 2, 2, 2}));
  EXPECT_EQ(SortedU32({2, 2, 2, 2, 5, 2, 2}), Values({2, 2, 2, 2, 2, 2, 5}));
}

TEST(SortU32, SmallRanges_AreAscending) {
  EXPECT_EQ(SortedU32({2, 1}), Values({1, 2}));
  EXPECT_EQ(SortedU32({1, 2}), Values({1, 2}));
  EXPECT_EQ(SortedU32({3, 1, 2}), Values({1, 2, 3}));
  EXPECT_EQ(SortedU32({1, 1, 0}), Values({0, 1, 1}));
}

TEST(SortU32, HighestValues_AreUnsigned) {
  EXPECT_EQ(SortedU32({UINT32_MAX, 0, 0x80000000u, 0x7fffffffu, UINT32_MAX}),
            Values({0, 0x7fffffffu, 0x80000000u, UINT32_MAX, UINT32_MAX}));
}

TEST(SortU32, InnerRange_IncludesBothEndsAndNothingElse) {
  Values values = {9, 5, 4, 3, 0};
  Util_SortU32(&values[1], &values[3]);
  EXPECT_EQ(values, Values({9, 3, 4, 5, 0}));
}

TEST(SortU32, LargeArraysOfEveryShape_AreAscending) {
  constexpr std::uint32_t kCount = 50000;
  Values up, down, organ;
  for (std::uint32_t i = 0; i < kCount; ++i) {
    up.push_back(i);
    down.push_back(kCount - i);
    organ.push_back(std::min(i, kCount - i));
  }
  for (const Values &values : {up, down, organ}) {
    const Values sorted = SortedU32(values);
    Values ordered = values;
    std::sort(ordered.begin(), ordered.end());
    EXPECT_EQ(sorted, ordered);
  }
}

TEST(SortU32, RandomArrays_AgreeWithTheAlgorithm) {
  Random random(1);
  for (int round = 0; round < 20000; ++round) {
    const std::uint32_t range = 1 + random.Below(40);
    Values values(1 + random.Below(40));
    for (std::uint32_t &value : values) value = random.Below(range);
    Values plain = values, ordered = values;
    PlainSortU32(plain, 0, static_cast<int>(plain.size()) - 1);
    std::sort(ordered.begin(), ordered.end());
    const Values sorted = SortedU32(values);
    ASSERT_EQ(sorted, plain) << "round " << round;
    ASSERT_EQ(sorted, ordered) << "round " << round;
  }
}

// ---- Util_SortStrings

// A string a letter of the text; letters that stand twice are strings of their own.
std::string SortedLetters(const std::string &letters) {
  std::vector<std::string> texts;
  for (const char letter : letters) texts.emplace_back(1, letter);
  Strings array;
  for (const std::string &text : texts) array.push_back(text.c_str());
  Util_SortStrings(array.data(), 0, static_cast<int>(array.size()) - 1);
  std::string result;
  for (const char *text : array) result += text;
  return result;
}

TEST(SortStrings, OneElement_IsLeft) { EXPECT_EQ(SortedLetters("x"), "x"); }

TEST(SortStrings, AllEqual_LeavesThePointers) {
  const char one[] = "same", two[] = "same", three[] = "same", four[] = "same";
  Strings array = {one, two, three, four};
  Util_SortStrings(array.data(), 0, 3);
  EXPECT_EQ(array, Strings({one, two, three, four}));
}

TEST(SortStrings, SmallRanges_AreAscending) {
  for (const char *letters : {"ba", "ab", "cab", "bca", "cba", "dcba", "bab", "aab", "abb"}) {
    std::string ordered = letters;
    std::sort(ordered.begin(), ordered.end());
    EXPECT_EQ(SortedLetters(letters), ordered) << letters;
  }
}

TEST(SortStrings, FirstMiddleAndLastEqual_TheScanFindsThePivot) {
  EXPECT_EQ(SortedLetters("babbb"), "abbbb");
  EXPECT_EQ(SortedLetters("bcbbb"), "bbbbc");
}

// The pivot c stands at the end; b and c change places around the middle, where the partition stops
// without a look at it.
TEST(SortStrings, PartitionThatMeetsInTheMiddle_IsNotAscending) {
  EXPECT_EQ(SortedLetters("acabc"), "abacc");
  EXPECT_EQ(SortedLetters("adcba"), "abacd");
  EXPECT_EQ(SortedLetters("bdbcd"), "bcbdd");
}

TEST(SortStrings, Bytes_AreComparedAsStrcmpDoes) {
  EXPECT_EQ(SortedLetters("\xe4z"), "z\xe4");
  const char *array[] = {"b", "", "abc", "ab"};
  Util_SortStrings(array, 0, 3);
  const std::vector<std::string> texts(array, array + 4);
  EXPECT_EQ(texts, std::vector<std::string>({"", "ab", "abc", "b"}));
}

TEST(SortStrings, InnerRange_IncludesBothEndsAndNothingElse) {
  Strings array = {"z", "d", "c", "b", "a"};
  Util_SortStrings(array.data(), 1, 3);
  const std::vector<std::string> texts(array.begin(), array.end());
  EXPECT_EQ(texts, std::vector<std::string>({"z", "b", "c", "d", "a"}));
}

// The strings of a round are told apart by their place in memory, so equal ones must end in the
// same places too.
Strings RandomStrings(Random *random, std::vector<std::string> *texts) {
  const std::uint32_t letters = 1 + random->Below(6);
  texts->assign(1 + random->Below(30), "");
  for (std::string &text : *texts)
    for (std::uint32_t left = random->Below(3); left > 0; --left)
      text += static_cast<char>('a' + random->Below(letters));
  Strings array;
  for (const std::string &text : *texts) array.push_back(text.c_str());
  return array;
}

TEST(SortStrings, RandomArrays_AgreeWithTheAlgorithmPointerByPointer) {
  Random random(2);
  int unordered = 0;
  for (int round = 0; round < 20000; ++round) {
    std::vector<std::string> texts;
    const Strings array = RandomStrings(&random, &texts);
    Strings sorted = array, plain = array;
    Util_SortStrings(sorted.data(), 0, static_cast<int>(sorted.size()) - 1);
    PlainSortStrings(plain, 0, static_cast<int>(plain.size()) - 1);
    ASSERT_EQ(sorted, plain) << "round " << round;
    ASSERT_TRUE(std::is_permutation(sorted.begin(), sorted.end(), array.begin()))
        << "round " << round;
    const auto less = [](const char *a, const char *b) { return std::strcmp(a, b) < 0; };
    unordered += std::is_sorted(sorted.begin(), sorted.end(), less) ? 0 : 1;
  }
  EXPECT_GT(unordered, 0) << "the arrays never reach what tells this partition from others";
}

// The neighbours are null: a comparison that leaves the range would end the process.
TEST(SortStrings, RandomArrays_AreNeverLeft) {
  Random random(3);
  for (int round = 0; round < 20000; ++round) {
    std::vector<std::string> texts;
    Strings array = RandomStrings(&random, &texts);
    array.insert(array.begin(), nullptr);
    array.push_back(nullptr);
    Util_SortStrings(array.data(), 1, static_cast<int>(array.size()) - 2);
    ASSERT_EQ(array.front(), nullptr);
    ASSERT_EQ(array.back(), nullptr);
  }
}

TEST(SortStrings, LargeOrderedArrays_AgreeWithTheAlgorithm) {
  std::vector<std::string> texts;
  for (int i = 0; i < 50000; ++i) texts.push_back(std::to_string(1000000 + i));
  Strings up;
  for (const std::string &text : texts) up.push_back(text.c_str());
  Strings down(up.rbegin(), up.rend()), plain_up = up, plain_down = down;
  const int last = static_cast<int>(up.size()) - 1;
  Util_SortStrings(up.data(), 0, last);
  PlainSortStrings(plain_up, 0, last);
  EXPECT_EQ(up, plain_up);
  Util_SortStrings(down.data(), 0, last);
  PlainSortStrings(plain_down, 0, last);
  EXPECT_EQ(down, plain_down);
}

}  // namespace
