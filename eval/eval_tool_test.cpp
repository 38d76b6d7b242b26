// The real tovrin-ai-eval binary against scripted model servers: the JSON
// report field by field, the README's example run, and --replay against
// validateAnswer.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <random>
#include <string>
#include <vector>

#include "jsonl_reader.hpp"
#include "testing/loopback_server.hpp"
#include "testing/process_runner.hpp"

namespace tovrin::ai::eval {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

std::string readFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file),
                     std::istreambuf_iterator<char>());
}

// A working directory of its own for one test.
class EvalRun {
 public:
  EvalRun() {
    // Unique per run: other checkouts may run the same test at once.
    dir_ = fs::temp_directory_path() /
           ("tovrin_ai_eval_" +
            std::string(::testing::UnitTest::GetInstance()
                            ->current_test_info()
                            ->name()) +
            "_" + std::to_string(std::random_device{}()));
    fs::remove_all(dir_);
    fs::create_directories(dir_);
  }
  ~EvalRun() { fs::remove_all(dir_); }

  const fs::path& dir() const { return dir_; }
  void write(const std::string& name, const std::string& text) const {
    std::ofstream(dir_ / name, std::ios::binary) << text;
  }
  test::ProcessResult run(const std::vector<std::string>& args) const {
    return test::runProcess(TOVRIN_AI_EVAL_PATH, args, dir_);
  }
  Json report(const std::string& name) const {
    return Json::parse(readFile(dir_ / name));
  }

 private:
  fs::path dir_;
};

// Latencies vary from run to run (their percentiles have tests of their
// own); they are set to 0 so that the rest compares with literal values.
void clearLatencies(Json& report) {
  for (Json& result : report["results"]) result["latencyMs"] = 0;
  const Json zero = {{"p50", 0}, {"p90", 0}, {"p99", 0}, {"max", 0}};
  report["summary"]["overall"]["latencyMs"] = zero;
  for (const char* groups : {"byKind", "byTag"}) {
    for (auto& [name, group] : report["summary"][groups].items()) {
      group["latencyMs"] = zero;
    }
  }
}

void expectSameJson(const Json& actual, const Json& expected) {
  const Json difference = Json::diff(actual, expected);
  EXPECT_TRUE(difference.empty())
      << "to make the report the expected one: " << difference.dump(1);
}

const char* const kSevenCases =
    R"({"message": "Kolik stojí pivo?", "persona": "Hostinský Karel.", "worldFacts": ["Pivo stojí 4 mince."], "tags": ["hostinec"]}
{"message": "Kolik je 12*(3+4)?", "kind": "ShortAnswer", "expected": "84", "tags": ["počty"]}
{"message": "gg, dobrá hra", "kind": "ChatModeration", "expected": "OK", "tags": ["moderace"]}

{"message": "prodám zlato za eura", "kind": 4, "expected": "WARN", "tags": ["moderace"]}
{"message": "Jak otevřu mapu?", "kind": "CommandHelp", "allowedCommands": ["/mapa"], "tags": ["příkazy"]}
{"message": "Hráč má 40 zabití za minutu.", "kind": "AntiCheatTriage", "expected": "HIGH"}
{"message": "Ahoj!", "kind": "GeneralChat", "tags": ["hostinec"]}
)";

// Each outcome once: accepted at once, template after a failed repair,
// accepted after the repair, rejected, template after an HTTP error, and a
// transport failure.
const char* const kSevenCasesReport = R"({
"mode": "model", "input": "cases.jsonl",
"settings": {"endpoint": "@", "model": "loopback-model",
  "fallbackEndpoint": "", "fallbackModel": "", "timeoutMs": 5000,
  "temperature": 0.2, "topP": 0.5, "helper": null, "repeat": 1, "concurrency": 1},
