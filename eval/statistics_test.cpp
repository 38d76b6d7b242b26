#include "statistics.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <utility>

#include "report_html.hpp"
#include "testing/files.hpp"

namespace tovrin::ai::eval {
namespace {

TEST(Percentile, NearestRank) {
  const struct {
    const char* name;
    std::vector<double> values;
    unsigned percent;
    double expected;
  } rows[] = {
      {"empty", {}, 50, 0},
      {"single", {7}, 99, 7},
      {"median_of_four_is_the_lower_middle", {4, 1, 3, 2}, 50, 2},
      {"median_of_three_unsorted", {30, 10, 20}, 50, 20},
      {"p100_is_the_largest", {3, 1, 2}, 100, 3},
      {"p1_is_the_smallest", {3, 1, 2}, 1, 1},
  };
  for (const auto& row : rows) EXPECT_EQ(percentile(row.values, row.percent), row.expected) << row.name;
}

EvalCase caseOf(AiRequestKind kind, std::vector<std::string> tags, std::optional<std::string> expected = {}) {
  EvalCase evalCase;
  evalCase.request = {.message = "m", .kind = kind};
  evalCase.tags = std::move(tags);
  evalCase.expected = std::move(expected);
  return evalCase;
}

EvalResult resultOf(std::size_t caseIndex, Outcome outcome, bool ok, std::string answer) {
  EvalResult result;
  result.caseIndex = caseIndex;
  result.outcome = outcome;
  result.response = {.ok = ok, .answer = std::move(answer)};
  return result;
}

TEST(Summarize, ReasonsCountOncePerRunUnderTheirRule) {
  const std::vector<EvalCase> cases{caseOf(AiRequestKind::ShortAnswer, {})};
  std::vector<EvalResult> results(2, resultOf(0, Outcome::kRejected, false, ""));
  results[0].firstReasons = {"missing_tool_value:84", "missing_tool_value:3", "unexpected_number:5"};
  results[0].finalReasons = {"missing_tool_value:3"};
  results[1].firstReasons = {"question_echo", "some_new_rule"};
  results[1].finalReasons = {"question_echo"};

  std::vector<std::tuple<std::string, std::size_t, std::size_t>> counts;
  for (const ReasonCount& reason : summarize(cases, results).reasons) {
    counts.emplace_back(reason.rule, reason.firstAttempt, reason.final);
  }
  EXPECT_EQ(counts, (std::vector<std::tuple<std::string, std::size_t, std::size_t>>{
                        {"empty_answer", 0, 0}, {"answer_too_long", 0, 0}, {"instruction_leak", 0, 0},
                        {"question_echo", 1, 1}, {"broken_czech_or_perspective", 0, 0},
                        {"invalid_moderation_label", 0, 0}, {"invalid_classification_label", 0, 0},
                        {"slash_command_forbidden", 0, 0}, {"invented_command:", 0, 0}, {"missing_tool_value:", 1, 1},
                        {"unexpected_number:", 1, 0}, {"safety_fact_not_enforced", 0, 0}, {"some_new_rule", 1, 0}}));
}

// The model's own answers and what the game receives, on runs whose true
// counts are known: a template label or no answer is no label of the model.
TEST(Summarize, ScoresTheModelAloneAndWhatTheGameReceives) {
  const std::vector<EvalCase> cases{
      caseOf(AiRequestKind::ChatModeration, {}, "WARN"),
      caseOf(AiRequestKind::AntiCheatTriage, {}, "HIGH"),
      caseOf(AiRequestKind::ShortAnswer, {}, "84"),
      caseOf(AiRequestKind::ChatModeration, {}),  // no label: not counted
  };
  const std::vector<EvalResult> results{
      resultOf(0, Outcome::kModel, true, "WARN"),
      resultOf(0, Outcome::kTemplate, true, "OK"),  // let through
      resultOf(0, Outcome::kRejected, false, "WARN"),  // the game got nothing
      resultOf(1, Outcome::kTemplate, true, "WATCH"),
      resultOf(2, Outcome::kModel, true, "84"),
      resultOf(2, Outcome::kTemplate, true, "84"),
      resultOf(2, Outcome::kRejected, false, "84"),
      resultOf(3, Outcome::kModel, true, "OK"),
  };
  const Summary summary = summarize(cases, results);
  using Matrix = std::vector<std::vector<std::size_t>>;
  ASSERT_EQ(summary.labels.size(), 2u);
  const LabelSummary& moderation = summary.labels[0];
  EXPECT_EQ(moderation.kind, AiRequestKind::ChatModeration);
  EXPECT_EQ(moderation.labels, (std::vector<std::string>{"OK", "WARN"}));
  EXPECT_EQ(moderation.lines, 3u);
  EXPECT_EQ(moderation.templateAnswers, 1u);
  // Rows expected OK, WARN; columns given OK, WARN, none.
  EXPECT_EQ(moderation.model.matrix, (Matrix{{0, 0, 0}, {0, 1, 2}}));
  EXPECT_EQ(moderation.game.matrix, (Matrix{{0, 0, 0}, {1, 1, 1}}));
  EXPECT_EQ(moderation.model.correct, 1u);

  const LabelSummary& triage = summary.labels[1];
  EXPECT_EQ(triage.labels, (std::vector<std::string>{"NORMAL", "WATCH", "HIGH"}));
  EXPECT_EQ(triage.model.matrix, (Matrix{{0, 0, 0, 0}, {0, 0, 0, 0}, {0, 0, 0, 1}}));
  EXPECT_EQ(triage.game.matrix, (Matrix{{0, 0, 0, 0}, {0, 0, 0, 0}, {0, 1, 0, 0}}));

  EXPECT_EQ(summary.expectedAnswers.lines, 3u);
  EXPECT_EQ(summary.expectedAnswers.matchedByModel, 1u);
  EXPECT_EQ(summary.expectedAnswers.matchedForGame, 2u);
}

// page against the page a person looked at in a browser
// (eval/testdata/<name>); on a difference the new page is written beside the
// test program to be looked at.
void expectReviewedPage(const std::string& page, const std::string& name) {
  const std::string reviewed = test::readFile(std::filesystem::path(TOVRIN_AI_SOURCE_DIR) / "eval/testdata" / name);
  if (page != reviewed) std::ofstream(name, std::ios::binary) << page;
  EXPECT_EQ(page, reviewed) << name;
}

// The whole page of a small interrupted run, byte for byte.
TEST(HtmlReport, SmallRunGivesTheReviewedPage) {
  std::vector<EvalCase> cases{
      caseOf(AiRequestKind::NpcDialogue, {"hostinec"}, "To ti dát nemůžu."),
      caseOf(AiRequestKind::ChatModeration, {"moderace"}, "WARN"),
      caseOf(AiRequestKind::AntiCheatTriage, {}),
  };
  for (std::size_t i = 0; i < cases.size(); ++i) cases[i].line = i + 1;
  std::vector<EvalResult> results{
      resultOf(0, Outcome::kModel, true, "To ti dát nemůžu."),
      resultOf(1, Outcome::kTemplate, true, "OK"),
      resultOf(2, Outcome::kRejected, false, "MAYBE"),
  };
  results[1].response.error = "AI endpoint returned HTTP/1.1 503 Service Unavailable";
  results[1].errorBody = "{\"error\": \"loading model\"}";
  results[1].timedOut = true;
  results[2].firstReasons = {"invalid_classification_label", "question_echo"};
  results[2].finalReasons = {"invalid_classification_label"};
  results[2].modelAnswer = "MAY\xFF" "BE\x1B[31m";  // shown as U+FFFD twice
  for (std::size_t i = 0; i < results.size(); ++i) {
    results[i].latencyMs = 120.0 * static_cast<double>(i + 1);
    results[i].transportCalls = i + 1;
  }
  EvalOptions options;
  options.input = "samples <1>.jsonl";
  options.model = "Qwen č<1>&";
  options.helperPath.clear();
  const RunStatus interrupted{.planned = 5, .end = RunEnd::kInterrupted};
  expectReviewedPage(htmlReport(options, cases, results, summarize(cases, results), interrupted), "small_report.html");
}

// A replay: no model settings, passed and rejected instead of outcomes, no
// expected answers, and judgements of microseconds.
TEST(HtmlReport, SmallReplayGivesTheReviewedPage) {
  std::vector<EvalCase> cases{caseOf(AiRequestKind::ShortAnswer, {"počty"}),
                              caseOf(AiRequestKind::ChatModeration, {}, "WARN"), caseOf(AiRequestKind::NpcDialogue, {})};
  std::vector<EvalResult> results{resultOf(0, Outcome::kModel, true, "4"), resultOf(1, Outcome::kRejected, false, "warn"),
                                  resultOf(2, Outcome::kModel, true, "Ahoj.")};
  results[1].firstReasons = results[1].finalReasons = {"invalid_moderation_label"};
  for (std::size_t i = 0; i < results.size(); ++i) {
    cases[i].line = i + 1;
    results[i].latencyMs = 0.004 * static_cast<double>(i + 1);
  }
  EvalOptions options;
  options.input = "replay.jsonl";
  options.replay = true;
  expectReviewedPage(htmlReport(options, cases, results, summarize(cases, results)), "small_replay.html");
}

// The latency figures are nearest-rank percentiles of all runs.
TEST(Summarize, LatencyPercentilesOfAllRuns) {
  const std::vector<EvalCase> cases{caseOf(AiRequestKind::ShortAnswer, {})};
  std::vector<EvalResult> results(101, resultOf(0, Outcome::kModel, true, ""));
  for (std::size_t i = 0; i < results.size(); ++i) results[i].latencyMs = static_cast<double>(i + 1);
  const LatencySummary latency = summarize(cases, results).overall.latencyMs;
  EXPECT_EQ(std::vector<double>({latency.p50, latency.p90, latency.p99, latency.max}),
            std::vector<double>({51, 91, 100, 101}));
}

}  // namespace
}  // namespace tovrin::ai::eval
