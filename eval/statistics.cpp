#include "statistics.hpp"

#include <algorithm>
#include <map>

#include "tovrin/ai/watchdog.hpp"

namespace tovrin::ai::eval {

namespace {

// Collects one group's runs; the latencies are kept for the percentiles.
struct GroupBuilder {
  GroupSummary summary;
  std::vector<double> latencies;

  void add(const EvalResult& result) {
    ++summary.requests;
    switch (result.outcome) {
      case Outcome::kModel:
        ++summary.model;
        break;
      case Outcome::kTemplate:
        ++summary.templateAnswers;
        break;
      case Outcome::kRejected:
        ++summary.rejected;
        break;
      case Outcome::kTransportFailure:
        ++summary.transportFailures;
        break;
    }
    summary.transportCalls += result.transportCalls;
    summary.failedTransportCalls += result.failedTransportCalls;
    if (result.timedOut) ++summary.timedOut;
    latencies.push_back(result.latencyMs);
  }

  GroupSummary finish(std::string name) {
    summary.name = std::move(name);
    summary.latencyMs.p50 = percentile(latencies, 50);
    summary.latencyMs.p90 = percentile(latencies, 90);
    summary.latencyMs.p99 = percentile(latencies, 99);
    summary.latencyMs.max = percentile(latencies, 100);
    return summary;
  }
};

ReasonCount& reasonEntry(std::vector<ReasonCount>& reasons,
                         const std::string& rule) {
  for (ReasonCount& entry : reasons) {
    if (entry.rule == rule) return entry;
  }
  reasons.push_back({rule, 0, 0});
  return reasons.back();
}

// Adds one to the count of every rule named in codes, once per rule.
void countRules(std::vector<ReasonCount>& reasons,
                const std::vector<std::string>& codes,
                std::size_t ReasonCount::*counter) {
  std::vector<std::string> seen;
  for (const std::string& code : codes) {
    std::string rule = reasonRule(code);
    if (std::find(seen.begin(), seen.end(), rule) != seen.end()) continue;
    ++(reasonEntry(reasons, rule).*counter);
    seen.push_back(std::move(rule));
  }
}

std::size_t indexOf(const std::vector<std::string>& labels,
                    const std::string& label) {
  return static_cast<std::size_t>(
      std::find(labels.begin(), labels.end(), label) - labels.begin());
}

void score(LabelScore& score, std::size_t row, std::size_t column) {
  ++score.matrix[row][column];
  if (column == row) ++score.correct;
}

void countLabel(std::vector<LabelSummary>& summaries, AiRequestKind kind,
                const std::string& expected, const EvalResult& result) {
  LabelSummary& summary =
      *std::find_if(summaries.begin(), summaries.end(),
                    [kind](const LabelSummary& s) { return s.kind == kind; });
  const std::size_t row = indexOf(summary.labels, expected);
  const std::size_t none = summary.labels.size();
  const std::size_t given =
      result.response.ok ? indexOf(summary.labels, result.response.answer)
                         : none;
  ++summary.lines;
  if (result.outcome == Outcome::kTemplate) ++summary.templateAnswers;
  score(summary.model, row, result.outcome == Outcome::kModel ? given : none);
  score(summary.game, row, given);
}

}  // namespace

double percentile(std::vector<double> values, unsigned percent) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  // Integer arithmetic: 0.9 * 10 must be exactly rank 9.
  const std::size_t rank = (percent * values.size() + 99) / 100;
  return values[std::max<std::size_t>(rank, 1) - 1];
}

std::string reasonRule(std::string_view code) {
  const std::size_t colon = code.find(':');
  return std::string(
      colon == std::string_view::npos ? code : code.substr(0, colon + 1));
}

Summary summarize(const std::vector<EvalCase>& cases,
                  const std::vector<EvalResult>& results) {
  Summary summary;
  GroupBuilder overall;
  std::map<std::uint32_t, GroupBuilder> byKind;
  std::map<std::string, GroupBuilder> byTag;
  for (std::string_view rule : kReasonCodes) {
    summary.reasons.push_back({std::string(rule), 0, 0});
  }
  for (AiRequestKind kind :
       {AiRequestKind::ChatModeration, AiRequestKind::AntiCheatTriage}) {
    LabelSummary labels;
    labels.kind = kind;
    for (std::string_view label : labelsOf(kind)) {
      labels.labels.emplace_back(label);
    }
    labels.model.matrix.assign(
        labels.labels.size(),
        std::vector<std::size_t>(labels.labels.size() + 1));
    labels.game = labels.model;
    summary.labels.push_back(std::move(labels));
  }

  for (const EvalResult& result : results) {
    const EvalCase& evalCase = cases[result.caseIndex];
    const AiRequestKind kind = evalCase.request.kind;
    overall.add(result);
    byKind[static_cast<std::uint32_t>(kind)].add(result);
    for (const std::string& tag : evalCase.tags) byTag[tag].add(result);
    countRules(summary.reasons, result.firstReasons,
               &ReasonCount::firstAttempt);
    countRules(summary.reasons, result.finalReasons, &ReasonCount::final);

    if (!evalCase.expected) continue;
    if (!labelsOf(kind).empty()) {
      countLabel(summary.labels, kind, *evalCase.expected, result);
      continue;
    }
    AnswerScore& answers = summary.expectedAnswers;
    ++answers.lines;
    if (result.response.ok && result.response.answer == *evalCase.expected) {
      ++answers.matchedForGame;
      if (result.outcome == Outcome::kModel) ++answers.matchedByModel;
    }
  }

  summary.overall = overall.finish("all");
  for (auto& [kind, group] : byKind) {
    summary.byKind.push_back(
        group.finish(kindName(static_cast<AiRequestKind>(kind))));
  }
  for (auto& [tag, group] : byTag) summary.byTag.push_back(group.finish(tag));
  std::erase_if(summary.labels,
                [](const LabelSummary& s) { return s.lines == 0; });
  return summary;
}

}  // namespace tovrin::ai::eval
