// Prints, after the table of a benchmark run, each alternative's time in units of ours.
//
// Cases are named "<what>/<who>" or "<what>/<who>/<argument>"; the first `who` of each `what` and
// argument is ours, the others are compared with it. All figures are of this one run.
#pragma once

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  RatioReporter() : ConsoleReporter(isatty(STDOUT_FILENO) == 1 ? OO_Defaults : OO_None) {}

  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      const std::string& name = run.run_name.function_name;
      const std::size_t slash = name.find('/');
      if (slash == std::string::npos || run.error_occurred) {
        continue;
      }
      const std::string key = name.substr(0, slash) + " " + run.run_name.args;
      const std::string who = name.substr(slash + 1);
      const double time = run.GetAdjustedRealTime();
      const auto [ours, first] = base.emplace(key, time);
      if (!first) {
        lines.push_back(key + ": " + who + " takes " + format(time / ours->second) +
                        " times as long");
      }
    }
  }

  void Finalize() override {
    ConsoleReporter::Finalize();
    for (const std::string& line : lines) {
      std::printf("%s\n", line.c_str());
    }
  }

 private:
  static std::string format(double ratio) {
    char text[32];
    std::snprintf(text, sizeof text, "%.2f", ratio);
    return text;
  }

  std::map<std::string, double> base;
  std::vector<std::string> lines;
};

/// The body of a benchmark's main.
inline int runWithRatios(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 1;
  }
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
