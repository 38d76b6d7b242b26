// The readable report: what a designer reads on the console.
#ifndef TOVRIN_AI_EVAL_REPORT_TABLE_HPP_
#define TOVRIN_AI_EVAL_REPORT_TABLE_HPP_

#include <ostream>
#include <vector>

#include "eval_records.hpp"
#include "options.hpp"
#include "statistics.hpp"

namespace tovrin::ai::eval {

// Writes the heading, the outcome table (all runs, each kind, each tag),
// the outcome rates, the watchdog rules that fired, the label accuracy and
// confusion matrices, the expected-answer matches and every run that the
// model did not answer. In replay mode the columns are passed and rejected.
void writeTable(std::ostream& out, const EvalOptions& options,
                const std::vector<EvalCase>& cases,
                const std::vector<EvalResult>& results, const Summary& summary);

}  // namespace tovrin::ai::eval

#endif  // TOVRIN_AI_EVAL_REPORT_TABLE_HPP_
