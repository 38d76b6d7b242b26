// The records that cross the runtime's boundary.
//
// Everything here is a plain value: copyable, movable, no pointers into
// other records. Text is UTF-8 held in byte strings; every length and limit
// in the runtime counts bytes, not characters.
#ifndef TOVRIN_AI_RECORDS_HPP_
#define TOVRIN_AI_RECORDS_HPP_

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace tovrin::ai {

// What a request is for. Stored in 32 bits; values outside the enumeration
// are accepted and get the behaviour common to all kinds.
enum class AiRequestKind : std::uint32_t {
  NpcDialogue = 0,      // a character answers in the first person
  CommandHelp = 1,      // help with game commands; only allowed commands
  GeneralChat = 2,      // no rules of its own beyond the common ones
  ShortAnswer = 3,      // at most two short sentences, no slash commands
  ChatModeration = 4,   // answer is the label OK or WARN
  AntiCheatTriage = 5,  // answer is the label NORMAL, WATCH or HIGH
};

// Standard values, as the console program uses them.
inline constexpr const char* kDefaultEndpoint =
    "http://127.0.0.1:17944/v1/chat/completions";
inline constexpr const char* kDefaultModel = "Qwen2.5-1.5B-Instruct-Q8";
inline constexpr const char* kDefaultHelperPath =
    "assets/ai/czech_helper_cs.txt";

// How a runtime is built. The defaults are the standard configuration: a
// model server on the loopback interface, port 17944.
struct AiRuntimeConfig {
  bool enabled = true;                   // false refuses every request
  std::string endpoint = kDefaultEndpoint;  // first pass; "http://host[:port][/path]"
  std::string model = kDefaultModel;     // sent with the first pass
  std::filesystem::path helperPath = kDefaultHelperPath;  // empty: no helper text
  std::int64_t timeoutMs = 25000;        // per send and per receive; below 1 acts as 1
  float temperature = 0.03f;             // "temperature" of the request body
  float topP = 0.8f;                     // "top_p" of the request body
  bool watchdogEnabled = true;           // judge model answers
  bool repairEnabled = true;             // allow a second, repair attempt
  std::string fallbackEndpoint;          // second pass, only with fallbackModel
  std::string fallbackModel;             // second pass, only with fallbackEndpoint
};

// One request as the game hands it in.
struct AiRequest {
  std::string message;                       // the player's text; must not be empty
  std::vector<std::string> worldFacts;       // facts the answer must respect
  std::vector<std::string> allowedCommands;  // slash commands the answer may use
  std::vector<std::string> toolResults;      // exact values the answer must state
  std::string persona;                       // role of the speaking character
  AiRequestKind kind = AiRequestKind::NpcDialogue;
  std::size_t maxTokens = 80;                // "max_tokens" of the request body
};

// The outcome of one request. A default-constructed response is the fresh
// state from which every request and every pass starts.
struct AiResponse {
  bool ok = false;                           // an answer was produced and accepted
  std::string answer;                        // accepted answer, or last rejected one
  std::string model;                         // pass model, or "watchdog-template"
  bool watchdogPassed = true;                // verdict of the last check made
  std::vector<std::string> watchdogReasons;  // reason codes of that check
  bool fallback = false;                     // second pass or template answer
  std::size_t attempts = 0;                  // model attempts begun in the pass
  std::string error;                         // failure text; may be set while ok
};

// The completion function: returns the assistant's message text as received
// and reports every failure by throwing an exception derived from
// std::exception, whose what() becomes AiResponse::error. It must take the
// endpoint and model from its arguments, never from the configuration, and
// timeoutMs, temperature and topP from the configuration.
using AiTransport = std::function<std::string(
    const AiRuntimeConfig& config, const std::string& endpoint,
    const std::string& model, const std::string& systemPrompt,
    const std::string& userPrompt, std::size_t maxTokens)>;

}  // namespace tovrin::ai

#endif  // TOVRIN_AI_RECORDS_HPP_