"summary": {
  "overall": {"requests": 7, "acceptedModel": 3, "acceptedTemplate": 2, "rejected": 1, "transportFailures": 1, "transportCalls": 10, "failedTransportCalls": 2, "latencyMs": {"p50": 0, "p90": 0, "p99": 0, "max": 0}},
  "byKind": {
    "NpcDialogue": {"requests": 1, "acceptedModel": 1, "acceptedTemplate": 0, "rejected": 0, "transportFailures": 0, "transportCalls": 1, "failedTransportCalls": 0, "latencyMs": {"p50": 0, "p90": 0, "p99": 0, "max": 0}},
    "CommandHelp": {"requests": 1, "acceptedModel": 0, "acceptedTemplate": 0, "rejected": 1, "transportFailures": 0, "transportCalls": 2, "failedTransportCalls": 0, "latencyMs": {"p50": 0, "p90": 0, "p99": 0, "max": 0}},
    "GeneralChat": {"requests": 1, "acceptedModel": 0, "acceptedTemplate": 0, "rejected": 0, "transportFailures": 1, "transportCalls": 1, "failedTransportCalls": 1, "latencyMs": {"p50": 0, "p90": 0, "p99": 0, "max": 0}},
    "ShortAnswer": {"requests": 1, "acceptedModel": 0, "acceptedTemplate": 1, "rejected": 0, "transportFailures": 0, "transportCalls": 2, "failedTransportCalls": 0, "latencyMs": {"p50": 0, "p90": 0, "p99": 0, "max": 0}},
    "ChatModeration": {"requests": 2, "acceptedModel": 2, "acceptedTemplate": 0, "rejected": 0, "transportFailures": 0, "transportCalls": 3, "failedTransportCalls": 0, "latencyMs": {"p50": 0, "p90": 0, "p99": 0, "max": 0}},
    "AntiCheatTriage": {"requests": 1, "acceptedModel": 0, "acceptedTemplate": 1, "rejected": 0, "transportFailures": 0, "transportCalls": 1, "failedTransportCalls": 1, "latencyMs": {"p50": 0, "p90": 0, "p99": 0, "max": 0}}},
  "byTag": {
    "hostinec": {"requests": 2, "acceptedModel": 1, "acceptedTemplate": 0, "rejected": 0, "transportFailures": 1, "transportCalls": 2, "failedTransportCalls": 1, "latencyMs": {"p50": 0, "p90": 0, "p99": 0, "max": 0}},
    "moderace": {"requests": 2, "acceptedModel": 2, "acceptedTemplate": 0, "rejected": 0, "transportFailures": 0, "transportCalls": 3, "failedTransportCalls": 0, "latencyMs": {"p50": 0, "p90": 0, "p99": 0, "max": 0}},
    "počty": {"requests": 1, "acceptedModel": 0, "acceptedTemplate": 1, "rejected": 0, "transportFailures": 0, "transportCalls": 2, "failedTransportCalls": 0, "latencyMs": {"p50": 0, "p90": 0, "p99": 0, "max": 0}},
    "příkazy": {"requests": 1, "acceptedModel": 0, "acceptedTemplate": 0, "rejected": 1, "transportFailures": 0, "transportCalls": 2, "failedTransportCalls": 0, "latencyMs": {"p50": 0, "p90": 0, "p99": 0, "max": 0}}},
  "reasons": {"empty_answer": {"firstAttempt": 0, "final": 0}, "answer_too_long": {"firstAttempt": 0, "final": 0},
    "instruction_leak": {"firstAttempt": 0, "final": 0}, "question_echo": {"firstAttempt": 0, "final": 0},
    "broken_czech_or_perspective": {"firstAttempt": 0, "final": 0}, "invalid_moderation_label": {"firstAttempt": 1, "final": 0},
    "invalid_classification_label": {"firstAttempt": 0, "final": 0}, "slash_command_forbidden": {"firstAttempt": 0, "final": 0},
    "invented_command:": {"firstAttempt": 1, "final": 1}, "missing_tool_value:": {"firstAttempt": 1, "final": 0},
    "unexpected_number:": {"firstAttempt": 1, "final": 1}, "safety_fact_not_enforced": {"firstAttempt": 0, "final": 0}},
  "labels": {
    "ChatModeration": {"lines": 2, "fromTemplate": 0,
      "modelOwn": {"correct": 1, "accuracy": 0.5, "matrix": {"OK": {"OK": 1, "WARN": 0, "none": 0}, "WARN": {"OK": 1, "WARN": 0, "none": 0}}},
      "gameReceives": {"correct": 1, "accuracy": 0.5, "matrix": {"OK": {"OK": 1, "WARN": 0, "none": 0}, "WARN": {"OK": 1, "WARN": 0, "none": 0}}}},
    "AntiCheatTriage": {"lines": 1, "fromTemplate": 1,
      "modelOwn": {"correct": 0, "accuracy": 0.0, "matrix": {"NORMAL": {"NORMAL": 0, "WATCH": 0, "HIGH": 0, "none": 0}, "WATCH": {"NORMAL": 0, "WATCH": 0, "HIGH": 0, "none": 0}, "HIGH": {"NORMAL": 0, "WATCH": 0, "HIGH": 0, "none": 1}}},
      "gameReceives": {"correct": 0, "accuracy": 0.0, "matrix": {"NORMAL": {"NORMAL": 0, "WATCH": 0, "HIGH": 0, "none": 0}, "WATCH": {"NORMAL": 0, "WATCH": 0, "HIGH": 0, "none": 0}, "HIGH": {"NORMAL": 0, "WATCH": 1, "HIGH": 0, "none": 0}}}}},
  "expectedAnswers": {"lines": 1, "matchedByModel": 0, "matchedForGame": 1}},
