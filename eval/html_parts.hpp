// The pieces the HTML report is made of: escaped text, table rows, a box a
// wide table scrolls in, and the SVG charts.
#ifndef TOVRIN_AI_EVAL_HTML_PARTS_HPP_
#define TOVRIN_AI_EVAL_HTML_PARTS_HPP_

#include <string>
#include <string_view>
#include <vector>

#include "eval_records.hpp"
#include "statistics.hpp"

namespace tovrin::ai::eval {

// text for an HTML element or attribute: '&', '<', '>', '"' and '\'' as
// references, and bytes that are not UTF-8 or are control characters (tab
// and line ends aside) as U+FFFD.
std::string htmlText(std::string_view text);

// "<tr><th>a</th><td>b</td>...</tr>": the first cell names the row; cells
// are HTML already.
std::string tableRow(const std::vector<std::string>& cells,
                     bool heading = false);

// table inside a box that scrolls sideways on its own, so that a narrow
// screen scrolls the table and not the page.
std::string scrollBox(const std::string& table);

// The rule table: per watchdog rule its counts and two bars, the runs in
// which it fired on the first and on the final model answer.
std::string rulesTable(const Summary& summary);

// One histogram per kind, each bar labelled with its count; bins of equal
// width from 0 to the slowest run of all kinds, so that kinds compare at a
// glance.
std::string latencyHistograms(const std::vector<EvalCase>& cases,
                              const std::vector<EvalResult>& results,
                              const Summary& summary);

}  // namespace tovrin::ai::eval

#endif  // TOVRIN_AI_EVAL_HTML_PARTS_HPP_
