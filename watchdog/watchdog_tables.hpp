// The watchdog's phrase tables, limits and reason codes: their one home.
// The validator and the template answer read them, and so do the
// benchmark's std::regex validator and the fuzzers, so that a designer's
// change is one line here. Phrases are UTF-8, compared byte for byte with
// ASCII-folded text; accented and plain spellings stand separately because
// nothing folds diacritics.
#ifndef TOVRIN_AI_WATCHDOG_WATCHDOG_TABLES_HPP_
#define TOVRIN_AI_WATCHDOG_WATCHDOG_TABLES_HPP_

#include <cstddef>
#include <span>
#include <string_view>

#include "tovrin/ai/watchdog.hpp"

namespace tovrin::ai::detail {

// Prompt headings and rule wording that must not come back to the player.
inline constexpr std::string_view kInstructionLeakPhrases[] = {
    "dotaz hráče",
    "dotaz hrace",
    "pravidla češtiny",
    "pravidla cestiny",
    "fakta herního světa",
    "fakta herniho sveta",
};

// Mistakes a small model makes in Czech grammar or in who is speaking.
inline constexpr std::string_view kBrokenCzechPhrases[] = {
    "jsem to pamatuje",
    "ty mě pomohla",
    "ty mi pomohla",
    "můžeš mě nabídnout",
    "muzes me nabidnout",
    "pomohl jsem ti",
    "pomohla jsem ti",
};

// A fact holding one of these states a prohibition.
inline constexpr std::string_view kProhibitionWords[] = {
    "nesmí",
    "nesmi",
};

// A message holding one of these asks for something to be given or changed.
// The template answer refuses only the first kRefusedRequestVerbs of them;
// a change ("změň", "zmen") is left to the watchdog.
inline constexpr std::string_view kRequestVerbs[] = {
    "dej",
    "přidej",
    "pridej",
    "ignoruj",
    "změň",
    "zmen",
};
inline constexpr std::size_t kRefusedRequestVerbs = 4;

// An answer holding one of these refuses.
inline constexpr std::string_view kRefusalWords[] = {
    "nemůžu",
    "nemohu",
    "nesmím",
    "nedám",
    "nelze",
    "nemuzes",
    "nemůžeš",
};

inline constexpr std::size_t kMaxAnswerBytes = 300;
inline constexpr std::size_t kMaxShortAnswerBytes = 420;
// Shorter questions are common words that a fair answer may repeat.
inline constexpr std::size_t kMinEchoBytes = 13;

// The checks in the order they run; each names its entry of kReasonCodes.
enum class Rule : std::size_t {
  kEmptyAnswer,
  kAnswerTooLong,
  kInstructionLeak,
  kQuestionEcho,
  kBrokenCzechOrPerspective,
  kInvalidModerationLabel,
  kInvalidClassificationLabel,
  kSlashCommandForbidden,
  kInventedCommand,
  kMissingToolValue,
  kUnexpectedNumber,
  kSafetyFactNotEnforced,
  kCount,
};
static_assert(std::size(kReasonCodes) ==
              static_cast<std::size_t>(Rule::kCount));

constexpr std::string_view reasonCode(Rule rule) {
  return kReasonCodes[static_cast<std::size_t>(rule)];
}

}  // namespace tovrin::ai::detail

#endif  // TOVRIN_AI_WATCHDOG_WATCHDOG_TABLES_HPP_
