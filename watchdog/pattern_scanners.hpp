// Match finders behind extractSlashCommands and extractNumbers, shared with
// the checks so that they can walk a long answer without copying out every
// match first.
#ifndef TOVRIN_AI_WATCHDOG_PATTERN_SCANNERS_HPP_
#define TOVRIN_AI_WATCHDOG_PATTERN_SCANNERS_HPP_

#include <cstddef>
#include <optional>
#include <string_view>

namespace tovrin::ai::detail {

// Byte range [begin, end) of one match inside the scanned text.
struct TextSpan {
  std::size_t begin = 0;
  std::size_t end = 0;
};

// The leftmost slash command starting at or after from, or nothing. The next
// search of an iteration starts at the returned end. Linear in the bytes
// looked at.
std::optional<TextSpan> findSlashCommand(std::string_view text,
                                         std::size_t from);

// The leftmost number starting at or after from, or nothing; same iteration
// rule and cost as findSlashCommand.
std::optional<TextSpan> findNumber(std::string_view text, std::size_t from);

}  // namespace tovrin::ai::detail

#endif  // TOVRIN_AI_WATCHDOG_PATTERN_SCANNERS_HPP_
