// The texts the benchmarks work on: a typical request as the game sends it,
// typical model answers of 50, 300 and 420 bytes, typical and long player
// messages, the helper text at 4 KiB and a server's response.
#ifndef TOVRIN_AI_BENCH_BENCH_INPUTS_HPP_
#define TOVRIN_AI_BENCH_BENCH_INPUTS_HPP_

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "tovrin/ai.hpp"

namespace tovrin::ai::bench {

// The shipped helper text repeated to exactly 4096 bytes. Exits the
// program with a message when the file cannot be read.
const std::string& helperText4KiB();

// A dialogue request: a persona, a price and a prohibition among the facts,
// one allowed command, and a message that asks an arithmetic question and
// for something the facts forbid.
AiRequest typicalRequest();

// The model's answer to typicalRequest that the watchdog accepts, and one it
// rejects (wrong number, no refusal), which sends a pass into its repair.
inline constexpr std::string_view kAcceptedAnswer =
    "Je to 84. Pivo ti zdarma nedám, zkus /trade.";
inline constexpr std::string_view kRejectedAnswer = "Je to 85.";

// How the repair prompt ends; a scripted model tells the attempts apart by
// it.
inline constexpr std::string_view kRepairPromptEnding = "Neopakuj otázku.";

// A model answer with the request it answers, after the tool facts.
struct AnswerCase {
  std::string name;  // its size, "50B"
  AiRequest request;
  std::string answer;
  std::vector<std::string> expectedReasons;  // the verdict it must get
};

// Answers of 50, 300 and 420 bytes with numbers and slash commands.
std::vector<AnswerCase> answerCases();

// A player's message of one kind the tools answer, or none.
struct MessageCase {
  std::string name;
  std::string message;
};

std::vector<MessageCase> typicalMessages();

// A message of exactly bytes bytes: Czech sentences with the arithmetic,
// coin and apple questions and many numbers, repeated.
std::string longMessage(std::size_t bytes);

// A chat-completion response body shaped like a server's, with rawContent
// (JSON string contents) as the assistant's message.
std::string completionBody(std::string_view rawContent);

// A whole HTTP response: status line, headers, the empty line, body.
std::string httpResponse(std::string_view body);

}  // namespace tovrin::ai::bench

#endif  // TOVRIN_AI_BENCH_BENCH_INPUTS_HPP_
