#include "server/command_line.hpp"

#include <stdexcept>

#include "tovrin/ai/model_server.hpp"

namespace tovrin::ai {

std::vector<std::string> splitCommandLine(std::string_view line) {
  std::vector<std::string> words;
  std::string word;
  bool inWord = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (c == ' ' || c == '\t') {
      if (inWord) words.push_back(std::move(word));
      word.clear();
      inWord = false;
      continue;
    }
    inWord = true;
    if (c != '\'' && c != '"') {
      word += c;
      continue;
    }
    const std::size_t close = line.find(c, i + 1);
    std::size_t end = i + 1;
    if (c == '\'') {
      if (close == std::string_view::npos) throw std::invalid_argument("unclosed ' in the command line");
      word.append(line.substr(i + 1, close - i - 1));
      i = close;
      continue;
    }
    for (; end < line.size() && line[end] != '"'; ++end) {
      if (line[end] == '\\' && end + 1 < line.size() && (line[end + 1] == '"' || line[end + 1] == '\\')) ++end;
      word += line[end];
    }
    if (end >= line.size()) throw std::invalid_argument("unclosed \" in the command line");
    i = end;
  }
  if (inWord) words.push_back(std::move(word));
  return words;
}

AiModelServerOptions serverOptionsFromCommand(std::string_view line) {
  std::vector<std::string> words = splitCommandLine(line);
  if (words.empty() || words.front().empty()) throw std::invalid_argument("the server command names no program");
  AiModelServerOptions options;
  options.program = std::filesystem::path(std::u8string(words.front().begin(), words.front().end()));
  options.arguments.assign(words.begin() + 1, words.end());
  return options;
}

}  // namespace tovrin::ai

namespace tovrin::ai::detail {

std::vector<std::string> withPort(std::vector<std::string> arguments, std::uint16_t port) {
  const std::string text = std::to_string(port);
  for (std::string& argument : arguments) {
    for (std::size_t at = argument.find(kPortPlaceholder); at != std::string::npos;
         at = argument.find(kPortPlaceholder, at + text.size())) {
      argument.replace(at, kPortPlaceholder.size(), text);
    }
  }
  return arguments;
}

std::string quoteWindowsArgument(std::string_view argument) {
  if (!argument.empty() && argument.find_first_of(" \t\n\v\"") == std::string_view::npos) {
    return std::string(argument);
  }
  std::string quoted = "\"";
  std::size_t backslashes = 0;
  for (const char c : argument) {
    if (c == '\\') {
      ++backslashes;
      continue;
    }
    // Backslashes count only before a quote: then each must be doubled.
    quoted.append(c == '"' ? backslashes * 2 + 1 : backslashes, '\\');
    backslashes = 0;
    quoted += c;
  }
  quoted.append(backslashes * 2, '\\');
  return quoted + "\"";
}

std::string windowsCommandLine(const std::vector<std::string>& words) {
  std::string line;
  for (const std::string& word : words) {
    if (!line.empty()) line += ' ';
    line += quoteWindowsArgument(word);
  }
  return line;
}

}  // namespace tovrin::ai::detail
