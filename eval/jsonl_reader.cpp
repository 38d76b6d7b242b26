#include "jsonl_reader.hpp"

#include <algorithm>
#include <unordered_set>

#include <nlohmann/json.hpp>

namespace tovrin::ai::eval {

namespace {

using Json = nlohmann::json;

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// Each reader returns an error text, empty when the field was fine.

std::string readText(const Json& value, std::string_view field,
                     std::string& out) {
  if (!value.is_string()) return std::string(field) + " must be a string";
  out = value.get<std::string>();
  return {};
}

std::string readTextList(const Json& value, std::string_view field,
                         std::vector<std::string>& out) {
  const std::string error = std::string(field) + " must be an array of strings";
  if (!value.is_array()) return error;
  for (const Json& item : value) {
    if (!item.is_string()) return error;
    out.push_back(item.get<std::string>());
  }
  return {};
}

std::string readKind(const Json& value, AiRequestKind& out) {
  std::optional<AiRequestKind> kind;
  if (value.is_string()) {
    kind = kindFromName(value.get<std::string>());
  } else if (value.is_number_unsigned()) {
    kind = kindFromName(std::to_string(value.get<std::uint64_t>()));
  }
  if (!kind) {
    return "kind must be NpcDialogue, CommandHelp, GeneralChat, ShortAnswer, "
           "ChatModeration, AntiCheatTriage or a number from 0 to 5";
  }
  out = *kind;
  return {};
}

std::string readField(const std::string& key, const Json& value,
                      EvalCase& out) {
  AiRequest& request = out.request;
  if (key == "message") return readText(value, key, request.message);
  if (key == "kind") return readKind(value, request.kind);
  if (key == "persona") return readText(value, key, request.persona);
  if (key == "worldFacts") return readTextList(value, key, request.worldFacts);
  if (key == "allowedCommands") {
    return readTextList(value, key, request.allowedCommands);
  }
  if (key == "toolResults") {
    return readTextList(value, key, request.toolResults);
  }
  if (key == "maxTokens") {
    if (!value.is_number_unsigned()) {
      return "maxTokens must be a whole number, 0 or more";
    }
    request.maxTokens = value.get<std::size_t>();
    return {};
  }
  if (key == "expected") return readText(value, key, out.expected.emplace());
  if (key == "answer") return readText(value, key, out.answer.emplace());
  if (key == "tags") {
    // A group counts a line once, however often the line names it.
    std::vector<std::string> tags;
    std::string error = readTextList(value, key, tags);
    std::unordered_set<std::string> seen;
    for (std::string& tag : tags) {
      if (seen.insert(tag).second) out.tags.push_back(std::move(tag));
    }
    return error;
  }
  if (key == "comment") {
    std::string ignored;
    return readText(value, key, ignored);
  }
  return "unknown field \"" + key + "\"";
}

bool isBlank(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
  });
}

}  // namespace

std::optional<EvalCase> parseCaseLine(std::string_view text,
                                      std::size_t lineNumber,
                                      std::string& error) {
  // The parser rejects invalid UTF-8 too: the runtime's texts are UTF-8.
  Json line;
  try {
    line = Json::parse(text);
  } catch (const Json::parse_error& failure) {
    // Keeps "parse error at line 1, column 9: ..." without the library's tag.
    const std::string_view what = failure.what();
    const std::size_t tagEnd = what.find("] ");
    error = std::string(
        tagEnd == std::string_view::npos ? what : what.substr(tagEnd + 2));
    return std::nullopt;
  }
  if (!line.is_object()) {
    error = "not a JSON object";
    return std::nullopt;
  }
  EvalCase result;
  result.line = lineNumber;
  result.request.kind = AiRequestKind::NpcDialogue;
  for (const auto& [key, value] : line.items()) {
    error = readField(key, value, result);
    if (!error.empty()) return std::nullopt;
  }
  if (!line.contains("message")) {
    error = "message is missing";
    return std::nullopt;
  }
  if (result.request.message.empty()) {
    error = "message is empty";
    return std::nullopt;
  }
  const auto labels = labelsOf(result.request.kind);
  if (result.expected && !labels.empty() &&
      std::find(labels.begin(), labels.end(), *result.expected) ==
          labels.end()) {
    error = "expected must be a label of " + kindName(result.request.kind);
    return std::nullopt;
  }
  return result;
}

ReadResult readCases(std::istream& input, const std::string& sourceName) {
  ReadResult result;
  std::string text;
  for (std::size_t lineNumber = 1; std::getline(input, text); ++lineNumber) {
    std::string_view line = text;
    if (lineNumber == 1 && line.starts_with(kByteOrderMark)) {
      line.remove_prefix(kByteOrderMark.size());
    }
    if (isBlank(line)) continue;
    std::string error;
    std::optional<EvalCase> parsed = parseCaseLine(line, lineNumber, error);
    if (parsed) {
      result.cases.push_back(std::move(*parsed));
    } else {
      result.errors.push_back(sourceName + ":" + std::to_string(lineNumber) +
                              ": " + error);
    }
  }
  return result;
}

}  // namespace tovrin::ai::eval
