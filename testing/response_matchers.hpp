// Whole-response comparison for tests: one line naming every field, so a
// failure shows all of them side by side.
#ifndef TOVRIN_AI_TESTING_RESPONSE_MATCHERS_HPP_
#define TOVRIN_AI_TESTING_RESPONSE_MATCHERS_HPP_

#include <gtest/gtest.h>

#include <string>

#include "tovrin/ai.hpp"

namespace tovrin::ai::test {

inline std::string describe(const AiResponse& r) {
  std::string reasons;
  for (const std::string& reason : r.watchdogReasons) reasons += reason + ";";
  return "ok=" + std::to_string(r.ok) + " answer=" + r.answer + " model=" + r.model +
         " passed=" + std::to_string(r.watchdogPassed) + " reasons=" + reasons +
         " fallback=" + std::to_string(r.fallback) +
         " attempts=" + std::to_string(r.attempts) + " error=" + r.error;
}

// Write expected with designated initializers: {.ok = true, .answer = ...}.
inline void expectResponse(const AiResponse& actual, const AiResponse& expected,
                           const std::string& context) {
  EXPECT_EQ(describe(actual), describe(expected)) << context;
}

}  // namespace tovrin::ai::test

#endif  // TOVRIN_AI_TESTING_RESPONSE_MATCHERS_HPP_
