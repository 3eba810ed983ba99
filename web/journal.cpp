#include "web/journal.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace {

std::string Quoted(const std::string &text) {
  std::string quoted = "\"";
  for (const char c : text) {  // clean UTF-8: no control character is in it
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + "\"";
}

std::string Decimal(double number) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3f", number);
  return text;
}

std::string TimeText(std::int64_t milliseconds) {
  const std::time_t seconds = milliseconds / 1000;
  std::tm parts = {};
  gmtime_r(&seconds, &parts);
  char date[32], text[48];
  std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &parts);
  std::snprintf(text, sizeof text, "%s.%03dZ", date, static_cast<int>(milliseconds % 1000));
  return text;
}

std::string QueryOf(const Asked &asked) {
  std::string query = asked.text;
  for (const auto &[name, words] : asked.fields)
    query.append(" ").append(name).append("=").append(words);
  return query;
}

std::string NamesOf(const std::vector<Trouble> &troubles) {
  std::string names;
  for (const Trouble trouble : troubles)
    names.append(names.empty() ? "" : " ").append(Trouble_Info(trouble).name);
  return names;
}

void Observe(Histogram *histogram, double seconds) {
  const auto *bound = std::lower_bound(kMeasureBounds.begin(), kMeasureBounds.end(), seconds);
  ++histogram->counts[static_cast<std::size_t>(bound - kMeasureBounds.begin())];
  histogram->sum += seconds;
}

std::string Bound(double bound) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", bound);
  return text;
}

std::string HistogramText(const std::string &name, const Histogram &histogram) {
  std::string text = "# TYPE " + name + " histogram\n";
  std::uint64_t count = 0;
  for (std::size_t i = 0; i < histogram.counts.size(); ++i) {
    count += histogram.counts[i];
    text += name + "_bucket{le=\"" +
            (i < kMeasureBounds.size() ? Bound(kMeasureBounds[i]) : "+Inf") + "\"} " +
            std::to_string(count) + "\n";
  }
  return text + name + "_sum " + Decimal(histogram.sum) + "\n" + name + "_count " +
         std::to_string(count) + "\n";
}

}  // namespace

bool Journal_Open(Journal *journal) {
  if (journal->path == "-") {
    journal->fd = STDERR_FILENO;
    return true;
  }
  const int fd = open(journal->path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0640);
  if (fd < 0) return false;
  if (journal->fd > STDERR_FILENO) close(journal->fd);
  journal->fd = fd;
  return true;
}

std::string Journal_Line(const VisitRecord &finished, bool queries, std::int64_t milliseconds) {
  const PageFacts &facts = *finished.facts;
  std::string line = "{\"time\":\"" + TimeText(milliseconds) + "\",\"address\":\"" +
                     finished.address + "\",\"route\":\"" + Asked_Name(finished.asked->route) +
                     "\",\"status\":" + std::to_string(finished.status);
  if (facts.known)
    line += ",\"hits\":" + std::to_string(facts.status.shown) +
            ",\"matches\":" + std::to_string(facts.status.matches) + ",\"shards\":\"" +
            std::to_string(facts.status.searched) + "/" + std::to_string(facts.status.shards) +
            "\"";
  line += ",\"bytes\":" + std::to_string(finished.bytes);
  if (finished.first_ms >= 0) line += ",\"first_ms\":" + Decimal(finished.first_ms);
  line += ",\"ms\":" + Decimal(finished.ms);
  if (finished.fallback) line += ",\"fallback\":true";
  if (!finished.troubles.empty()) line += ",\"trouble\":\"" + NamesOf(finished.troubles) + "\"";
  if (queries && Asked_HasQuery(*finished.asked))
    line += ",\"query\":" + Quoted(QueryOf(*finished.asked));
  return line + "}\n";
}

void Journal_Write(Journal *journal, const VisitRecord &finished) {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const std::string line =
      Journal_Line(finished, journal->queries,
                   std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
  const bool was_failing = journal->is_failing;
  journal->is_failing = write(journal->fd, line.data(), line.size()) < 0;
  if (journal->is_failing && !was_failing)
    std::fprintf(stderr, "korvo-web: cannot write to the log %s: %s; pages are served without\n",
                 journal->path.c_str(), std::strerror(errno));
}

void Measures_Add(Measures *measures, const VisitRecord &finished) {
  const Route route = finished.asked->route;
  ++measures->requests[static_cast<std::size_t>(route)];
  for (const Trouble trouble : finished.troubles)
    ++measures->troubles[static_cast<std::size_t>(trouble)];
  if ((route != Route::kSearch && route != Route::kDocument) || finished.first_ms < 0) return;
  Observe(&measures->first, finished.first_ms / 1000);
  Observe(&measures->last, finished.ms / 1000);
}

std::string Measures_Text(const Measures &measures, std::size_t in_flight, std::size_t waiting) {
  std::string text = "# TYPE korvo_web_requests_total counter\n";
  for (std::size_t i = 0; i < measures.requests.size(); ++i)
    text += std::string("korvo_web_requests_total{route=\"") + Asked_Name(static_cast<Route>(i)) +
            "\"} " + std::to_string(measures.requests[i]) + "\n";
  text += "# TYPE korvo_web_errors_total counter\n";
  for (std::size_t i = 1; i < measures.troubles.size(); ++i)
    text += std::string("korvo_web_errors_total{kind=\"") +
            Trouble_Info(static_cast<Trouble>(i)).name + "\"} " +
            std::to_string(measures.troubles[i]) + "\n";
  text += HistogramText("korvo_web_first_byte_seconds", measures.first);
  text += HistogramText("korvo_web_last_byte_seconds", measures.last);
  text +=
      "# TYPE korvo_web_in_flight gauge\nkorvo_web_in_flight " + std::to_string(in_flight) + "\n";
  return text + "# TYPE korvo_web_waiting gauge\nkorvo_web_waiting " + std::to_string(waiting) +
         "\n";
}
