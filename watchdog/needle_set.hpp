// Which of many needles occur in one text, found in a single pass over the
// text, so that checking an answer against thousands of tool results costs
// the answer plus the results, not their product.
#ifndef TOVRIN_AI_WATCHDOG_NEEDLE_SET_HPP_
#define TOVRIN_AI_WATCHDOG_NEEDLE_SET_HPP_

#include <string>
#include <string_view>
#include <vector>

namespace tovrin::ai::detail {

// found[i] is true exactly when needles[i] is a byte substring of text (an
// empty needle always is). Same answers as containsText per needle. Time
// linear in the text plus the needles' bytes; memory linear in the needles.
std::vector<bool> findNeedles(std::string_view text,
                              const std::vector<std::string>& needles);

}  // namespace tovrin::ai::detail

#endif  // TOVRIN_AI_WATCHDOG_NEEDLE_SET_HPP_
