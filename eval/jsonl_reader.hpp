// Reads the evaluation input: JSON Lines, one request per line.
//
//   {"message": "Kolik stojí chleba?", "kind": "NpcDialogue",
//    "persona": "...", "worldFacts": ["..."], "allowedCommands": ["/trade"],
//    "toolResults": ["..."], "maxTokens": 80, "expected": "...",
//    "answer": "...", "tags": ["obchod"], "comment": "..."}
//
// Only "message" is required; the other fields default to those of a fresh
// AiRequest (kind NpcDialogue, maxTokens 80). "kind" is a name or a number
// from 0 to 5. For ChatModeration and AntiCheatTriage lines "expected" must
// be one of the kind's labels. Blank lines are skipped; a byte-order mark
// and carriage returns at line ends are allowed, for files from Windows
// editors. A tag named twice on a line counts once. Unknown fields are
// errors, so a misspelt field cannot silently drop facts from a request.
#ifndef TOVRIN_AI_EVAL_JSONL_READER_HPP_
#define TOVRIN_AI_EVAL_JSONL_READER_HPP_

#include <cstddef>
#include <istream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "eval_records.hpp"

namespace tovrin::ai::eval {

// Parses one line. On failure returns no value and sets error to a short
// description (without the line number).
std::optional<EvalCase> parseCaseLine(std::string_view text,
                                      std::size_t lineNumber,
                                      std::string& error);

struct ReadResult {
  std::vector<EvalCase> cases;
  std::vector<std::string> errors;  // "<source>:<line>: <what>", in order
};

// Reads every line of input; sourceName prefixes the error texts.
ReadResult readCases(std::istream& input, const std::string& sourceName);

}  // namespace tovrin::ai::eval

#endif  // TOVRIN_AI_EVAL_JSONL_READER_HPP_
