// Counts, rates and percentiles over the results of an evaluation.
#ifndef TOVRIN_AI_EVAL_STATISTICS_HPP_
#define TOVRIN_AI_EVAL_STATISTICS_HPP_

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "eval_records.hpp"

namespace tovrin::ai::eval {

// Column of a confusion matrix for a run that gave the game no answer.
inline constexpr std::string_view kNoLabel = "none";

// The nearest-rank percentile: the smallest value such that at least
// percent per cent of values are at or below it (so always one of them).
// 0 when values is empty. percent from 1 to 100.
double percentile(std::vector<double> values, unsigned percent);

struct LatencySummary {
  double p50 = 0;
  double p90 = 0;
  double p99 = 0;
  double max = 0;
};

// Runs of one group (all, one kind, one tag), by outcome.
struct GroupSummary {
  std::string name;
  std::size_t requests = 0;
  std::size_t model = 0;
  std::size_t templateAnswers = 0;
  std::size_t rejected = 0;
  std::size_t transportFailures = 0;
  std::size_t transportCalls = 0;
  std::size_t failedTransportCalls = 0;
  std::size_t timedOut = 0;  // runs whose deadline or a call's time-out passed
  LatencySummary latencyMs;
};

// In how many runs a watchdog rule fired on the first model answer and on
// the last one. Rules with a detail ("missing_tool_value:84") are counted
// under their prefix ("missing_tool_value:"), once per run.
struct ReasonCount {
  std::string rule;
  std::size_t firstAttempt = 0;
  std::size_t final = 0;
};

// Expected against given labels: [expected][given], columns add kNoLabel.
struct LabelScore {
  std::vector<std::vector<std::size_t>> matrix;
  std::size_t correct = 0;
};

// The runs of one labelling kind whose line names an expected label, scored
// twice: the model alone (a template label or no answer counts as kNoLabel)
// and what the game receives (the model's or the template's label).
struct LabelSummary {
  AiRequestKind kind = AiRequestKind::ChatModeration;
  std::vector<std::string> labels;  // the kind's labels
  std::size_t lines = 0;
  std::size_t templateAnswers = 0;  // runs whose label came from the template
  LabelScore model;
  LabelScore game;
};

// Runs of the other kinds whose line has an expected answer, and of those
// the ones whose answer equals it byte for byte: the model's own accepted
// answer, and what the game receives (model or template).
struct AnswerScore {
  std::size_t lines = 0;
  std::size_t matchedByModel = 0;
  std::size_t matchedForGame = 0;
};

struct Summary {
  GroupSummary overall;
  std::vector<GroupSummary> byKind;  // in kind order, kinds present only
  std::vector<GroupSummary> byTag;   // in byte order of the tag names
  std::vector<ReasonCount> reasons;  // every rule in the watchdog's order,
                                     // then rules it does not list
  std::vector<LabelSummary> labels;  // moderation, then triage, when present
  AnswerScore expectedAnswers;
};

// The rule of a reason code: the code itself, or its prefix up to and
// including the colon.
std::string reasonRule(std::string_view code);

// results refer to cases by caseIndex.
Summary summarize(const std::vector<EvalCase>& cases,
                  const std::vector<EvalResult>& results);

}  // namespace tovrin::ai::eval

#endif  // TOVRIN_AI_EVAL_STATISTICS_HPP_