"results": [
 {"line": 1, "run": 1, "kind": "NpcDialogue", "tags": ["hostinec"], "message": "Kolik stojí pivo?", "outcome": "model", "latencyMs": 0, "transportCalls": 1, "failedTransportCalls": 0,
  "firstAttemptReasons": [], "finalReasons": [], "response": {"ok": true, "answer": "Pivo stojí 4 mince.", "model": "loopback-model", "watchdogPassed": true, "watchdogReasons": [], "fallback": false, "attempts": 1, "error": ""}},
 {"line": 2, "run": 1, "kind": "ShortAnswer", "tags": ["počty"], "message": "Kolik je 12*(3+4)?", "expected": "84", "outcome": "template", "latencyMs": 0, "transportCalls": 2, "failedTransportCalls": 0,
  "firstAttemptReasons": ["missing_tool_value:84", "unexpected_number:80"], "finalReasons": ["unexpected_number:85"], "response": {"ok": true, "answer": "84", "model": "watchdog-template", "watchdogPassed": true, "watchdogReasons": [], "fallback": true, "attempts": 2, "error": ""}},
 {"line": 3, "run": 1, "kind": "ChatModeration", "tags": ["moderace"], "message": "gg, dobrá hra", "expected": "OK", "outcome": "model", "latencyMs": 0, "transportCalls": 1, "failedTransportCalls": 0,
  "firstAttemptReasons": [], "finalReasons": [], "response": {"ok": true, "answer": "OK", "model": "loopback-model", "watchdogPassed": true, "watchdogReasons": [], "fallback": false, "attempts": 1, "error": ""}},
 {"line": 5, "run": 1, "kind": "ChatModeration", "tags": ["moderace"], "message": "prodám zlato za eura", "expected": "WARN", "outcome": "model", "latencyMs": 0, "transportCalls": 2, "failedTransportCalls": 0,
  "firstAttemptReasons": ["invalid_moderation_label"], "finalReasons": [], "response": {"ok": true, "answer": "OK", "model": "loopback-model", "watchdogPassed": true, "watchdogReasons": [], "fallback": false, "attempts": 2, "error": ""}},
 {"line": 6, "run": 1, "kind": "CommandHelp", "tags": ["příkazy"], "message": "Jak otevřu mapu?", "outcome": "rejected", "latencyMs": 0, "transportCalls": 2, "failedTransportCalls": 0,
  "firstAttemptReasons": ["invented_command:/map"], "finalReasons": ["invented_command:/mapka"], "response": {"ok": false, "answer": "Zkus /mapka.", "model": "loopback-model", "watchdogPassed": false, "watchdogReasons": ["invented_command:/mapka"], "fallback": false, "attempts": 2, "error": "AI answer rejected by watchdog"}},
 {"line": 7, "run": 1, "kind": "AntiCheatTriage", "tags": [], "message": "Hráč má 40 zabití za minutu.", "expected": "HIGH", "outcome": "template", "latencyMs": 0, "transportCalls": 1, "failedTransportCalls": 1,
  "firstAttemptReasons": [], "finalReasons": [], "response": {"ok": true, "answer": "WATCH", "model": "watchdog-template", "watchdogPassed": true, "watchdogReasons": [], "fallback": true, "attempts": 1, "error": "AI endpoint returned HTTP/1.1 503 Service Unavailable"}},
 {"line": 8, "run": 1, "kind": "GeneralChat", "tags": ["hostinec"], "message": "Ahoj!", "outcome": "transport_failure", "latencyMs": 0, "transportCalls": 1, "failedTransportCalls": 1,
  "firstAttemptReasons": [], "finalReasons": [], "response": {"ok": false, "answer": "", "model": "loopback-model", "watchdogPassed": true, "watchdogReasons": [], "fallback": false, "attempts": 1, "error": "Malformed AI HTTP response"}}
]})";

