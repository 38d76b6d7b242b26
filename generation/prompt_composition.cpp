#include <string>

#include "tovrin/ai/generation.hpp"

namespace tovrin::ai {

namespace {

// System prompts of the two classification duties; persona and helper text
// play no part in them.
constexpr std::string_view kModerationPrompt =
    "Jsi filtr herního chatu. Vrať přesně jen OK nebo WARN. Nic dalšího.";
constexpr std::string_view kTriagePrompt =
    "Jsi anti-cheat triage. Vrať přesně jen NORMAL, WATCH nebo HIGH. "
    "Neprovádíš trest.";

// Pieces of the general system prompt; each ends in the blank that
// separates it from the next.
constexpr std::string_view kBaseRules =
    "Jsi lokální AI modul hry postavené na Tovrin Engine. Odpovídej stručně a "
    "přirozeně česky. Nevymýšlej příkazy, čísla, odměny, oprávnění ani fakta "
    "herního světa. Dodaná fakta a výsledky nástrojů jsou závazné. ";
constexpr std::string_view kFirstPersonRule =
    "Mluv jako postava v první osobě, ne jako systémový popis NPC. ";
constexpr std::string_view kShortAnswerRule =
    "Maximálně dvě krátké věty. Když si nejsi jistý, řekni to. ";
constexpr std::string_view kPersonaHeading = "ROLE/OSOBNOST POSTAVY: ";
constexpr std::string_view kHelperHeading = "\nČESKÝ POMOCNÍK A PRAVIDLA:\n";

// Headings and endings of the user prompt.
constexpr std::string_view kFactsHeading = "FAKTA HERNÍHO SVĚTA:\n";
constexpr std::string_view kToolResultsHeading =
    "VÝSLEDKY NÁSTROJE/KALKULAČKY, JSOU ZÁVAZNÉ:\n";
constexpr std::string_view kCommandsHeading = "POVOLENÉ HERNÍ PŘÍKAZY:\n";
constexpr std::string_view kQuestionHeading = "DOTAZ HRÁČE:\n";
constexpr std::string_view kListItem = "- ";
constexpr std::string_view kPreviousAnswerHeading =
    "\n\nPŘEDCHOZÍ ODPOVĚĎ:\n";
constexpr std::string_view kRejectedHeading =
    "\nHLÍDACÍ SKRIPT JI ODMÍTL. DŮVODY:";
constexpr std::string_view kRepairInstruction =
    "\nOprav pouze odpověď. Zachovej fakta a čísla. Neopakuj otázku.";
constexpr std::string_view kPlainEnding = "\n\nVrať pouze finální odpověď.";

std::size_t listBytes(const std::vector<std::string>& items) {
  std::size_t total = 0;
  for (const std::string& item : items) total += kListItem.size() + item.size() + 1;
  return total;
}

void appendSection(std::string& prompt, std::string_view heading,
                   const std::vector<std::string>& items) {
  if (items.empty()) return;
  prompt += heading;
  for (const std::string& item : items) {
    prompt += kListItem;
    prompt += item;
    prompt += '\n';
  }
}

std::string buildUserPromptImpl(const AiRequest& request,
                                const std::string& previousAnswer,
                                const WatchdogVerdict* lastVerdict) {
  const bool repair = lastVerdict != nullptr && !previousAnswer.empty();
  std::size_t expected = 256 + request.message.size() +
                         listBytes(request.worldFacts) +
                         listBytes(request.toolResults) +
                         listBytes(request.allowedCommands);
  if (repair) {
    expected += previousAnswer.size();
    for (const std::string& reason : lastVerdict->reasons) {
      expected += reason.size() + 2;
    }
  }

  std::string prompt;
  prompt.reserve(expected);
  appendSection(prompt, kFactsHeading, request.worldFacts);
  appendSection(prompt, kToolResultsHeading, request.toolResults);
  appendSection(prompt, kCommandsHeading, request.allowedCommands);
  prompt += kQuestionHeading;
  prompt += request.message;
  if (repair) {
    prompt += kPreviousAnswerHeading;
    prompt += previousAnswer;
    prompt += kRejectedHeading;
    for (const std::string& reason : lastVerdict->reasons) {
      prompt += ' ';
      prompt += reason;
      prompt += ';';
    }
    prompt += kRepairInstruction;
  } else {
    prompt += kPlainEnding;
  }
  return prompt;
}

}  // namespace

std::string buildSystemPrompt(const AiRuntime& runtime,
                              const AiRequest& request) {
  switch (request.kind) {
    case AiRequestKind::ChatModeration:
      return std::string(kModerationPrompt);
    case AiRequestKind::AntiCheatTriage:
      return std::string(kTriagePrompt);
    default:
      break;
  }

  std::string prompt;
  prompt.reserve(512 + request.persona.size() + runtime.helperText.size());
  prompt += kBaseRules;
  if (request.kind == AiRequestKind::NpcDialogue) prompt += kFirstPersonRule;
  if (request.kind == AiRequestKind::ShortAnswer) prompt += kShortAnswerRule;
  if (!request.persona.empty()) {
    prompt += kPersonaHeading;
    prompt += request.persona;
    prompt += '\n';
  }
  if (!runtime.helperText.empty()) {
    prompt += kHelperHeading;
    prompt += runtime.helperText;
  }
  return prompt;
}

std::string buildUserPrompt(const AiRequest& request,
                            const std::string& previousAnswer,
                            const WatchdogVerdict* lastVerdict) {
  return buildUserPromptImpl(request, previousAnswer, lastVerdict);
}

std::string buildUserPrompt(const AiRequest& request,
                            const std::string& previousAnswer,
                            const std::optional<WatchdogVerdict>& lastVerdict) {
  return buildUserPromptImpl(request, previousAnswer,
                             lastVerdict ? &*lastVerdict : nullptr);
}

}  // namespace tovrin::ai
