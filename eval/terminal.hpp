// What the terminal is like: the tool's one platform difference.
#ifndef TOVRIN_AI_EVAL_TERMINAL_HPP_
#define TOVRIN_AI_EVAL_TERMINAL_HPP_

#include <cstddef>
#include <cstdio>

namespace tovrin::ai::eval {

// True when stream writes to a console or terminal, false for a file or a
// pipe (where a progress bar would only fill logs with carriage returns).
bool isTerminal(std::FILE* stream);

// The columns of the terminal stream writes to, as they are now (the user
// may resize the window at any time); 0 when unknown or not a terminal.
std::size_t terminalColumns(std::FILE* stream);

}  // namespace tovrin::ai::eval

#endif  // TOVRIN_AI_EVAL_TERMINAL_HPP_
