#include "options.hpp"

#include <charconv>
#include <cmath>
#include <string_view>
#include <system_error>

namespace tovrin::ai::eval {

const char* const kUsage =
    "usage: tovrin-ai-eval [options] REQUESTS.jsonl\n"
    "\n"
    "Sends every request of the JSON Lines file through the runtime and\n"
    "summarises how the model's answers fared with the watchdog.\n"
    "\n"
    "  --endpoint URL           model server (default\n"
    "                           http://127.0.0.1:17944/v1/chat/completions)\n"
    "  --model NAME             model name (default Qwen2.5-1.5B-Instruct-Q8)\n"
    "  --fallback-endpoint URL  second server, asked when the first fails\n"
    "  --fallback-model NAME    model name for the second server\n"
    "  --timeout MS             per send and per receive (default 25000)\n"
    "  --temperature X          sampling temperature (default 0.03)\n"
    "  --top-p X                nucleus sampling (default 0.8)\n"
    "  --helper FILE            helper text (default\n"
    "                           assets/ai/czech_helper_cs.txt; \"\" for none)\n"
    "  --repeat N               run every request N times (default 1)\n"
    "  --concurrency N          requests at once, 1 to 64 (default 1)\n"
    "  --json FILE              also write the full report as JSON\n"
    "  --replay                 judge the answers stored in the lines with\n"
    "                           the watchdog alone; no model is asked, and\n"
    "                           --repeat and --concurrency do not apply\n"
    "  --help                   this text\n";

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
    {"--temperature", true},
    {"--top-p", true},
    {"--helper", true},
    {"--repeat", true},
    {"--concurrency", true},
    {"--json", true},
    {"--replay", false},
    {"--help", false},
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

// Stores value into the option called name; false when it is malformed.
bool store(EvalOptions& options, std::string_view name,
           const std::string& value) {
  if (name == "--endpoint") options.endpoint = value;
  if (name == "--model") options.model = value;
  if (name == "--fallback-endpoint") options.fallbackEndpoint = value;
  if (name == "--fallback-model") options.fallbackModel = value;
  if (name == "--helper") options.helperPath = value;
  if (name == "--json") options.jsonReport = value;
  if (name == "--timeout") {
    return parseNumber(value, options.timeoutMs) && options.timeoutMs >= 1;
  }
  if (name == "--temperature") {
    return parseFraction(value, options.temperature);
  }
  if (name == "--top-p") {
    return parseFraction(value, options.topP) && options.topP <= 1.0f;
  }
  if (name == "--repeat") {
    return parseNumber(value, options.repeat) && options.repeat >= 1;
  }
  if (name == "--concurrency") {
    return parseNumber(value, options.concurrency) &&
           options.concurrency >= 1 && options.concurrency <= kMaxConcurrency;
  }
  return true;
}

}  // namespace

std::optional<EvalOptions> parseOptions(const std::vector<std::string>& args,
                                        std::string& error) {
  EvalOptions options;
  bool haveInput = false;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (arg.size() < 2 || arg.compare(0, 2, "--") != 0) {
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
      if (name == "--help") options.help = true;
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
    if (!store(options, name, value)) {
      error = "bad value for " + std::string(name) + ": " + value;
      return std::nullopt;
    }
  }
  if (options.help) return options;
  if (!haveInput) {
    error = "no input file";
    return std::nullopt;
  }
  if (options.endpoint.empty()) {
    error = "--endpoint must not be empty";
    return std::nullopt;
  }
  return options;
}

}  // namespace tovrin::ai::eval
