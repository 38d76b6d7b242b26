// buildTemplateAnswer on any request: the answer is one of its few forms,
// built from the request's own tool results, and the labels of the two
// classification duties never depend on anything else.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.hpp"
#include "tovrin/ai.hpp"

namespace tovrin::ai {
namespace {

constexpr const char* kRefusal = "To ti dát nemůžu.";

void checkTemplate(const AiRequest& request) {
  const std::string answer = buildTemplateAnswer(request);
  if (request.kind == AiRequestKind::ChatModeration) {
    FUZZ_CHECK(answer == kModerationLabels[0]);
    return;
  }
  if (request.kind == AiRequestKind::AntiCheatTriage) {
    FUZZ_CHECK(answer == kTriageLabels[1]);
    return;
  }
  const std::vector<std::string>& results = request.toolResults;
  if (answer.empty()) return;
  if (answer == kRefusal && !request.worldFacts.empty()) return;
  if (results.size() == 1 && answer == results[0]) return;
  FUZZ_CHECK(results.size() >= 2 &&
             answer == "Výsledek je " + results[0] + " a zbývá " + results[1] +
                           ".");
}

}  // namespace
}  // namespace tovrin::ai

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  tovrin::ai::fuzz::writeWatchdogDictionaryIfAsked();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size) {
  using namespace tovrin::ai;
  FuzzedDataProvider input(data, size);
  AiRequest request = fuzz::fuzzedRequest(input, 0);
  request.message = input.ConsumeRemainingBytesAsString();
  checkTemplate(request);
  // As the generation loop sees it: after the tools have added their facts.
  checkTemplate(applyToolFacts(request));
  return 0;
}
