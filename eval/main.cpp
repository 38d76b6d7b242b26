// tovrin-ai-eval: how well does a model serve the game? Sends a file of
// requests through the runtime (or replays recorded answers against the
// watchdog) and summarises the outcomes, the watchdog's reasons, the label
// accuracy and the latency.
//
//   stdout: the readable report, or the JSON or HTML report named "-"
//   stderr: a progress bar when it is a terminal; warnings and errors; the
//           readable report when a report named "-" holds standard output
//   exit:   0 when the evaluation ran, 2 for a bad command line or input
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "jsonl_reader.hpp"
#include "options.hpp"
#include "progress_bar.hpp"
#include "report_html.hpp"
#include "report_json.hpp"
#include "report_table.hpp"
#include "request_runner.hpp"
#include "statistics.hpp"
#include "terminal.hpp"

namespace {

namespace fs = std::filesystem;
using namespace tovrin::ai::eval;

constexpr int kFailed = 2;

int fail(const std::string& message) {
  std::cerr << "tovrin-ai-eval: " << message << '\n';
  return kFailed;
}

// Also for a report file that does not exist yet and is named differently.
bool sameFile(const std::string& a, const std::string& b) {
  std::error_code error;
  if (fs::equivalent(a, b, error)) return true;
  const fs::path left = fs::absolute(a, error).lexically_normal();
  if (error) return false;
  const fs::path right = fs::absolute(b, error).lexically_normal();
  return !error && left == right;
}

// Why path cannot be an input, or "" when it can.
std::string unreadable(const std::string& path) {
  std::error_code error;
  if (fs::is_directory(path, error)) return path + " is a directory";
  if (!std::ifstream(path, std::ios::binary)) return "cannot read " + path;
  return "";
}

// A report goes to a file opened before the run, so that a bad path costs
// no model time, or with "-" to standard output.
struct ReportOutput {
  std::string path;
  std::ofstream file;

  std::string open() {
    if (path.empty() || path == "-") return "";
    file.open(path, std::ios::binary | std::ios::trunc);
    return file ? "" : "cannot write " + path;
  }
  std::string write(const std::string& text) {
    if (path == "-") {
      std::cout << text;
      return "";
    }
    if (!file.is_open()) return "";
    file << text;
    file.close();
    return file ? "" : "cannot write " + path;
  }
};

int run(const std::vector<std::string>& args) {
  std::string error;
  std::optional<EvalOptions> parsed = parseOptions(args, error);
  if (!parsed) {
    std::cerr << "tovrin-ai-eval: " << error << "\n\n" << usage();
    return kFailed;
  }
  EvalOptions& options = *parsed;
  if (options.help) {
    std::cout << usage();
    return 0;
  }

  ReportOutput json{options.jsonReport, {}};
  ReportOutput html{options.htmlReport, {}};
  ReadResult input;
  if (options.input == "-") {
    input = readCases(std::cin, "-");
  } else {
    if (std::string why = unreadable(options.input); !why.empty()) {
      return fail(why);
    }
    for (const auto* report : {&json, &html}) {
      if (!report->path.empty() && report->path != "-" &&
          sameFile(report->path, options.input)) {
        return fail((report == &json ? "--json" : "--html") +
                    std::string(" names the input file ") + options.input);
      }
    }
    std::ifstream file(options.input, std::ios::binary);
    input = readCases(file, options.input);
  }
  if (!input.errors.empty()) {
    for (const std::string& line : input.errors) std::cerr << line << '\n';
    return kFailed;
  }
  if (input.cases.empty()) {
    return fail((options.input == "-" ? "standard input" : options.input) +
                " holds no request");
  }
  if (!json.path.empty() && !html.path.empty() && json.path != "-" &&
      html.path != "-" && sameFile(json.path, html.path)) {
    return fail("--json and --html name the same file " + json.path);
  }

  // The runtime would quietly go without; the user should know.
  if (!options.replay && !options.helperPath.empty() &&
      !unreadable(options.helperPath).empty()) {
    std::cerr << "tovrin-ai-eval: warning: cannot read the helper text "
              << options.helperPath << "; running without one\n";
    options.helperPath.clear();
  }

  for (ReportOutput* report : {&json, &html}) {
    if (std::string why = report->open(); !why.empty()) return fail(why);
  }

  std::vector<EvalResult> results;
  if (options.replay) {
    results = replayCases(input.cases);
  } else {
    ProgressBar bar(stderr, isTerminal(stderr));
    results = runCases(runtimeConfig(options), tovrin::ai::httpChatCompletion,
                       input.cases, options.repeat, options.concurrency,
                       [&bar](std::size_t done, std::size_t total) {
                         bar.update(done, total);
                       });
    bar.finish();
  }

  const Summary summary = summarize(input.cases, results);
  if (!json.path.empty()) {
    error = json.write(jsonReport(options, input.cases, results, summary));
    if (!error.empty()) return fail(error);
  }
  if (!html.path.empty()) {
    error = html.write(htmlReport(options, input.cases, results, summary));
    if (!error.empty()) return fail(error);
  }
  // Standard output holds a report meant for a program; people read the
  // table on standard error then.
  const bool reportOnStdout = json.path == "-" || html.path == "-";
  writeTable(reportOnStdout ? std::cerr : std::cout, options, input.cases,
             results, summary);
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
