// Text that came from outside (the input, a model, a server) made safe to
// show: valid UTF-8 for the page and the JSON, no control character for a
// terminal, and a bound on how much of it a report keeps.
#ifndef TOVRIN_AI_EVAL_DISPLAY_TEXT_HPP_
#define TOVRIN_AI_EVAL_DISPLAY_TEXT_HPP_

#include <cstddef>
#include <string>
#include <string_view>

namespace tovrin::ai::eval {

// How much of a message or an answer the reports keep per run, and of a
// server's error body: enough to read, while a huge run's reports stay
// proportional to their number of runs.
inline constexpr std::size_t kKeptTextBytes = 2048;
inline constexpr std::size_t kKeptErrorBodyBytes = 400;

// text with every byte that is not part of a well-formed UTF-8 character
// replaced by U+FFFD, and every control character (C0, DEL, C1) too, but
// tab, line feed and carriage return. With oneLine those three are
// replaced as well, so that the text fits one line of a terminal and can
// move no cursor.
std::string validText(std::string_view text, bool oneLine = false);

// The first maxBytes bytes of text, shortened further to end on a whole
// character, and "…" after them; text itself when it fits.
std::string cutText(std::string_view text, std::size_t maxBytes);

}  // namespace tovrin::ai::eval

#endif  // TOVRIN_AI_EVAL_DISPLAY_TEXT_HPP_
