#include "web/journal.h"

#include <gtest/gtest.h>

namespace {

const std::string kFront =
    "{\"time\":\"2026-11-21T23:20:34.884Z\",\"address\":\"127.0.0.1\",\"route\":\"search\",\"status\":200";
constexpr std::int64_t kTime = 1795303234884;

VisitRecord Of(const Asked &asked, const PageFacts &facts) {
  return {&asked, "127.0.0.1", 200, {}, &facts, 17, 1.5, 2.25};
}

std::string HistogramOf(const std::string &name, const std::vector<int> &counts,
                        const std::string &sum) {
  const char *bounds[] = {"0.001", "0.0025", "0.005", "0.01", "0.025", "0.05", "0.1",
                          "0.25",  "0.5",    "1",     "2.5",  "5",     "10",   "+Inf"};
  std::string text = "# TYPE " + name + " histogram\n";
  for (std::size_t i = 0; i < counts.size(); ++i)
    text += name + "_bucket{le=\"" + bounds[i] + "\"} " + std::to_string(counts[i]) + "\n";
  return text + name + "_sum " + sum + "\n" + name + "_count " + std::to_string(counts.back()) +
         "\n";
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

TEST(Clock, TimesAreMillisecondsWithTheirParts) {
  EXPECT_EQ(Clock_Ms(std::chrono::microseconds(1500)), 1.5);
}

TEST(Measures, AreCounted) {
  const Asked asked = Asked_Read("/search?q=a");
  const PageFacts facts;
  Measures measures = {};
  VisitRecord finished = Of(asked, facts);
  Measures_Add(&measures, finished);
  finished.first_ms = finished.ms = 2.5;  // exactly a bound
  Measures_Add(&measures, finished);
  finished.troubles = {Trouble::kBusy};
  finished.first_ms = finished.ms = 20000;
  Measures_Add(&measures, finished);
  std::string text;
  for (const std::string route :
       {"none", "front", "search", "doc", "opensearch", "metrics", "healthz", "static"})
    text += "korvo_web_requests_total{route=\"" + route + "\"} " + (route == "search" ? "3" : "0") +
            "\n";
  text += "# TYPE korvo_web_errors_total counter\n";
  for (const std::string kind : {"no-page", "no-group", "no-document", "method", "long-request",
                                 "too-many", "query", "gone", "failed", "broken", "busy",
                                 "stopping", "too-late", "lost-document", "missing-hits", "shards"})
    text += "korvo_web_errors_total{kind=\"" + kind + "\"} " + (kind == "busy" ? "1" : "0") + "\n";
  const std::string first = "korvo_web_first_byte_seconds", last = "korvo_web_last_byte_seconds";
  EXPECT_EQ(Measures_Text(measures, 3, 2),
            "# TYPE korvo_web_requests_total counter\n" + text +
                HistogramOf(first, {0, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 3}, "20.004") +
                HistogramOf(last, {0, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 3}, "20.005") +
                "# TYPE korvo_web_in_flight gauge\nkorvo_web_in_flight 3\n"
                "# TYPE korvo_web_waiting gauge\nkorvo_web_waiting 2\n");
}

TEST(Measures, TimesAreOfSearchesAndDocumentsThatWereAnswered) {
  const Asked search = Asked_Read("/search?q=a"), document = Asked_Read("/doc/a/1"),
              front = Asked_Read("/");
  const PageFacts facts;
  Measures measures = {};
  Measures_Add(&measures, Of(document, facts));
  EXPECT_EQ(measures.first.counts[1], 1u);
  EXPECT_EQ(measures.last.counts[1], 1u);
  Measures_Add(&measures, Of(front, facts));
  VisitRecord left = Of(search, facts);
  left.first_ms = -1;
  Measures_Add(&measures, left);
  EXPECT_EQ(measures.first.sum, 0.0015);
  EXPECT_EQ(measures.last.sum, 0.00225);
  left.first_ms = 0;
  Measures_Add(&measures, left);
  EXPECT_EQ(measures.first.counts[0], 1u);
}
