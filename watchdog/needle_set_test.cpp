// The one-pass search over many tool results must give what searching for
// each result on its own gives.
#include <gtest/gtest.h>

#include <cstddef>
#include <random>
#include <string>
#include <vector>

#include "tovrin/ai/text.hpp"
#include "tovrin/ai/watchdog.hpp"

namespace tovrin::ai {
namespace {

// A small alphabet makes needles that overlap, share prefixes and suffixes
// and stand inside one another, which is where failure links go wrong.
std::string randomText(std::mt19937& rng, std::size_t maxLength) {
  static const std::string kAlphabet = "aab1\xC4\x8D";
  std::uniform_int_distribution<std::size_t> length(0, maxLength);
  std::uniform_int_distribution<std::size_t> pick(0, kAlphabet.size() - 1);
  std::string text(length(rng), ' ');
  for (char& c : text) c = kAlphabet[pick(rng)];
  return text;
}

// The reasons the validator gave before the one-pass search: one
// containsText per non-empty tool result, in list order.
std::vector<std::string> reasonsOneByOne(const std::string& answer, const std::vector<std::string>& values) {
  std::vector<std::string> reasons;
  for (const std::string& value : values) {
    if (!value.empty() && !containsText(answer, value)) reasons.push_back("missing_tool_value:" + value);
  }
  return reasons;
}

TEST(CheckToolValues, LongListsGiveTheReasonsOfOneSearchPerResult) {
  std::mt19937 rng(7);
  for (int round = 0; round < 10000; ++round) {
    AiRequest request;
    request.toolResults.resize(rng() % 40);  // both sides of the short list
    for (std::string& value : request.toolResults) value = randomText(rng, 4);
    const std::string answer = randomText(rng, 60);
    WatchdogVerdict verdict;
    checkToolValues(answer, request, verdict);
    ASSERT_EQ(verdict.reasons, reasonsOneByOne(answer, request.toolResults)) << "answer '" << answer << "'";
  }
}

}  // namespace
}  // namespace tovrin::ai
