// The command line of tovrin-ai-eval.
#ifndef TOVRIN_AI_EVAL_OPTIONS_HPP_
#define TOVRIN_AI_EVAL_OPTIONS_HPP_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tovrin/ai/records.hpp"

namespace tovrin::ai::eval {

inline constexpr std::size_t kMaxConcurrency = 64;

struct EvalOptions {
  std::string input;  // the JSON Lines file; "-" for standard input
  std::string endpoint = kDefaultEndpoint;
  std::string model = kDefaultModel;
  std::string fallbackEndpoint;
  std::string fallbackModel;
  std::int64_t timeoutMs = 25000;
  float temperature = 0.03f;
  float topP = 0.8f;
  std::string helperPath = kDefaultHelperPath;  // "": none
  std::size_t repeat = 1;
  std::size_t concurrency = 1;
  std::string jsonReport;  // "": no JSON report
  bool replay = false;
  bool help = false;
};

// The usage text printed by --help and after a command-line error.
extern const char* const kUsage;

// Reads the arguments after the program name; "--name value" and
// "--name=value" are both accepted. On a bad command line returns no value
// and sets error to one line saying what is wrong.
std::optional<EvalOptions> parseOptions(const std::vector<std::string>& args,
                                        std::string& error);

}  // namespace tovrin::ai::eval

#endif  // TOVRIN_AI_EVAL_OPTIONS_HPP_