TEST(EvalTool, JsonReportHoldsEveryRunAndTheSummary) {
  const test::LoopbackServer server({
      test::chatCompletionStep("Pivo stojí 4 mince."),
      test::chatCompletionStep("Asi 80."),
      test::chatCompletionStep("To je 84, nebo 85."),
      test::chatCompletionStep("OK"),
      test::chatCompletionStep("WARN."),
      test::chatCompletionStep("OK"),
      test::chatCompletionStep("Napiš /map."),
      test::chatCompletionStep("Zkus /mapka."),
      test::statusStep("HTTP/1.1 503 Service Unavailable", "{}"),
      test::closeWithoutAnswerStep(),
  });
  const EvalRun run;
  run.write("cases.jsonl", kSevenCases);
  const test::ProcessResult result =
      run.run({"--endpoint", server.endpoint(), "--model", "loopback-model",
               "--timeout", "5000", "--temperature", "0.2", "--top-p", "0.5",
               "--helper", "", "--json", "report.json", "cases.jsonl"});
  ASSERT_EQ(result.exitStatus, 0) << result.err;
  EXPECT_EQ(result.err, "") << "no progress bar outside a terminal";

  Json expected = Json::parse(kSevenCasesReport);
  expected["settings"]["endpoint"] = server.endpoint();
  Json report = run.report("report.json");
  clearLatencies(report);
  expectSameJson(report, expected);

  // The sampling options reach the model server.
  ASSERT_EQ(server.requests().size(), 10u);
  EXPECT_NE(
      server.requests()[0].find("\"model\":\"loopback-model\",\"messages\":["),
      std::string::npos);
  EXPECT_NE(server.requests()[0].find(
                "\"temperature\":0.2,\"top_p\":0.5,\"max_tokens\":80,"),
            std::string::npos);

  // The readable report starts with its heading and the row of all runs.
  EXPECT_EQ(
      result.out.substr(0, result.out.find("\n\n")),
      "tovrin-ai-eval: 7 requests from 7 lines, model loopback-model at " +
          server.endpoint() + ", no helper text");
  EXPECT_NE(
      result.out.find("\nall                                     7         3"
                      "         2         1         1        10"),
      std::string::npos)
      << result.out;
  // It says which score is whose, and which label only the template gave.
  for (const char* line :
       {"\nAntiCheatTriage, the model's own answers: 0 of 1 labels right",
        "\nexpected answers: 0 of 1 matched by the model, 1 in what the game "
        "receives\n",
        "\n  line 7, run 1: template WATCH (expected HIGH), error: AI "
        "endpoint returned HTTP/1.1 503 Service Unavailable\n"}) {
    EXPECT_NE(result.out.find(line), std::string::npos) << line;
  }
}

TEST(EvalTool, FallbackServerAnswersWhenTheFirstFails) {
  const test::LoopbackServer primary({test::closeBeforeReadingStep()});
  const test::LoopbackServer fallback(
      {test::chatCompletionStep("Vítej ve hře.")});
  const EvalRun run;
  // No template answer fits, so the first pass fails and the second runs.
  run.write("in.jsonl", R"({"message": "ahoj", "kind": "ShortAnswer"})");
  const test::ProcessResult result =
      run.run({"--endpoint", primary.endpoint(), "--fallback-endpoint",
               fallback.endpoint(), "--fallback-model", "spare", "--json",
               "r.json", "in.jsonl"});
  ASSERT_EQ(result.exitStatus, 0) << result.err;
  const Json runJson = run.report("r.json")["results"][0];
  EXPECT_EQ(Json({runJson["outcome"], runJson["transportCalls"],
                  runJson["failedTransportCalls"], runJson["response"]["model"],
                  runJson["response"]["fallback"]}),
            Json({"model", 2, 1, "spare", true}));
  ASSERT_EQ(fallback.requests().size(), 1u);
  EXPECT_NE(fallback.requests()[0].find("\"model\":\"spare\""),
            std::string::npos);
}

