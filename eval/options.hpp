// The command line of tovrin-ai-eval.
#ifndef TOVRIN_AI_EVAL_OPTIONS_HPP_
#define TOVRIN_AI_EVAL_OPTIONS_HPP_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tovrin/ai/records.hpp"

namespace tovrin::ai::eval {

inline constexpr std::size_t kMaxConcurrency = 64;
// Every run keeps its result in memory; this keeps a typing slip from
// asking for more than that can hold.
inline constexpr std::size_t kMaxRepeat = 1000;
// A request makes at most four model calls (two attempts on each of two
// servers); the default deadline gives each one whole --timeout.
inline constexpr std::int64_t kCallsPerRequest = 4;
inline constexpr std::int64_t kMaxDeadlineMs = 24 * 60 * 60 * 1000;
inline constexpr std::size_t kDefaultStopAfter = 3;
// A real model takes tens of seconds to load.
inline constexpr std::int64_t kDefaultServerWaitMs = 300000;

// The runtime settings start as the library's own defaults.
struct EvalOptions {
  std::string input;  // the JSON Lines file; "-" for standard input
  std::string endpoint = AiRuntimeConfig{}.endpoint;
  std::string model = AiRuntimeConfig{}.model;
  std::string fallbackEndpoint = AiRuntimeConfig{}.fallbackEndpoint;
  std::string fallbackModel = AiRuntimeConfig{}.fallbackModel;
  std::int64_t timeoutMs = AiRuntimeConfig{}.timeoutMs;
  std::int64_t deadlineMs = 0;  // whole request; 0: kCallsPerRequest x timeout
  std::size_t stopAfter = kDefaultStopAfter;  // timed out in a row; 0: never
  float temperature = AiRuntimeConfig{}.temperature;
  float topP = AiRuntimeConfig{}.topP;
  std::string helperPath = AiRuntimeConfig{}.helperPath.string();  // "": none
  std::size_t repeat = 1;
  std::size_t concurrency = 1;
  std::string jsonReport;  // "": no JSON report; "-": standard output
  std::string htmlReport;  // "": no HTML report; "-": standard output
  // Set: the tool starts this model server (a program and its arguments,
  // "{port}" standing for a free loopback port), evaluates against it and
  // stops it; the endpoint is then the server's.
  std::string serverCommand;
  std::int64_t serverWaitMs = kDefaultServerWaitMs;  // start to ready
  bool replay = false;
  bool help = false;
};

// The usage text printed by --help and after a command-line error, with the
// library's default values.
std::string usage();

// The deadline of every request: --deadline, or kCallsPerRequest times
// --timeout, at most kMaxDeadlineMs.
std::chrono::milliseconds requestDeadline(const EvalOptions& options);

// Reads the arguments after the program name; "--name value" and
// "--name=value" are both accepted. Refuses what could never run: an
// endpoint the runtime cannot parse, whose host is not a host name or an
// IPv4 address (the runtime resolves the text between "http://" and the
// port as it stands, so brackets, '@', '?' and blanks never resolve), or
// whose port is not 1 to 65535; a fallback endpoint without a fallback
// model or the other way round; counts out of range. On a bad command line
// returns no value and sets error to one line saying what is wrong.
std::optional<EvalOptions> parseOptions(const std::vector<std::string>& args,
                                        std::string& error);

}  // namespace tovrin::ai::eval

#endif  // TOVRIN_AI_EVAL_OPTIONS_HPP_
