// The records of one evaluation: a request read from the input, and what
// became of it.
#ifndef TOVRIN_AI_EVAL_EVAL_RECORDS_HPP_
#define TOVRIN_AI_EVAL_EVAL_RECORDS_HPP_

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tovrin/ai.hpp"

namespace tovrin::ai::eval {

// One line of the input.
struct EvalCase {
  std::size_t line = 0;                 // 1-based line number in the input
  AiRequest request;                    // as the game would hand it in
  std::optional<std::string> expected;  // expected answer, or label
  std::optional<std::string> answer;    // a recorded answer, for --replay
  std::vector<std::string> tags;        // free grouping names
};

// How one request ended, from the game's point of view.
enum class Outcome {
  kModel,             // a model answer was accepted (or, replayed, passed)
  kTemplate,          // the deterministic template answer stepped in
  kRejected,          // nothing accepted; the watchdog rejected the answers
  kTransportFailure,  // nothing accepted; a model call failed
};

// One run of one case. Texts from the model or a server are kept cut to
// kKeptTextBytes, so that a run's record stays small whatever they sent.
struct EvalResult {
  std::size_t caseIndex = 0;  // into the case list
  std::size_t run = 1;        // 1-based repetition
  AiResponse response;        // answer cut, unless it equals the expected one
  Outcome outcome = Outcome::kModel;
  double latencyMs = 0;
  std::size_t transportCalls = 0;        // model calls begun
  std::size_t failedTransportCalls = 0;  // of them, the ones that threw
  // Verdicts of the first and of the last model answer that came back
  // (empty when none came back or it passed). Unlike response.watchdogReasons
  // they survive a template answer stepping in.
  std::vector<std::string> firstReasons;
  std::vector<std::string> finalReasons;
  // The last answer a model gave, trimmed and cut, when the model's answer
  // was not the one accepted; what the game got may be the template's.
  std::optional<std::string> modelAnswer;
  // Its deadline passed, or a model call waited a whole time-out in vain.
  bool timedOut = false;
  // What the server sent with the last HTTP status that refused a model
  // call (often its reason), cut; empty when no call was refused.
  std::string errorBody;
};

// How a model run ended.
enum class RunEnd {
  kComplete,     // every request ran
  kInterrupted,  // Ctrl-C: the requests in flight were dropped
  kTimeouts,     // stopped once requests kept timing out
};

// What a report says about the run as a whole.
struct RunStatus {
  std::size_t planned = 0;  // lines x repeat; 0 for a replay
  RunEnd end = RunEnd::kComplete;
};

// "NpcDialogue" ... "AntiCheatTriage"; the number as text for other values.
std::string kindName(AiRequestKind kind);

// The kind named name ("ShortAnswer") or numbered ("3"), or none.
std::optional<AiRequestKind> kindFromName(std::string_view name);

// The labels a moderation or triage answer must be; empty for other kinds.
std::span<const std::string_view> labelsOf(AiRequestKind kind);

// "model", "template", "rejected", "transport_failure".
std::string_view outcomeName(Outcome outcome);

}  // namespace tovrin::ai::eval

#endif  // TOVRIN_AI_EVAL_EVAL_RECORDS_HPP_