// With --json - standard output holds the JSON alone and the table goes to
// standard error; a helper text that cannot be read is a warning, and the
// settings say that none was used.
TEST(EvalTool, JsonToStandardOutputAndAMissingHelper) {
  const test::LoopbackServer server({test::chatCompletionStep("OK")});
  const EvalRun run;
  run.write("in.jsonl", R"({"message": "a", "kind": 4})");
  const test::ProcessResult result =
      run.run({"--endpoint", server.endpoint(), "--helper", "absent.txt",
               "--json", "-", "in.jsonl"});
  ASSERT_EQ(result.exitStatus, 0) << result.err;
  const Json report = Json::parse(result.out);
  EXPECT_EQ(report["settings"]["helper"], nullptr);
  EXPECT_EQ(report["summary"]["overall"]["acceptedModel"], 1);
  EXPECT_EQ(result.err.substr(0, result.err.find('\n')),
            "tovrin-ai-eval: warning: cannot read the helper text "
            "absent.txt; running without one");
  EXPECT_NE(result.err.find(", no helper text\n"), std::string::npos);
}

TEST(EvalTool, RepeatedRunsGoSideBySideAndKeepTheirOrder) {
  const auto delay = std::chrono::milliseconds(400);
  const test::LoopbackServer server(
      {test::delayedStep(delay, test::chatCompletionStep("OK"))}, 0,
      test::Serving::kConcurrently);
  const EvalRun run;
  run.write(
      "in.jsonl",
      "{\"message\": \"a\", \"kind\": 4}\n{\"message\": \"b\", \"kind\": 4}\n");
  const auto start = std::chrono::steady_clock::now();
  const test::ProcessResult result =
      run.run({"--endpoint", server.endpoint(), "--repeat", "3",
               "--concurrency", "3", "--json", "r.json", "in.jsonl"});
  const auto elapsed = std::chrono::steady_clock::now() - start;
  ASSERT_EQ(result.exitStatus, 0) << result.err;
  // One after the other, six delayed answers would take 2.4 s.
  EXPECT_LT(elapsed, std::chrono::milliseconds(2000));

  const Json report = run.report("r.json");
  std::vector<std::pair<int, int>> order;
  for (const Json& entry : report["results"]) {
    order.emplace_back(entry["line"], entry["run"]);
    EXPECT_EQ(entry["transportCalls"], 1);
  }
  EXPECT_EQ(order, (std::vector<std::pair<int, int>>{
                       {1, 1}, {1, 2}, {1, 3}, {2, 1}, {2, 2}, {2, 3}}));
  EXPECT_EQ(report["summary"]["overall"]["acceptedModel"], 6);
}

// The README's example command as written but for the program path, the
// endpoint and extra arguments before the input, run in run's directory
// laid out like the repository root.
test::ProcessResult runReadmeExample(const EvalRun& run,
                                     const std::string& endpoint,
                                     const std::vector<std::string>& extra) {
  std::istringstream readme(
      readFile(fs::path(TOVRIN_AI_SOURCE_DIR) / "README.md"));
  const std::string prefix =
      "    ./build/default/eval/tovrin-ai-eval --endpoint ";
  std::vector<std::string> args;
  for (std::string line; std::getline(readme, line);) {
    if (!line.starts_with(prefix)) continue;
    std::istringstream words(line);
    for (std::string word; words >> word;) args.push_back(word);
    break;
  }
  if (args.size() < 3) {
    ADD_FAILURE() << "no example command in the README";
    return {};
  }
  args.erase(args.begin());
  args[1] = endpoint;
  args.insert(args.end() - 1, extra.begin(), extra.end());
  for (const char* dir : {"examples/eval", "assets/ai"}) {
    fs::create_directories(run.dir() / dir);
    fs::copy(fs::path(TOVRIN_AI_SOURCE_DIR) / dir, run.dir() / dir,
             fs::copy_options::recursive);
  }
  return run.run(args);
}

