#include "web/journal.h"

#include <gtest/gtest.h>

namespace {

const std::string kFront =
    "{\"time\":\"2026-11-21T23:20:34.884Z\",\"address\":\"127.0.0.1\",\"route\":\"search\",\"status\":200";
constexpr std::int64_t kTime = 1795303234884;

VisitRecord Of(const Asked &asked, const PageFacts &facts) {
  return {&asked, "127.0.0.1", 200, {}, &facts, 17, 1.5, 2.25};
}

}  // namespace

TEST(Journal, Line_HasWhatIsKnown) {
  const Asked asked = Asked_Read("/search?q=a%22b%5c%09c&Section=x");
  PageFacts facts;
  EXPECT_EQ(
      Journal_Line(Of(asked, facts), true, kTime),
      kFront +
          ",\"bytes\":17,\"first_ms\":1.500,\"ms\":2.250,\"query\":\"a\\\"b\\\\ c Section=x\"}\n");
  facts.known = true;
  facts.status = {1234, true, 1, 10, 3, 4, ""};
  EXPECT_EQ(
      Journal_Line(Of(asked, facts), false, kTime),
      kFront +
          ",\"hits\":10,\"matches\":1234,\"shards\":\"3/4\",\"bytes\":17,\"first_ms\":1.500,\"ms\":2.250}\n");
}

TEST(Journal, Line_OfATroubleWithoutAByte) {
  const Asked asked = Asked_Read("/search");
  const PageFacts facts;
  VisitRecord finished = Of(asked, facts);
  finished.troubles = {Trouble::kTooLate};
  finished.first_ms = -1;
  EXPECT_EQ(Journal_Line(finished, true, kTime),
            kFront + ",\"bytes\":17,\"ms\":2.250,\"trouble\":\"too-late\"}\n");
  finished.fallback = true;
  finished.troubles = {Trouble::kNoPage, Trouble::kShards};
  EXPECT_EQ(Journal_Line(finished, true, kTime), kFront +
                                                     ",\"bytes\":17,\"ms\":2.250"
                                                     ",\"fallback\":true"
                                                     ",\"trouble\":\"no-page shards\"}\n");
}

TEST(Journal, AFullDiskIsSaidOnce) {
  const Asked asked = Asked_Read("/search");
  const PageFacts facts;
  Journal journal;
  journal.path = "/dev/full";
  ASSERT_TRUE(Journal_Open(&journal));
  testing::internal::CaptureStderr();
  for (int line = 0; line < 3; ++line) Journal_Write(&journal, Of(asked, facts));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "korvo-web: cannot write to the log /dev/full: No space left on device; pages are "
            "served without\n");
  journal.path = "/dev/null";
  ASSERT_TRUE(Journal_Open(&journal));
  Journal_Write(&journal, Of(asked, facts));
  EXPECT_FALSE(journal.is_failing);
}

TEST(Measures, AreCounted) {
  const Asked asked = Asked_Read("/search?q=a");
  const PageFacts facts;
  Measures measures = {};
  VisitRecord finished = Of(asked, facts);
  Measures_Add(&measures, finished);
  finished.troubles = {Trouble::kBusy};
  finished.first_ms = finished.ms = 20000;
  Measures_Add(&measures, finished);
  const std::string text = Measures_Text(measures, 3, 2);
  for (const char *line :
       {"# TYPE korvo_web_requests_total counter\n",
        "\nkorvo_web_requests_total{route=\"search\"} 2\n",
        "\n# TYPE korvo_web_errors_total counter\n", "\nkorvo_web_errors_total{kind=\"busy\"} 1\n",
        "\n# TYPE korvo_web_first_byte_seconds histogram\n",
        "\nkorvo_web_first_byte_seconds_bucket{le=\"0.001\"} 0\n",
        "\nkorvo_web_first_byte_seconds_bucket{le=\"0.0025\"} 1\n",
        "\nkorvo_web_first_byte_seconds_bucket{le=\"+Inf\"} 2\n",
        "\nkorvo_web_first_byte_seconds_sum 20.002\n", "\nkorvo_web_first_byte_seconds_count 2\n",
        "\nkorvo_web_last_byte_seconds_bucket{le=\"10\"} 1\n",
        "\n# TYPE korvo_web_in_flight gauge\nkorvo_web_in_flight 3\n",
        "\n# TYPE korvo_web_waiting gauge\nkorvo_web_waiting 2\n"})
    EXPECT_NE(text.find(line), std::string::npos) << line << text;
}
