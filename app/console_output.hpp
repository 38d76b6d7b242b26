// How the console program shows a response.
#ifndef TOVRIN_AI_APP_CONSOLE_OUTPUT_HPP_
#define TOVRIN_AI_APP_CONSOLE_OUTPUT_HPP_

#include <filesystem>
#include <string>
#include <string_view>

#include "tovrin/ai/records.hpp"

namespace tovrin::ai::app {

// "ok=<true|false> model=<model> attempts=<n> fallback=<true|false>\n".
std::string statusLine(const AiResponse& response);

// Writes the status line and, when not empty, the answer line to standard
// output and the error line to standard error, bytes unchanged.
void writeResponse(const AiResponse& response);

// Puts standard output and standard error into byte mode where the platform
// would otherwise translate line ends, so "\n" reaches a reader as one byte.
void prepareConsole();

// The path that the platform's ordinary narrow-to-path conversion makes of
// text: its bytes unchanged on POSIX; on Windows decoded in the code page of
// the file functions (UTF-8, ANSI or OEM). Throws std::system_error when
// text is not valid in that code page.
std::filesystem::path narrowToPath(std::string_view text);

}  // namespace tovrin::ai::app

#endif  // TOVRIN_AI_APP_CONSOLE_OUTPUT_HPP_
