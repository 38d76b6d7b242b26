// tovrin-ai-eval: how well does a model serve the game? Sends a file of
// requests through the runtime (or replays recorded answers against the
// watchdog) and summarises the outcomes, the watchdog's reasons, the label
// accuracy and the latency.
//
//   stdout: the readable report, or the JSON or HTML report named "-"
//   stderr: a progress bar when it is a terminal; warnings and errors; the
//           readable report when a report named "-" holds standard output
//   exit:   0 when every request ran, 1 when the run stopped because
//           requests kept timing out, 2 for a bad command line or input,
//           130 when Ctrl-C ended it (the reports then hold what finished)
#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
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
#include "report_file.hpp"
#include "report_html.hpp"
#include "report_json.hpp"
#include "report_table.hpp"
#include "request_runner.hpp"
#include "statistics.hpp"
#include "display_text.hpp"
#include "terminal.hpp"
#include "tovrin/ai/model_server.hpp"

namespace {

namespace fs = std::filesystem;
using namespace tovrin::ai::eval;

constexpr int kStoppedOnTimeouts = 1;
constexpr int kFailed = 2;
constexpr int kInterrupted = 130;  // as a shell reports a death by SIGINT

// Set by the first Ctrl-C; a second one ends the program the usual way.
std::atomic<bool> interruptRequested{false};

extern "C" void onInterrupt(int signal) {
  interruptRequested.store(true);
  std::signal(signal, SIG_DFL);
}

int fail(const std::string& message) {
  std::cerr << "tovrin-ai-eval: " << message << '\n';
  return kFailed;
}

// Why path cannot be an input, or "" when it can.
std::string unreadable(const std::string& path) {
  std::error_code error;
  if (fs::is_directory(path, error)) return path + " is a directory";
  if (!std::ifstream(path, std::ios::binary)) return "cannot read " + path;
  return "";
}

// Waits for the model server the tool started to load its model: "" once
// it is ready, otherwise why not, with the last lines it wrote.
std::string awaitServer(const tovrin::ai::AiModelServer& server) {
  using tovrin::ai::AiServerState;
  tovrin::ai::AiServerStatus status;
  do {
    status = server.waitUntilSettled(std::chrono::milliseconds(100));
    if (interruptRequested.load()) return "interrupted while the model server started";
  } while (status.state != AiServerState::kReady &&
           status.state != AiServerState::kFailed &&
           status.state != AiServerState::kStopped);
  if (status.state == AiServerState::kReady) return "";
  std::string why = "the model server did not start: " + status.reason;
  const std::size_t shown = std::min<std::size_t>(status.lastLogLines.size(), 10);
  for (std::size_t i = status.lastLogLines.size() - shown;
       i < status.lastLogLines.size(); ++i) {
    why += "\n  " + validText(status.lastLogLines[i], true);
  }
  return why;
}

int exitStatus(RunEnd end) {
  switch (end) {
    case RunEnd::kComplete:
      return 0;
    case RunEnd::kInterrupted:
      return kInterrupted;
    case RunEnd::kTimeouts:
      return kStoppedOnTimeouts;
  }
  return 0;
}

int run(const std::vector<std::string>& args) {
  std::string error;
  std::optional<EvalOptions> parsed = parseOptions(args, error);
  if (!parsed) {
    std::cerr << "tovrin-ai-eval: " << error << '\n';
    if (args.empty()) std::cerr << '\n' << usage();
    return kFailed;
  }
  EvalOptions& options = *parsed;
  if (options.help) {
    std::cout << usage();
    return 0;
  }

  if (options.input != "-") {
    if (std::string why = unreadable(options.input); !why.empty()) {
      return fail(why);
    }
  }
  if (std::string why = reportPathFault(options); !why.empty()) {
    return fail(why);
  }
  ReadResult input;
  if (options.input == "-") {
    input = readCases(std::cin, "-");
  } else {
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
  const ReportFile json(options.jsonReport);
  const ReportFile html(options.htmlReport);
  for (const ReportFile* report : {&json, &html}) {
    if (std::string why = report->check(); !why.empty()) return fail(why);
  }

  // The runtime would quietly go without; the user should know.
  if (!options.replay && !options.helperPath.empty() &&
      !unreadable(options.helperPath).empty()) {
    std::cerr << "tovrin-ai-eval: warning: cannot read the helper text "
              << options.helperPath << "; running without one\n";
    options.helperPath.clear();
  }

  std::vector<EvalResult> results;
  RunStatus status;
  if (options.replay) {
    results = replayCases(input.cases);
  } else {
    std::signal(SIGINT, onInterrupt);
    std::signal(SIGTERM, onInterrupt);
    // Declared before the run, so that it is stopped after it, on every
    // way out.
    std::optional<tovrin::ai::AiModelServer> server;
    RunLimits limits{options.concurrency, requestDeadline(options),
                     options.stopAfter, {}};
    if (!options.serverCommand.empty()) {
      tovrin::ai::AiModelServerOptions serverOptions =
          tovrin::ai::serverOptionsFromCommand(options.serverCommand);
      serverOptions.startDeadline =
          std::chrono::milliseconds(options.serverWaitMs);
      // A server that fails here fails the same way again: say why at once.
      serverOptions.failureLimit = 1;
      server.emplace(std::move(serverOptions));
      options.endpoint = server->endpoint();
      if (std::string why = awaitServer(*server); !why.empty()) {
        return fail(why);
      }
      limits.waitForModel = server->waitForModel();
    }
    ProgressBar bar(stderr, isTerminal(stderr));
    RunRecord record = runCases(
        runtimeConfig(options), input.cases, options.repeat, limits,
        interruptRequested, [&bar](std::size_t done, std::size_t total) {
          bar.update(done, total);
        });
    bar.finish();
    results = std::move(record.results);
    status = record.status;
  }

  const Summary summary = summarize(input.cases, results);
  if (json.wanted()) {
    error = json.write(
        jsonReport(options, input.cases, results, summary, status));
    if (!error.empty()) return fail(error);
  }
  if (html.wanted()) {
    error = html.write(
        htmlReport(options, input.cases, results, summary, status));
    if (!error.empty()) return fail(error);
  }
  // Standard output holds a report meant for a program; people read the
  // table on standard error then.
  const bool reportOnStdout = json.toStandardOutput() || html.toStandardOutput();
  writeTable(reportOnStdout ? std::cerr : std::cout, options, input.cases,
             results, summary, status);
  std::cout.flush();
  return exitStatus(status.end);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(std::vector<std::string>(argv + 1, argv + argc));
  } catch (const std::exception& error) {
    return fail(error.what());
  }
}