TEST(EvalTool, ReadmeExampleRunsOnTheSamples) {
  // Every model answer is "OK": right for moderation, a wrong label for
  // triage, missing the exact result for the arithmetic, no refusal where a
  // fact forbids what is asked.
  const test::LoopbackServer server({test::chatCompletionStep("OK")}, 0,
                                    test::Serving::kConcurrently);
  const EvalRun run;
  const test::ProcessResult result = runReadmeExample(run, server.endpoint(), {});
  ASSERT_EQ(result.exitStatus, 0) << result.err;
  EXPECT_EQ(result.out.rfind("tovrin-ai-eval: 33 requests from 33 lines", 0),
            0u)
      << result.out;

  const Json report = run.report("eval-report.json");
  EXPECT_EQ(report["settings"]["concurrency"], 2);
  Json overall = report["summary"]["overall"];
  overall.erase("latencyMs");
  EXPECT_EQ(overall, Json::parse(R"({"requests": 33, "acceptedModel": 20,
      "acceptedTemplate": 13, "rejected": 0, "transportFailures": 0,
      "transportCalls": 46, "failedTransportCalls": 0})"));
  EXPECT_EQ(server.requests().size(), 46u);
  // Counted per run even with runs side by side: an accepted "OK" took one
  // call, anything else the repair attempt too.
  for (const Json& entry : report["results"]) {
    EXPECT_EQ(entry["transportCalls"], entry["outcome"] == "model" ? 1 : 2)
        << "line " << entry["line"];
  }
}

// A real browser renders the page of the README's sample run: the summary figures,
// one chart per watchdog rule and the model's name (escaped, in UTF-8) are
// there, and a screenshot is left in the build folder to look at.
TEST(EvalTool, HtmlReportRendersInChromium) {
  const fs::path chromium = "/usr/bin/chromium";
  if (test::runningUnderWine() || !fs::exists(chromium)) {
    GTEST_SKIP() << "no " << chromium << " to render the report in";
  }
  const test::LoopbackServer server({test::chatCompletionStep("OK")}, 0,
                                    test::Serving::kConcurrently);
  const EvalRun run;
  const test::ProcessResult eval =
      runReadmeExample(run, server.endpoint(), {"--model", "Qwen č<1>"});
  ASSERT_EQ(eval.exitStatus, 0) << eval.err;

  auto browse = [&](const std::string& profile, const std::string& action) {
    return test::runProcess(
        chromium,
        {"--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
         "--no-first-run", "--disable-background-networking",
         "--disable-component-update", "--disable-sync",
         "--user-data-dir=" + (run.dir() / profile).string(),
         "--window-size=1200,2000", action,
         "file://" + (run.dir() / "eval-report.html").string()},
        run.dir());
  };
  const test::ProcessResult dom = browse("profile-dom", "--dump-dom");
  ASSERT_EQ(dom.exitStatus, 0) << dom.err;
  EXPECT_NE(dom.out.find("<th>all</th><td>33</td><td>20</td><td>13</td>"
                         "<td>0</td><td>0</td><td>46</td>"),
            std::string::npos)
      << dom.out;
  std::size_t charts = 0;
  for (std::size_t at = 0;
       (at = dom.out.find("<svg class=\"rule-chart\"", at)) != std::string::npos;
       ++at) {
    ++charts;
  }
  EXPECT_EQ(charts, std::size(kReasonCodes));
  EXPECT_NE(dom.out.find("<h1>tovrin-ai-eval: Qwen č&lt;1&gt;</h1>"),
            std::string::npos);

  const fs::path picture = fs::path(TOVRIN_AI_BINARY_DIR) / "eval_report.png";
  fs::remove(picture);
  const test::ProcessResult shot =
      browse("profile-shot", "--screenshot=" + picture.string());
  EXPECT_EQ(shot.exitStatus, 0) << shot.err;
  EXPECT_GT(fs::exists(picture) ? fs::file_size(picture) : 0, 0u);
}

TEST(EvalTool, ReplayGivesTheVerdictsOfValidateAnswer) {
  const fs::path samples =
      fs::path(TOVRIN_AI_SOURCE_DIR) / "examples" / "eval" / "requests.jsonl";
  std::ifstream file(samples, std::ios::binary);
  const ReadResult input = readCases(file, "samples");
  ASSERT_TRUE(input.errors.empty());

  const EvalRun run;
  const test::ProcessResult result =
      run.run({"--replay", "--json", "r.json", samples.string()});
  ASSERT_EQ(result.exitStatus, 0) << result.err;
  const Json report = run.report("r.json");
  EXPECT_EQ(report["mode"], "replay");
  EXPECT_FALSE(report.contains("settings"));

  Json verdicts = Json::array();
  Json expected = Json::array();
  std::size_t passed = 0;
  for (const Json& result : report["results"]) {
    verdicts.push_back({result["line"], result["response"]["watchdogReasons"]});
  }
  for (const EvalCase& evalCase : input.cases) {
    const WatchdogVerdict verdict = validateAnswer(
        evalCase.answer.value_or(""), applyToolFacts(evalCase.request));
    expected.push_back({evalCase.line, verdict.reasons});
    if (verdict.passed) ++passed;
  }
  EXPECT_EQ(verdicts, expected);
  // The samples show passing and rejected answers alike.
  EXPECT_GT(passed, 0u);
  EXPECT_LT(passed, input.cases.size());
}

