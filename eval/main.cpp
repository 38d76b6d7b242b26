// tovrin-ai-eval: how well does a model serve the game? Sends a file of
// requests through the runtime (or replays recorded answers against the
// watchdog) and summarises the outcomes, the watchdog's reasons, the label
// accuracy and the latency.
//
//   stdout: the readable report
//   stderr: a progress bar when it is a terminal; errors
//   exit:   0 when the evaluation ran, 2 for a bad command line or input
#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "jsonl_reader.hpp"
#include "options.hpp"
#include "progress_bar.hpp"
#include "report_json.hpp"
#include "report_table.hpp"
#include "request_runner.hpp"
#include "statistics.hpp"
#include "terminal.hpp"

namespace {

using namespace tovrin::ai::eval;

constexpr int kFailed = 2;

int fail(const std::string& message) {
  std::cerr << "tovrin-ai-eval: " << message << '\n';
  return kFailed;
}

int run(const std::vector<std::string>& args) {
  std::string error;
  const std::optional<EvalOptions> options = parseOptions(args, error);
  if (!options) {
    std::cerr << "tovrin-ai-eval: " << error << "\n\n" << kUsage;
    return kFailed;
  }
  if (options->help) {
    std::cout << kUsage;
    return 0;
  }

  ReadResult input;
  if (options->input == "-") {
    input = readCases(std::cin, "-");
  } else {
    std::ifstream file(options->input, std::ios::binary);
    if (!file) return fail("cannot read " + options->input);
    input = readCases(file, options->input);
  }
  if (!input.errors.empty()) {
    for (const std::string& line : input.errors) std::cerr << line << '\n';
    return kFailed;
  }

  // Opened before the run, so that a bad path costs no model time.
  std::ofstream jsonFile;
  if (!options->jsonReport.empty()) {
    jsonFile.open(options->jsonReport, std::ios::binary | std::ios::trunc);
    if (!jsonFile) return fail("cannot write " + options->jsonReport);
  }

  std::vector<EvalResult> results;
  if (options->replay) {
    results = replayCases(input.cases);
  } else {
    ProgressBar bar(stderr, isTerminal(stderr));
    results = runCases(runtimeConfig(*options), tovrin::ai::httpChatCompletion,
                       input.cases, options->repeat, options->concurrency,
                       [&bar](std::size_t done, std::size_t total) {
                         bar.update(done, total);
                       });
    bar.finish();
  }

  const Summary summary = summarize(input.cases, results);
  if (jsonFile.is_open()) {
    jsonFile << jsonReport(*options, input.cases, results, summary);
    jsonFile.close();
    if (!jsonFile) return fail("cannot write " + options->jsonReport);
  }
  writeTable(std::cout, *options, input.cases, results, summary);
  std::cout.flush();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(std::vector<std::string>(argv + 1, argv + argc));
  } catch (const std::exception& error) {
    return fail(error.what());
  }
}
