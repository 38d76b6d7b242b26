// The watchdog's checks written the obvious way, with std::regex: the
// baseline the library's own scanners are measured against. It gives the
// same verdicts as validateAnswer on the benchmark inputs (each benchmark
// checks that before it runs); it is not meant for untrusted text, since
// std::regex recurses per character and overflows the stack on long runs.
#ifndef TOVRIN_AI_BENCH_REGEX_VALIDATOR_HPP_
#define TOVRIN_AI_BENCH_REGEX_VALIDATOR_HPP_

#include <regex>
#include <string>

#include "tovrin/ai.hpp"

namespace tovrin::ai::bench {

// Every pattern the checks use: the phrase tables as alternations, the
// slash-command and number patterns as the library's headers state them.
struct WatchdogPatterns {
  std::regex instructionLeak;
  std::regex brokenCzech;
  std::regex prohibitionWords;
  std::regex requestVerbs;
  std::regex refusalWords;
  std::regex slashCommand;
  std::regex number;
};

// Compiles the patterns; a benchmark does this once or on every call.
WatchdogPatterns compileWatchdogPatterns();

// validateAnswer with every text search done by patterns.
WatchdogVerdict validateAnswerWithRegex(const std::string& answer,
                                        const AiRequest& request,
                                        const WatchdogPatterns& patterns);

}  // namespace tovrin::ai::bench

#endif  // TOVRIN_AI_BENCH_REGEX_VALIDATOR_HPP_
