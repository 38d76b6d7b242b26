#include "report_json.hpp"

#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>

#include "display_text.hpp"

namespace tovrin::ai::eval {

namespace {

using Json = nlohmann::ordered_json;

// Microseconds are plenty, and fewer digits keep the report readable.
double milliseconds(double value) { return std::round(value * 1000) / 1000; }

// The float as it was written on the command line (0.03, not
// 0.029999999329447746), since the report is read by people too.
double shortest(float value) {
  char buffer[32];
  const auto [end, error] =
      std::to_chars(buffer, buffer + sizeof buffer, value);
  double result = 0;
  std::from_chars(buffer, end, result);
  return error == std::errc() ? result : static_cast<double>(value);
}

Json group(const GroupSummary& summary) {
  return {
      {"requests", summary.requests},
      {"acceptedModel", summary.model},
      {"acceptedTemplate", summary.templateAnswers},
      {"rejected", summary.rejected},
      {"transportFailures", summary.transportFailures},
      {"transportCalls", summary.transportCalls},
      {"failedTransportCalls", summary.failedTransportCalls},
      {"timedOut", summary.timedOut},
      {"latencyMs",
       {{"p50", milliseconds(summary.latencyMs.p50)},
        {"p90", milliseconds(summary.latencyMs.p90)},
        {"p99", milliseconds(summary.latencyMs.p99)},
        {"max", milliseconds(summary.latencyMs.max)}}},
  };
}

Json labelScore(const LabelSummary& summary, const LabelScore& score) {
  Json matrix = Json::object();
  for (std::size_t row = 0; row < summary.labels.size(); ++row) {
    Json given = Json::object();
    for (std::size_t column = 0; column <= summary.labels.size(); ++column) {
      const std::string name = column < summary.labels.size()
                                   ? summary.labels[column]
                                   : std::string(kNoLabel);
      given[name] = score.matrix[row][column];
    }
    matrix[summary.labels[row]] = std::move(given);
  }
  return {
      {"correct", score.correct},
      {"accuracy", summary.lines == 0 ? 0.0
                                      : static_cast<double>(score.correct) /
                                            static_cast<double>(summary.lines)},
      {"matrix", std::move(matrix)},
  };
}

Json labels(const LabelSummary& summary) {
  return {
      {"lines", summary.lines},
      {"fromTemplate", summary.templateAnswers},
      {"modelOwn", labelScore(summary, summary.model)},
      {"gameReceives", labelScore(summary, summary.game)},
  };
}

Json summaryJson(const Summary& summary) {
  Json byKind = Json::object();
  for (const GroupSummary& kind : summary.byKind)
    byKind[kind.name] = group(kind);
  Json byTag = Json::object();
  for (const GroupSummary& tag : summary.byTag) byTag[tag.name] = group(tag);
  Json reasons = Json::object();
  for (const ReasonCount& reason : summary.reasons) {
    reasons[reason.rule] = {{"firstAttempt", reason.firstAttempt},
                            {"final", reason.final}};
  }
  Json labelJson = Json::object();
  for (const LabelSummary& label : summary.labels) {
    labelJson[kindName(label.kind)] = labels(label);
  }
  return {
      {"overall", group(summary.overall)},
      {"byKind", std::move(byKind)},
      {"byTag", std::move(byTag)},
      {"reasons", std::move(reasons)},
      {"labels", std::move(labelJson)},
      {"expectedAnswers",
       {{"lines", summary.expectedAnswers.lines},
        {"matchedByModel", summary.expectedAnswers.matchedByModel},
        {"matchedForGame", summary.expectedAnswers.matchedForGame}}},
  };
}

Json response(const AiResponse& response) {
  return {
      {"ok", response.ok},
      {"answer", response.answer},
      {"model", response.model},
      {"watchdogPassed", response.watchdogPassed},
      {"watchdogReasons", response.watchdogReasons},
      {"fallback", response.fallback},
      {"attempts", response.attempts},
      {"error", response.error},
  };
}

Json result(const EvalCase& evalCase, const EvalResult& result) {
  Json json = {
      {"line", evalCase.line},
      {"run", result.run},
      {"kind", kindName(evalCase.request.kind)},
      {"tags", evalCase.tags},
      {"message", cutText(evalCase.request.message, kKeptTextBytes)},
  };
  if (evalCase.expected) {
    json["expected"] = cutText(*evalCase.expected, kKeptTextBytes);
  }
  json["outcome"] = outcomeName(result.outcome);
  json["latencyMs"] = milliseconds(result.latencyMs);
  json["transportCalls"] = result.transportCalls;
  json["failedTransportCalls"] = result.failedTransportCalls;
  json["firstAttemptReasons"] = result.firstReasons;
  json["finalReasons"] = result.finalReasons;
  json["timedOut"] = result.timedOut;
  json["response"] = response(result.response);
  if (result.modelAnswer) json["lastModelAnswer"] = *result.modelAnswer;
  if (!result.errorBody.empty()) json["errorBody"] = result.errorBody;
  return json;
}

}  // namespace

std::string jsonReport(const EvalOptions& options,
                       const std::vector<EvalCase>& cases,
                       const std::vector<EvalResult>& results,
                       const Summary& summary, const RunStatus& status) {
  Json report = {
      {"mode", options.replay ? "replay" : "model"},
      {"input", options.input},
      {"complete", status.end == RunEnd::kComplete},
  };
  if (status.end != RunEnd::kComplete) {
    report["stopped"] =
        status.end == RunEnd::kInterrupted ? "interrupted" : "timeouts";
    report["requestsPlanned"] = status.planned;
  }
  if (!options.replay) {
    report["settings"] = {
        {"endpoint", options.endpoint},
        {"model", options.model},
        {"fallbackEndpoint", options.fallbackEndpoint},
        {"fallbackModel", options.fallbackModel},
        {"timeoutMs", options.timeoutMs},
        {"deadlineMs", requestDeadline(options).count()},
        {"stopAfter", options.stopAfter},
        {"temperature", shortest(options.temperature)},
        {"topP", shortest(options.topP)},
        {"helper",
         options.helperPath.empty() ? Json(nullptr) : Json(options.helperPath)},
        {"repeat", options.repeat},
        {"concurrency", options.concurrency},
        {"keptTextBytes", kKeptTextBytes},
    };
  }
  report["summary"] = summaryJson(summary);
  Json runs = Json::array();
  for (const EvalResult& run : results) {
    runs.push_back(result(cases[run.caseIndex], run));
  }
  report["results"] = std::move(runs);
  return report.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace tovrin::ai::eval
