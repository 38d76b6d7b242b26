// The HTML report written by --html: one self-contained page to look at.
#ifndef TOVRIN_AI_EVAL_REPORT_HTML_HPP_
#define TOVRIN_AI_EVAL_REPORT_HTML_HPP_

#include <string>
#include <vector>

#include "eval_records.hpp"
#include "options.hpp"
#include "statistics.hpp"

namespace tovrin::ai::eval {

// One UTF-8 page with inline CSS and SVG: no script, no external file, no
// network. It holds the summary table, per watchdog rule the bars of first
// and final answers, a latency histogram per kind with the count of each
// bar, the confusion matrices (the model's own and what the game receives)
// as shaded tables, every run the model did not answer with the model's
// last answer and the server's error body, and the settings. A run cut
// short says so at the top. All text from the input, the model, the
// servers and the command line is escaped, and bytes that are not UTF-8
// or are control characters are shown as U+FFFD, so every byte of the page
// is valid UTF-8. On a narrow screen each table scrolls in its own box and
// the page itself does not.
std::string htmlReport(const EvalOptions& options,
                       const std::vector<EvalCase>& cases,
                       const std::vector<EvalResult>& results,
                       const Summary& summary, const RunStatus& status = {});

}  // namespace tovrin::ai::eval

#endif  // TOVRIN_AI_EVAL_REPORT_HTML_HPP_
