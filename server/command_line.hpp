// Argument lists in and out: the tool's command line split into words, the
// port put into the arguments, and the words joined into the one command
// line Windows hands a program. Plain text work, the same on every
// platform, so its rules are tested everywhere.
#ifndef TOVRIN_AI_SERVER_COMMAND_LINE_HPP_
#define TOVRIN_AI_SERVER_COMMAND_LINE_HPP_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tovrin::ai::detail {

inline constexpr std::string_view kPortPlaceholder = "{port}";

// arguments with every "{port}" replaced by port.
std::vector<std::string> withPort(std::vector<std::string> arguments, std::uint16_t port);

// One argument quoted so that CommandLineToArgvW and the C runtime read it
// back unchanged: as it is when it has no space, tab, quote and is not
// empty; otherwise in quotes, with backslashes doubled where they precede
// a quote (inside or the closing one) and each quote escaped.
std::string quoteWindowsArgument(std::string_view argument);

// The words, each quoted, separated by single spaces.
std::string windowsCommandLine(const std::vector<std::string>& words);

}  // namespace tovrin::ai::detail

#endif  // TOVRIN_AI_SERVER_COMMAND_LINE_HPP_
