#include "console_output.hpp"

#include <cstdio>

namespace tovrin::ai::app {

namespace {

void writeLine(std::FILE* stream, const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stream);
  std::fputc('\n', stream);
}

const char* boolText(bool value) { return value ? "true" : "false"; }

}  // namespace

std::string statusLine(const AiResponse& response) {
  std::string line = "ok=";
  line += boolText(response.ok);
  line += " model=";
  line += response.model;
  line += " attempts=";
  line += std::to_string(response.attempts);
  line += " fallback=";
  line += boolText(response.fallback);
  line += '\n';
  return line;
}

void writeResponse(const AiResponse& response) {
  const std::string status = statusLine(response);
  std::fwrite(status.data(), 1, status.size(), stdout);
  if (!response.answer.empty()) writeLine(stdout, response.answer);
  std::fflush(stdout);
  if (!response.error.empty()) writeLine(stderr, response.error);
  std::fflush(stderr);
}

}  // namespace tovrin::ai::app
