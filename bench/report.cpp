#include "bench/report.h"

#include <algorithm>
#include <cstdio>

#include "bench/statistics.h"

namespace {

std::vector<double> Column(const Series &series, Side side, double Sample::*value) {
  std::vector<double> column;
  for (const Sample &sample : series.samples[side]) column.push_back(sample.*value);
  return column;
}

double Median(const Series &series, Side side, double Sample::*value) {
  return Statistics_Quantile(Column(series, side, value), 0.5);
}

// Of all requests of a side, in microseconds.
double Percentile(const Series &series, Side side, double percent) {
  std::vector<std::int64_t> latencies = series.latencies[side];
  std::sort(latencies.begin(), latencies.end());
  return static_cast<double>(Client_Percentile(latencies, percent)) / 1000;
}

double Mean(const Series &series, Side side, double Sample::*value) {
  double sum = 0;
  for (const Sample &sample : series.samples[side]) sum += sample.*value;
  return sum / static_cast<double>(series.samples[side].size());
}

// Daemon over floor, round by round.
std::string Ratio(const Series &series, double Sample::*value) {
  const std::vector<double> below = Column(series, kFloor, value);
  const std::vector<double> above = Column(series, kDaemon, value);
  std::vector<double> ratios;
  for (std::size_t i = 0; i < std::min(below.size(), above.size()); ++i)
    if (below[i] > 0 && above[i] > 0) ratios.push_back(above[i] / below[i]);
  return ratios.empty() ? "-" : Statistics_WithQuartiles(ratios, 2);
}

std::string Percent(const Series &series, Side side, double Sample::*value) {
  std::vector<double> column = Column(series, side, value);
  for (double &share : column) share *= 100;
  return Statistics_WithQuartiles(column, 0);
}

std::string Cpu(double value) {
  if (value < 0) return "-";
  char text[32];
  std::snprintf(text, sizeof text, "%.1f", value);
  return text;
}

}  // namespace

void Report_Add(Series *series, Side side, const Outcome &outcome, double seconds, double cpu) {
  const auto answered = static_cast<double>(outcome.latencies.size());
  const auto unanswered = static_cast<double>(outcome.unanswered);
  const double all = std::max(answered + unanswered, 1.0);
  Sample sample;
  sample.p50 = static_cast<double>(Client_Percentile(outcome.latencies, 50)) / 1000;
  sample.rate = answered / seconds;
  sample.cpu = cpu < 0 || answered == 0 ? -1 : cpu / answered;
  sample.queued = (static_cast<double>(outcome.queued) + unanswered) / all;
  sample.unanswered = unanswered / all;
  series->samples[side].push_back(sample);
  series->latencies[side].insert(series->latencies[side].end(), outcome.latencies.begin(),
                                 outcome.latencies.end());
}

void Report_ClosedHead() {
  std::printf(
      "| row          | clients | p50 floor | p50 daemon | ratio (quartiles)   | CPU floor | CPU daemon | ratio (quartiles)   | p99 floor | p99 daemon | max floor | max daemon | req/s floor | req/s daemon | queue floor | queue daemon |\n"
      "|--------------|--------:|----------:|-----------:|---------------------|----------:|-----------:|---------------------|----------:|-----------:|----------:|-----------:|------------:|-------------:|------------:|-------------:|\n");
}

void Report_Closed(const Series &series) {
  std::printf(
      "| %-12s | %7d | %9.1f | %10.1f | %-19s | %9s | %10s | %-19s | %9.0f | %10.0f | %9.0f | %10.0f | %11.0f | %12.0f | %10.1f%% | %11.1f%% |\n",
      series.label.c_str(), series.clients, Median(series, kFloor, &Sample::p50),
      Median(series, kDaemon, &Sample::p50), Ratio(series, &Sample::p50).c_str(),
      Cpu(Median(series, kFloor, &Sample::cpu)).c_str(),
      Cpu(Median(series, kDaemon, &Sample::cpu)).c_str(), Ratio(series, &Sample::cpu).c_str(),
      Percentile(series, kFloor, 99), Percentile(series, kDaemon, 99),
      Percentile(series, kFloor, 100), Percentile(series, kDaemon, 100),
      Median(series, kFloor, &Sample::rate), Median(series, kDaemon, &Sample::rate),
      100 * Mean(series, kFloor, &Sample::queued), 100 * Mean(series, kDaemon, &Sample::queued));
  std::fflush(stdout);
}

void Report_BurstHead() {
  std::printf(
      "| at once | queue floor, %%   | queue daemon, %%  | unanswered floor, %% | unanswered daemon, %% | p50 floor | p50 daemon | CPU floor | CPU daemon | ratio (quartiles)   |\n"
      "|--------:|------------------|------------------|---------------------|----------------------|----------:|-----------:|----------:|-----------:|---------------------|\n");
}

void Report_Burst(const Series &series) {
  std::printf(
      "| %7d | %-16s | %-16s | %-19s | %-20s | %9.0f | %10.0f | %9s | %10s | %-19s |\n",
      series.clients, Percent(series, kFloor, &Sample::queued).c_str(),
      Percent(series, kDaemon, &Sample::queued).c_str(),
      Percent(series, kFloor, &Sample::unanswered).c_str(),
      Percent(series, kDaemon, &Sample::unanswered).c_str(), Median(series, kFloor, &Sample::p50),
      Median(series, kDaemon, &Sample::p50), Cpu(Median(series, kFloor, &Sample::cpu)).c_str(),
      Cpu(Median(series, kDaemon, &Sample::cpu)).c_str(), Ratio(series, &Sample::cpu).c_str());
  std::fflush(stdout);
}