TEST(EvalTool, ReplayTableReadsAsWritten) {
  const EvalRun run;
  run.write(
      "in.jsonl",
      R"({"message": "Kolik je 2+2?", "kind": "ShortAnswer", "answer": "Jsou to 4.", "tags": ["počty"]}
{"message": "ty lamo", "kind": "ChatModeration", "expected": "WARN", "answer": "warn"}
{"message": "Jak na mapu?", "kind": "ShortAnswer", "answer": "Napiš /mapa, je to 5 kroků.", "tags": ["počty"]}
{"message": "bez odpovědi"}
)");
  const test::ProcessResult result = run.run({"--replay", "in.jsonl"});
  ASSERT_EQ(result.exitStatus, 0) << result.err;
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out,
            "tovrin-ai-eval --replay: 3 answers judged by the watchdog, 1 "
            "lines without an answer left out\n"
            "\n"
            "                                  answers    passed  rejected\n"
            "all                                     3         1         2\n"
            "ShortAnswer                             2         1         1\n"
            "ChatModeration                          1         0         1\n"
            "#počty                                  2         1         1\n"
            "\n"
            "passed 33.3 %, rejected 66.7 %\n"
            "\n"
            "watchdog rule                     answers\n"
            "invalid_moderation_label                1\n"
            "slash_command_forbidden                 1\n"
            "\n"
            "ChatModeration: 0 of 1 labels right (0.0 %)\n"
            "  expected \\ given                     OK      WARN      none\n"
            "  OK                                    0         0         0\n"
            "  WARN                                  0         0         1\n"
            "\n"
            "rejected answers:\n"
            "  line 2: invalid_moderation_label\n"
            "  line 3: slash_command_forbidden\n");
}

