#include "options.hpp"

#include <charconv>
#include <cmath>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "display_text.hpp"
#include "endpoint_check.hpp"
#include "figure_text.hpp"
#include "tovrin/ai/model_server.hpp"

namespace tovrin::ai::eval {

namespace {

struct KnownOption {
  std::string_view name;
  bool takesValue;
};

constexpr KnownOption kOptions[] = {
    {"--endpoint", true},
    {"--model", true},
    {"--fallback-endpoint", true},
    {"--fallback-model", true},
    {"--timeout", true},
    {"--deadline", true},
    {"--stop-after", true},
    {"--temperature", true},
    {"--top-p", true},
    {"--helper", true},
    {"--repeat", true},
    {"--concurrency", true},
    {"--json", true},
    {"--html", true},
    {"--server-command", true},
    {"--server-wait", true},
    {"--replay", false},
    {"--help", false},
    {"-h", false},
};

template <typename Number>
bool parseNumber(std::string_view text, Number& value) {
  const auto [end, error] =
      std::from_chars(text.data(), text.data() + text.size(), value);
  return !text.empty() && error == std::errc() &&
         end == text.data() + text.size();
}

// from_chars reads "inf" and "nan" too; neither is a sampling value.
bool parseFraction(std::string_view text, float& value) {
  return parseNumber(text, value) && std::isfinite(value) && value >= 0.0f;
}

bool parseCount(std::string_view text, std::size_t& value, std::size_t max,
                std::size_t min = 1) {
  return parseNumber(text, value) && value >= min && value <= max;
}

// Stores value into the option called name; false when it is malformed.
bool store(EvalOptions& options, std::string_view name,
           const std::string& value) {
  if (name == "--endpoint") options.endpoint = value;
  if (name == "--model") options.model = value;
  if (name == "--fallback-endpoint") options.fallbackEndpoint = value;
  if (name == "--fallback-model") options.fallbackModel = value;
  if (name == "--helper") options.helperPath = value;
  if (name == "--json") options.jsonReport = value;
  if (name == "--html") options.htmlReport = value;
  if (name == "--server-command") options.serverCommand = value;
  if (name == "--server-wait") {
    return parseNumber(value, options.serverWaitMs) &&
           options.serverWaitMs >= 1 && options.serverWaitMs <= kMaxDeadlineMs;
  }
  if (name == "--timeout") {
    return parseNumber(value, options.timeoutMs) && options.timeoutMs >= 1;
  }
  if (name == "--deadline") {
    return parseNumber(value, options.deadlineMs) && options.deadlineMs >= 1 &&
           options.deadlineMs <= kMaxDeadlineMs;
  }
  if (name == "--stop-after") {
    return parseCount(value, options.stopAfter, kMaxRepeat, 0);
  }
  if (name == "--temperature") {
    return parseFraction(value, options.temperature);
  }
  if (name == "--top-p") {
    return parseFraction(value, options.topP) && options.topP <= 1.0f;
  }
  if (name == "--repeat") return parseCount(value, options.repeat, kMaxRepeat);
  if (name == "--concurrency") {
    return parseCount(value, options.concurrency, kMaxConcurrency);
  }
  return true;
}

std::string rangeOf(std::string_view name) {
  if (name == "--deadline" || name == "--server-wait") {
    return " (1 to " + std::to_string(kMaxDeadlineMs) + ")";
  }
  if (name == "--stop-after") {
    return " (0 to " + std::to_string(kMaxRepeat) + ")";
  }
  if (name == "--repeat") return " (1 to " + std::to_string(kMaxRepeat) + ")";
  if (name == "--concurrency") {
    return " (1 to " + std::to_string(kMaxConcurrency) + ")";
  }
  return "";
}

}  // namespace

std::chrono::milliseconds requestDeadline(const EvalOptions& options) {
  if (options.deadlineMs > 0) {
    return std::chrono::milliseconds(options.deadlineMs);
  }
  const std::int64_t whole =
      options.timeoutMs > kMaxDeadlineMs / kCallsPerRequest
          ? kMaxDeadlineMs
          : options.timeoutMs * kCallsPerRequest;
  return std::chrono::milliseconds(whole);
}

std::string usage() {
  const AiRuntimeConfig defaults;
  return "usage: tovrin-ai-eval [options] REQUESTS.jsonl\n"
         "\n"
         "Sends every request of the JSON Lines file through the runtime and\n"
         "summarises how the model's answers fared with the watchdog.\n"
         "\n"
         "  --endpoint URL           model server (default\n"
         "                           " +
         defaults.endpoint +
         ")\n"
         "  --model NAME             model name (default " +
         defaults.model +
         ")\n"
         "  --fallback-endpoint URL  second server, asked when the first "
         "fails\n"
         "  --fallback-model NAME    model name for the second server\n"
         "  --timeout MS             per send and per receive (default " +
         std::to_string(defaults.timeoutMs) +
         ")\n"
         "  --deadline MS            per request, all its calls together "
         "(default\n"
         "                           " +
         std::to_string(kCallsPerRequest) + " x --timeout: " +
         std::to_string(requestDeadline(EvalOptions{}).count()) +
         "; at most " + std::to_string(kMaxDeadlineMs) +
         ")\n"
         "  --stop-after N           stop the run once N requests in a row "
         "timed\n"
         "                           out (default " +
         std::to_string(kDefaultStopAfter) +
         "; 0: never)\n"
         "  --temperature X          sampling temperature (default " +
         shortestText(defaults.temperature) +
         ")\n"
         "  --top-p X                nucleus sampling (default " +
         shortestText(defaults.topP) +
         ")\n"
         "  --helper FILE            helper text (default\n"
         "                           " +
         defaults.helperPath.string() +
         "; \"\" for none)\n"
         "  --repeat N               run every request N times, 1 to " +
         std::to_string(kMaxRepeat) +
         " (default 1)\n"
         "  --concurrency N          requests at once, 1 to " +
         std::to_string(kMaxConcurrency) +
         " (default 1)\n"
         "  --json FILE              also write the full report as JSON; "
         "it keeps\n"
         "                           messages and answers up to " +
         std::to_string(kKeptTextBytes) +
         " bytes\n"
         "  --html FILE              also write the report as one HTML page\n"
         "                           (FILE \"-\": standard output; the table\n"
         "                           then goes to standard error)\n"
         "  --server-command CMD     start this model server, evaluate against "
         "it\n"
         "                           and stop it; \"{port}\" in CMD becomes a "
         "free\n"
         "                           port, e.g. \"llama-server -m model.gguf "
         "--host\n"
         "                           127.0.0.1 --port {port}\"\n"
         "  --server-wait MS         how long it may take to load (default " +
         std::to_string(kDefaultServerWaitMs) +
         ")\n"
         "  --replay                 judge the answers stored in the lines "
         "with\n"
         "                           the watchdog alone; no model is asked, "
         "and\n"
         "                           --repeat and --concurrency do not apply\n"
         "  -h, --help               this text\n"
         "\n"
         "Ctrl-C ends the run at once; the reports then hold the requests "
         "that\n"
         "finished, marked as partial. A report file is replaced only once "
         "the\n"
         "new one is complete. Exit status: 0 every request ran, 1 the run\n"
         "stopped on time-outs, 2 bad command line or input (or a model server\n"
         "that did not start), 130 interrupted.\n";
}

std::optional<EvalOptions> parseOptions(const std::vector<std::string>& args,
                                        std::string& error) {
  EvalOptions options;
  bool haveInput = false;
  bool endpointGiven = false;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    // "-" alone is standard input, anything else starting with '-' an option.
    if (arg.size() < 2 || arg[0] != '-') {
      if (haveInput) {
        error = "only one input file: " + arg;
        return std::nullopt;
      }
      options.input = arg;
      haveInput = true;
      continue;
    }
    const std::size_t equals = arg.find('=');
    const std::string_view name = std::string_view(arg).substr(0, equals);
    const KnownOption* known = nullptr;
    for (const KnownOption& candidate : kOptions) {
      if (candidate.name == name) known = &candidate;
    }
    if (known == nullptr) {
      error = "unknown option: " + std::string(name);
      return std::nullopt;
    }
    if (!known->takesValue) {
      if (equals != std::string::npos) {
        error = std::string(name) + " takes no value";
        return std::nullopt;
      }
      if (name == "--replay") options.replay = true;
      if (name == "--help" || name == "-h") options.help = true;
      continue;
    }
    std::string value;
    if (equals != std::string::npos) {
      value = arg.substr(equals + 1);
    } else if (i + 1 < args.size()) {
      value = args[++i];
    } else {
      error = std::string(name) + " needs a value";
      return std::nullopt;
    }
    if (name == "--endpoint") endpointGiven = true;
    if (!store(options, name, value)) {
      error =
          "bad value for " + std::string(name) + ": " + value + rangeOf(name);
      return std::nullopt;
    }
  }
  if (options.help) return options;
  if (!haveInput) {
    error = "no input file";
    return std::nullopt;
  }
  if (options.jsonReport == "-" && options.htmlReport == "-") {
    error = "only one of --json and --html can go to standard output";
    return std::nullopt;
  }
  if (!options.serverCommand.empty()) {
    if (options.replay) {
      error = "--replay asks no model: --server-command does not apply";
      return std::nullopt;
    }
    if (endpointGiven) {
      error = "--server-command chooses the endpoint: leave out --endpoint";
      return std::nullopt;
    }
    try {
      serverOptionsFromCommand(options.serverCommand);
    } catch (const std::invalid_argument& fault) {
      error = "bad value for --server-command: " + std::string(fault.what());
      return std::nullopt;
    }
    // Checked below as any endpoint; the port is chosen when it starts.
    options.endpoint = "http://127.0.0.1:1/v1/chat/completions";
  }
  if (options.replay) return options;
  if (options.fallbackEndpoint.empty() != options.fallbackModel.empty()) {
    error = "--fallback-endpoint and --fallback-model go together";
    return std::nullopt;
  }
  std::string fault = endpointFault(options.endpoint);
  if (!fault.empty()) {
    error = "bad value for --endpoint: " + options.endpoint + ": " + fault;
    return std::nullopt;
  }
  if (!options.fallbackEndpoint.empty()) {
    fault = endpointFault(options.fallbackEndpoint);
    if (!fault.empty()) {
      error = "bad value for --fallback-endpoint: " + options.fallbackEndpoint +
              ": " + fault;
      return std::nullopt;
    }
  }
  return options;
}

}  // namespace tovrin::ai::eval
