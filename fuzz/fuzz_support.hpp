// Shared by the libFuzzer harnesses: a check that stops the run with a
// message (libFuzzer saves the input that made it fail), the input as
// bytes, requests and configurations built from the input, the reference
// matches of std::regex for the differential checks of the scanners, and
// the watchdog's tables as dictionary entries.
#ifndef TOVRIN_AI_FUZZ_FUZZ_SUPPORT_HPP_
#define TOVRIN_AI_FUZZ_FUZZ_SUPPORT_HPP_

#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <regex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tovrin/ai.hpp"
#include "watchdog/watchdog_tables.hpp"

#define FUZZ_CHECK(condition)                                               \
  ((condition) ? (void)0                                                    \
               : ::tovrin::ai::fuzz::fail(#condition, __FILE__, __LINE__))

namespace tovrin::ai::fuzz {

[[noreturn]] inline void fail(const char* condition, const char* file,
                              int line) {
  std::fprintf(stderr, "%s:%d: check failed: %s\n", file, line, condition);
  std::abort();
}

inline std::string bytes(const std::uint8_t* data, std::size_t size) {
  return std::string(reinterpret_cast<const char*>(data), size);
}

// Inputs up to this length are also run through std::regex; longer ones
// would mostly measure the reference's own slowness.
inline constexpr std::size_t kRegexInputLimit = 64;

// Every match of pattern, searched repeatedly from where the previous one
// ended: what the scanners promise to equal. group 0 is the whole match.
inline std::vector<std::string> regexMatches(const std::string& text,
                                             const std::regex& pattern,
                                             int group = 0) {
  std::vector<std::string> matches;
  for (std::sregex_iterator it(text.begin(), text.end(), pattern), end;
       it != end; ++it) {
    matches.push_back(it->str(group));
  }
  return matches;
}

// Up to three strings of up to 24 bytes each.
inline std::vector<std::string> strings(FuzzedDataProvider& input) {
  std::vector<std::string> list(input.ConsumeIntegralInRange<std::size_t>(0, 3));
  for (std::string& item : list) item = input.ConsumeRandomLengthString(24);
  return list;
}

// A request of any kind, one value past the last included, read from the
// input in one fixed order; the message takes up to messageBytes.
inline AiRequest fuzzedRequest(FuzzedDataProvider& input,
                               std::size_t messageBytes) {
  AiRequest request;
  request.kind =
      static_cast<AiRequestKind>(input.ConsumeIntegralInRange<int>(0, 6));
  request.maxTokens = input.ConsumeIntegral<std::uint16_t>();
  request.message = input.ConsumeRandomLengthString(messageBytes);
  request.persona = input.ConsumeRandomLengthString(24);
  request.worldFacts = strings(input);
  request.allowedCommands = strings(input);
  request.toolResults = strings(input);
  return request;
}

// A runtime configuration with every switch and a fallback read from the
// input; no helper text. The model is never named like the template answer.
inline AiRuntimeConfig fuzzedConfig(FuzzedDataProvider& input) {
  AiRuntimeConfig config;
  config.helperPath.clear();
  config.enabled = input.ConsumeIntegralInRange<int>(0, 7) != 0;
  if (input.ConsumeIntegralInRange<int>(0, 7) == 0) config.endpoint.clear();
  config.model = input.ConsumeRandomLengthString(12);
  if (config.model == kTemplateModelName) config.model = "M";
  config.watchdogEnabled = input.ConsumeBool();
  config.repairEnabled = input.ConsumeBool();
  const int fallback = input.ConsumeIntegralInRange<int>(0, 3);
  if (fallback & 1) config.fallbackEndpoint = "http://fallback:2/v1";
  if (fallback & 2) config.fallbackModel = "F";
  return config;
}

// With TOVRIN_AI_FUZZ_DICTIONARY=<file> set, writes the watchdog's phrases,
// labels and reason codes to that file as libFuzzer dictionary entries and
// ends the process; fuzz/run_all.sh adds them to a harness's own
// dictionary, so that the tables keep their one home. Call it from
// LLVMFuzzerInitialize, which runs before libFuzzer reads its flags.
inline void writeWatchdogDictionaryIfAsked() {
  const char* path = std::getenv("TOVRIN_AI_FUZZ_DICTIONARY");
  if (path == nullptr) return;
  std::FILE* file = std::fopen(path, "wb");
  if (file == nullptr) std::exit(1);
  const auto write = [file](std::span<const std::string_view> entries) {
    for (std::string_view entry : entries) {
      std::fputc('"', file);
      for (const unsigned char c : entry) {
        if (c < 0x20 || c >= 0x7F || c == '"' || c == '\\') {
          std::fprintf(file, "\\x%02X", c);
        } else {
          std::fputc(c, file);
        }
      }
      std::fputs("\"\n", file);
    }
  };
  write(detail::kInstructionLeakPhrases);
  write(detail::kBrokenCzechPhrases);
  write(detail::kProhibitionWords);
  write(detail::kRequestVerbs);
  write(detail::kRefusalWords);
  write(kModerationLabels);
  write(kTriageLabels);
  write(kReasonCodes);
  std::exit(std::fclose(file) == 0 ? 0 : 1);
}

}  // namespace tovrin::ai::fuzz

#endif  // TOVRIN_AI_FUZZ_FUZZ_SUPPORT_HPP_