// Every refusal ends the tool with status 2 and a line naming the problem
// before any model call. Each row runs against a server that counts the
// connections; a later --endpoint in a row replaces the server's.
TEST(EvalTool, RefusalsStopBeforeAnyModelCall) {
  struct Row {
    const char* name;
    std::vector<std::string> args;
    std::string firstErrorLine;  // after "tovrin-ai-eval: " unless a file's
  };
  const std::string http = "http://127.0.0.1";
  const Row rows[] = {
      {"no_input", {"--replay"}, "no input file"},
      {"two_inputs", {"in.jsonl", "b.jsonl"}, "only one input file: b.jsonl"},
      {"misspelt_option", {"--modle", "m", "in.jsonl"}, "unknown option: --modle"},
      {"single_dash_option", {"-x", "in.jsonl"}, "unknown option: -x"},
      {"value_missing_at_end", {"in.jsonl", "--model"}, "--model needs a value"},
      {"flag_with_value", {"--replay=yes", "in.jsonl"}, "--replay takes no value"},
      {"timeout_with_unit", {"--timeout", "5s", "in.jsonl"}, "bad value for --timeout: 5s"},
      {"timeout_zero", {"--timeout", "0", "in.jsonl"}, "bad value for --timeout: 0"},
      {"top_p_above_one", {"--top-p", "1.5", "in.jsonl"}, "bad value for --top-p: 1.5"},
      {"temperature_nan", {"--temperature", "nan", "in.jsonl"}, "bad value for --temperature: nan"},
      {"temperature_comma", {"--temperature", "0,3", "in.jsonl"}, "bad value for --temperature: 0,3"},
      {"repeat_zero", {"--repeat", "0", "in.jsonl"}, "bad value for --repeat: 0 (1 to 1000)"},
      {"repeat_huge", {"--repeat=4000000000", "in.jsonl"}, "bad value for --repeat: 4000000000 (1 to 1000)"},
      {"repeat_overflow", {"--repeat", "99999999999999999999", "in.jsonl"}, "bad value for --repeat: 99999999999999999999 (1 to 1000)"},
      {"concurrency_zero", {"--concurrency", "0", "in.jsonl"}, "bad value for --concurrency: 0 (1 to 64)"},
      {"concurrency_above_limit", {"--concurrency=65", "in.jsonl"}, "bad value for --concurrency: 65 (1 to 64)"},
      {"endpoint_empty", {"--endpoint=", "in.jsonl"}, "bad value for --endpoint: : AI endpoint must use http://"},
      {"endpoint_ftp", {"--endpoint", "ftp://x", "in.jsonl"}, "bad value for --endpoint: ftp://x: AI endpoint must use http://"},
      {"endpoint_https", {"--endpoint", "https://x/v1", "in.jsonl"}, "bad value for --endpoint: https://x/v1: AI endpoint must use http://"},
      {"endpoint_no_host", {"--endpoint", "http://:80/v1", "in.jsonl"}, "bad value for --endpoint: http://:80/v1: Invalid AI endpoint URL"},
      {"port_too_big", {"--endpoint", http + ":99999/v1", "in.jsonl"}, "bad value for --endpoint: " + http + ":99999/v1: port must be a number from 1 to 65535"},
      {"port_not_a_number", {"--endpoint", http + ":abc/v1", "in.jsonl"}, "bad value for --endpoint: " + http + ":abc/v1: port must be a number from 1 to 65535"},
      {"port_zero", {"--endpoint", http + ":0", "in.jsonl"}, "bad value for --endpoint: " + http + ":0: port must be a number from 1 to 65535"},
      {"fallback_endpoint_alone", {"--fallback-endpoint", http + ":1", "in.jsonl"}, "--fallback-endpoint and --fallback-model go together"},
      {"fallback_model_alone", {"--fallback-model", "m", "in.jsonl"}, "--fallback-endpoint and --fallback-model go together"},
      {"fallback_port_bad", {"--fallback-endpoint", http + ":70000", "--fallback-model", "m", "in.jsonl"}, "bad value for --fallback-endpoint: " + http + ":70000: port must be a number from 1 to 65535"},
      {"both_reports_to_stdout", {"--json", "-", "--html", "-", "in.jsonl"}, "only one of --json and --html can go to standard output"},
      {"input_directory", {"sub"}, "sub is a directory"},
      {"input_missing", {"absent.jsonl"}, "cannot read absent.jsonl"},
      {"input_empty", {"empty.jsonl"}, "empty.jsonl holds no request"},
      {"input_blank_lines", {"blank.jsonl"}, "blank.jsonl holds no request"},
      {"json_names_input", {"--json", "in.jsonl", "in.jsonl"}, "--json names the input file in.jsonl"},
      {"json_names_input_otherwise", {"--json=sub/../in.jsonl", "./in.jsonl"}, "--json names the input file ./in.jsonl"},
      {"html_names_input", {"--html", "in.jsonl", "in.jsonl"}, "--html names the input file in.jsonl"},
      {"reports_share_a_file", {"--json", "r", "--html", "./r", "in.jsonl"}, "--json and --html name the same file r"},
      {"bad_lines", {"bad.jsonl"}, "bad.jsonl:2: unknown field \"worldfacts\""},
  };
  const test::LoopbackServer server({test::chatCompletionStep("OK")});
  const EvalRun run;
  run.write("in.jsonl", "{\"message\": \"a\"}\n");
  run.write("empty.jsonl", "");
  run.write("blank.jsonl", "\n  \r\n\t\n");
  run.write("bad.jsonl",
            "{\"message\": \"a\"}\n"
            "{\"message\": \"b\", \"worldfacts\": [\"x\"]}\n"
            "{\"message\": \"c\", \"kind\": 4, \"expected\": \"ok\"}\n");
  fs::create_directories(run.dir() / "sub");
  for (const Row& row : rows) {
    std::vector<std::string> args{"--endpoint", server.endpoint()};
    args.insert(args.end(), row.args.begin(), row.args.end());
    const test::ProcessResult result = run.run(args);
    EXPECT_EQ(result.exitStatus, 2) << row.name;
    EXPECT_EQ(result.out, "") << row.name;
    const std::string firstLine = result.err.substr(0, result.err.find('\n'));
    EXPECT_EQ(firstLine, row.name == std::string("bad_lines")
                             ? row.firstErrorLine
                             : "tovrin-ai-eval: " + row.firstErrorLine)
        << row.name;
    EXPECT_TRUE(server.requests().empty()) << row.name;
    EXPECT_FALSE(fs::exists(run.dir() / "r")) << row.name;
  }
}

}  // namespace
}  // namespace tovrin::ai::eval
