// What a server said when it refused a model call with an HTTP status. The
// runtime's error holds the status line only ("AI endpoint returned
// HTTP/1.1 500 Internal Server Error"), and its texts stay as they are; so
// after the run the tool sends such a call once more, byte for byte as the
// runtime sent it, and keeps the start of the body that comes back.
#ifndef TOVRIN_AI_EVAL_ERROR_BODY_PROBE_HPP_
#define TOVRIN_AI_EVAL_ERROR_BODY_PROBE_HPP_

#include <atomic>
#include <chrono>
#include <cstddef>
#include <vector>

#include "eval_records.hpp"

namespace tovrin::ai::eval {

// Calls repeated per run of the tool at most: a server that refuses
// everything is not asked once per line.
inline constexpr std::size_t kMaxProbes = 16;

// Fills errorBody of every result with a refusedPass, repeating the first
// call of that pass once per line (runs of one line share it), for at most
// kMaxProbes lines, all within budget. runtime gives the endpoints, the
// sampling settings and the helper text, as the run used them. Every wait
// ends early once *interrupted is true.
void fetchErrorBodies(const AiRuntime& runtime,
                      const std::vector<EvalCase>& cases,
                      std::vector<EvalResult>& results,
                      std::chrono::milliseconds budget,
                      const std::atomic<bool>& interrupted);

}  // namespace tovrin::ai::eval

#endif  // TOVRIN_AI_EVAL_ERROR_BODY_PROBE_HPP_
