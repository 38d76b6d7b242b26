#include <exception>
#include <fstream>
#include <iterator>
#include <utility>

#include "tovrin/ai/runtime.hpp"
#include "tovrin/ai/transport.hpp"

namespace tovrin::ai {

AiRuntime::AiRuntime(AiRuntimeConfig config, AiTransport transport)
    : config(std::move(config)), transport(std::move(transport)) {
  if (!this->transport) this->transport = httpChatCompletion;
  loadHelperText();
}

void AiRuntime::loadHelperText() {
  helperText.clear();
  if (config.helperPath.empty()) return;
  // Binary, so carriage returns and a byte-order mark reach the prompt as
  // they stand in the file. A file that cannot be opened means no helper.
  std::ifstream file(config.helperPath, std::ios::in | std::ios::binary);
  if (!file) return;
  // Some systems open a directory and fail only on reading it, and the
  // standard library reports such a failure by throwing.
  try {
    helperText.assign(std::istreambuf_iterator<char>(file),
                      std::istreambuf_iterator<char>());
  } catch (const std::exception&) {
    helperText.clear();
  }
}

}  // namespace tovrin::ai
