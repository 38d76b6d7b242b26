// The readable report: what a designer reads on the console.
#ifndef TOVRIN_AI_EVAL_REPORT_TABLE_HPP_
#define TOVRIN_AI_EVAL_REPORT_TABLE_HPP_

#include <ostream>
#include <vector>

#include "eval_records.hpp"
#include "options.hpp"
#include "statistics.hpp"

namespace tovrin::ai::eval {

// Writes the heading (saying so when the run was cut short), the outcome
// table (all runs, each kind, each tag), the outcome rates, the watchdog
// rules that fired, the label accuracy and confusion matrices, the
// expected-answer matches and every run that the model did not answer, with
// the model's last answer and the server's error body, shortened. In replay
// mode the columns are passed and rejected. Text from the input, the model,
// the servers and the command line is written with every control character
// and every byte that is not UTF-8 as U+FFFD, so that nothing received can
// move the cursor or change the terminal.
void writeTable(std::ostream& out, const EvalOptions& options,
                const std::vector<EvalCase>& cases,
                const std::vector<EvalResult>& results, const Summary& summary,
                const RunStatus& status = {});

}  // namespace tovrin::ai::eval

#endif  // TOVRIN_AI_EVAL_REPORT_TABLE_HPP_
