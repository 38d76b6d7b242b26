// The JSON report written by --json: the settings, the summary and every
// run with its response, for scripts and for comparing runs.
#ifndef TOVRIN_AI_EVAL_REPORT_JSON_HPP_
#define TOVRIN_AI_EVAL_REPORT_JSON_HPP_

#include <string>
#include <vector>

#include "eval_records.hpp"
#include "options.hpp"
#include "statistics.hpp"

namespace tovrin::ai::eval {

// The report as indented JSON text, keys in a fixed order:
//   {"mode", "input", "complete", "stopped" and "requestsPlanned" (a model
//    run cut short), "settings" (not in replay mode), "summary": {"overall",
//    "byKind", "byTag", "reasons", "labels", "expectedAnswers"}, "results"}
// Label accuracy and expected answers are scored twice: "modelOwn" (the
// model's accepted answers only) and "gameReceives" (model or template).
// "helper" is null when no helper text was used. Each run's message and
// answers are kept up to kKeptTextBytes (then cut, with "…"); a run the
// model did not answer adds "lastModelAnswer" and "errorBody" where known.
// Bytes that are not UTF-8 become U+FFFD.
std::string jsonReport(const EvalOptions& options,
                       const std::vector<EvalCase>& cases,
                       const std::vector<EvalResult>& results,
                       const Summary& summary, const RunStatus& status = {});

}  // namespace tovrin::ai::eval

#endif  // TOVRIN_AI_EVAL_REPORT_JSON_HPP_
