// The real tovrin-ai-eval binary against scripted model servers: the JSON
// report field by field, the README's example run, --replay, and every
// refusal of its command line.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "testing/files.hpp"
#include "testing/loopback_server.hpp"
#include "testing/process_runner.hpp"
#include "tovrin/ai/transport.hpp"
#include "tovrin/ai/watchdog.hpp"

namespace tovrin::ai::eval {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;
using namespace std::chrono_literals;

const fs::path kSourceDir = TOVRIN_AI_SOURCE_DIR;

// A working directory of its own for one run of the tool.
struct EvalRun : test::TempDir {
  EvalRun() : TempDir("eval") {}
  test::ProcessResult run(const std::vector<std::string>& args) const {
    return test::runProcess(TOVRIN_AI_EVAL_PATH, args, path());
  }
  Json report(const std::string& name) const { return Json::parse(read(name)); }
};

// Latencies vary from run to run (their percentiles have tests of their
// own); they are set to 0 so that the rest compares with literal values.
void clearLatencies(Json& report) {
  for (Json& result : report["results"]) result["latencyMs"] = 0;
  const Json zero = {{"p50", 0}, {"p90", 0}, {"p99", 0}, {"max", 0}};
  report["summary"]["overall"]["latencyMs"] = zero;
  for (const char* groups : {"byKind", "byTag"}) {
    for (auto& [name, group] : report["summary"][groups].items()) group["latencyMs"] = zero;
  }
}

// The readable report without what varies from run to run: the endpoint,
// and the three latency columns of the first table.
std::string withoutLatencies(const std::string& out, const std::string& endpoint) {
  std::istringstream lines(out);
  std::string kept;
  bool inTable = false;
  for (std::string line; std::getline(lines, line);) {
    inTable = line.ends_with("p99 ms") || (inTable && !line.empty());
    kept += (inTable ? line.substr(0, line.size() - 30) : line) + "\n";
  }
  return kept.replace(kept.find(endpoint), endpoint.size(), "@");
}

// Seven lines (testdata/seven_cases.jsonl), each outcome once: accepted at
// once, template after a failed repair, accepted after the repair, rejected,
// template after an HTTP error, and a transport failure. The model's last
// answers and the server's error body are in the reports; an invalid byte and a terminal escape from the server
// reach neither the page nor the console.
TEST(EvalTool, JsonReportHoldsEveryRunAndTheSummary) {
  const test::LoopbackStep refused = test::statusStep("HTTP/1.1 503 Service \x1b[2JUnavailable", "{\"error\": \"model loading\"}");
  const test::LoopbackServer server({
      test::chatCompletionStep("Pivo stojí 4 mince."), test::chatCompletionStep("Asi 80."),
      test::chatCompletionStep("To je 84, nebo 85.\xFF"), test::chatCompletionStep("OK"),
      test::chatCompletionStep("WARN."), test::chatCompletionStep("OK"),
      test::chatCompletionStep("Napiš /map."), test::chatCompletionStep("Zkus /mapka."),
      refused, test::LoopbackStep{},
  });
  const EvalRun run;
  run.write("cases.jsonl", test::readFile(kSourceDir / "eval/testdata/seven_cases.jsonl"));
  const test::ProcessResult result =
      run.run({"--endpoint", server.endpoint(), "--model", "loopback-model", "--timeout", "5000",
               "--temperature", "0.2", "--top-p", "0.5", "--helper", "", "--json", "report.json",
               "--html", "report.html", "cases.jsonl"});
  ASSERT_EQ(result.exitStatus, 0) << result.err;
  EXPECT_EQ(result.err, "") << "no progress bar outside a terminal";

  Json expected = Json::parse(test::readFile(kSourceDir / "eval/testdata/seven_cases_report.json"));
  expected["settings"]["endpoint"] = server.endpoint();
  Json report = run.report("report.json");
  clearLatencies(report);
  EXPECT_EQ(report, expected) << "to make the report the expected one: " << Json::diff(report, expected).dump(1);
  const std::string page = run.read("report.html");
  EXPECT_NO_THROW(Json(page).dump()) << "the page is not valid UTF-8";
  for (const std::string& text : {page, result.out}) {
    EXPECT_EQ(std::count_if(text.begin(), text.end(), [](char c) { return (c >= 0 && c < 0x20 && c != '\n') || c == 0x7F; }), 0);
  }

  ASSERT_EQ(server.requests().size(), 10u);  // no call made twice
  // The sampling options reach the model server.
  for (const char* part : {"\"model\":\"loopback-model\",\"messages\":[",
                           "\"temperature\":0.2,\"top_p\":0.5,\"max_tokens\":80,"}) {
    EXPECT_NE(server.requests()[0].find(part), std::string::npos) << part;
  }
  // The readable report says which score is whose, and which label only
  // the template gave.
  EXPECT_EQ(withoutLatencies(result.out, server.endpoint()),
            test::readFile(kSourceDir / "eval/testdata/seven_cases_table.txt"));
}

// With --json - standard output holds the JSON alone and the table goes to
// standard error; a helper text that cannot be read is a warning, and the
// settings say that none was used. No template answer fits and the first
// server fails every call, so each run ends with the fallback's model; all
// 70 runs stream through. Each run keeps its message up to 2048 bytes,
// cut before a character that does not fit whole.
TEST(EvalTool, JsonToStandardOutputFallbackAndAMissingHelper) {
  const test::LoopbackServer primary({test::LoopbackStep{.readRequest = false}});
  const test::LoopbackServer fallback({test::chatCompletionStep("Vítej ve hře.")});
  const EvalRun run;
  std::string message = "a", kept = "a";
  for (int i = 0; i < 3000; ++i) message += "ž";
  for (int i = 0; i < 1023; ++i) kept += "ž";
  run.write("in.jsonl", R"({"kind": "ShortAnswer", "message": ")" + message + "\"}");
  const test::ProcessResult result =
      run.run({"--endpoint", primary.endpoint(), "--fallback-endpoint", fallback.endpoint(), "--fallback-model", "spare",
               "--helper", "absent.txt", "--repeat", "70", "--json", "-", "in.jsonl"});
  ASSERT_EQ(result.exitStatus, 0) << result.err;
  const Json report = Json::parse(result.out);
  const Json last = report["results"][69];
  EXPECT_EQ(Json({report["settings"]["helper"], report["summary"]["overall"]["acceptedModel"], last["transportCalls"],
                  last["failedTransportCalls"], last["response"]["model"], last["response"]["fallback"], last["message"]}),
            Json({nullptr, 70, 2, 1, "spare", true, kept + "…"}));
  EXPECT_NE(fallback.requests().at(0).find("\"model\":\"spare\""), std::string::npos);
  EXPECT_EQ(result.err.substr(0, result.err.find('\n')),
            "tovrin-ai-eval: warning: cannot read the helper text absent.txt; running without one");
  EXPECT_NE(result.err.find(", no helper text\n"), std::string::npos);
}

TEST(EvalTool, RepeatedRunsGoSideBySideAndKeepTheirOrder) {
  const test::LoopbackServer server({test::delayedStep(std::chrono::milliseconds(400), test::chatCompletionStep("OK"))},
                                    0, test::Serving::kConcurrently);
  const EvalRun run;
  run.write("in.jsonl", "{\"message\": \"a\", \"kind\": 4}\n{\"message\": \"b\", \"kind\": 4}\n");
  const auto start = std::chrono::steady_clock::now();
  const test::ProcessResult result =
      run.run({"--endpoint", server.endpoint(), "--repeat", "3", "--concurrency", "3", "--json", "r.json", "in.jsonl"});
  // One after the other, six delayed answers would take 2.4 s.
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(2000));
  ASSERT_EQ(result.exitStatus, 0) << result.err;
  const Json report = run.report("r.json");
  Json order = Json::array();
  for (const Json& entry : report["results"]) order.push_back({entry["line"], entry["run"], entry["transportCalls"]});
  EXPECT_EQ(order, Json::parse("[[1,1,1],[1,2,1],[1,3,1],[2,1,1],[2,2,1],[2,3,1]]"));
  EXPECT_EQ(report["summary"]["overall"]["acceptedModel"], 6);
}

// The README's example command as written but for the program path, the
// endpoint and extra arguments before the input, run in run's directory
// laid out like the repository root.
test::ProcessResult runReadmeExample(const EvalRun& run, const std::string& endpoint,
                                     const std::vector<std::string>& extra) {
  std::istringstream readme(test::readFile(kSourceDir / "README.md"));
  const std::string prefix = "    ./build/default/eval/tovrin-ai-eval --endpoint ";
  std::vector<std::string> args;
  for (std::string line; args.empty() && std::getline(readme, line);) {
    std::istringstream words(line);
    for (std::string word; line.starts_with(prefix) && words >> word;) args.push_back(word);
  }
  if (args.size() < 3) {
    ADD_FAILURE() << "no example command in the README";
    return {};
  }
  args.erase(args.begin());
  args[1] = endpoint;
  args.insert(args.end() - 1, extra.begin(), extra.end());
  for (const char* dir : {"examples/eval", "assets/ai"}) {
    fs::create_directories(run.path() / dir);
    fs::copy(kSourceDir / dir, run.path() / dir, fs::copy_options::recursive);
  }
  return run.run(args);
}

// Every model answer is "OK": right for moderation, a wrong label for
// triage, missing the exact result for the arithmetic, no refusal where a
// fact forbids what is asked. Then a real browser renders the page: the
// summary figures, one chart per watchdog rule and the model's name
// (escaped, in UTF-8) are there; in a window 400 px wide the page itself
// does not scroll sideways (its wide tables scroll in their own boxes).
// Screenshots of both widths are left in the build folder to look at.
TEST(EvalTool, ReadmeExampleRunsAndItsPageRendersInChromium) {
  const test::LoopbackServer server({test::chatCompletionStep("OK")}, 0, test::Serving::kConcurrently);
  const EvalRun run;
  const test::ProcessResult eval = runReadmeExample(run, server.endpoint(), {"--model", "Qwen č<1>"});
  ASSERT_EQ(eval.exitStatus, 0) << eval.err;
  EXPECT_EQ(eval.out.rfind("tovrin-ai-eval: 33 requests from 33 lines", 0), 0u) << eval.out;
  const Json report = run.report("eval-report.json");
  EXPECT_EQ(report["settings"]["concurrency"], 2);
  Json overall = report["summary"]["overall"];
  overall.erase("latencyMs");
  EXPECT_EQ(overall, Json::parse(R"({"requests": 33, "acceptedModel": 20, "acceptedTemplate": 13, "rejected": 0,
                                     "transportFailures": 0, "transportCalls": 46, "failedTransportCalls": 0, "timedOut": 0})"));
  EXPECT_EQ(server.requests().size(), 46u);
  // Counted per run even with runs side by side: an accepted "OK" took one
  // call, anything else the repair attempt too.
  for (const Json& entry : report["results"]) {
    EXPECT_EQ(entry["transportCalls"], entry["outcome"] == "model" ? 1 : 2) << "line " << entry["line"];
  }

  const fs::path chromium = "/usr/bin/chromium";
  if (test::runningUnderWine() || !fs::exists(chromium)) GTEST_SKIP() << "no " << chromium << " to render the report in";
  // The window is never narrower than 500 px, so the narrow view is the
  // page in a frame 400 px wide, measured by a script of the test's own.
  run.write("narrow.html", R"(<!DOCTYPE html><iframe id="f" src="eval-report.html" style="width:400px;height:1800px;border:0"></iframe>)"
                           R"(<script>document.getElementById("f").onload = function() { const d = this.contentDocument.documentElement;)"
                           R"( document.body.setAttribute("data-widths", d.scrollWidth + "/" + d.clientWidth); };</script>)");
  auto browse = [&](const std::string& page, const std::string& size, const std::string& action) {
    return test::runProcess(
        chromium,
        {"--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
         "--disable-background-networking", "--disable-component-update", "--disable-sync",
         "--allow-file-access-from-files", "--user-data-dir=" + (run.path() / ("profile" + size)).string(),
         "--window-size=" + size, action, "file://" + (run.path() / page).string()},
        run.path());
  };
  const test::ProcessResult dom = browse("eval-report.html", "1200,2000", "--dump-dom");
  ASSERT_EQ(dom.exitStatus, 0) << dom.err;
  EXPECT_NE(dom.out.find("<th>all</th><td>33</td><td>20</td><td>13</td><td>0</td><td>0</td><td>46</td>"),
            std::string::npos) << dom.out;
  std::size_t charts = 0;
  for (std::size_t at = 0; (at = dom.out.find("<svg class=\"rule-chart\"", at)) != std::string::npos; ++at) ++charts;
  EXPECT_EQ(charts, std::size(kReasonCodes));
  EXPECT_NE(dom.out.find("<h1>tovrin-ai-eval: Qwen č&lt;1&gt;</h1>"), std::string::npos);

  const test::ProcessResult narrow = browse("narrow.html", "420,1900", "--dump-dom");
  const std::size_t at = narrow.out.find("data-widths=\"");
  ASSERT_NE(at, std::string::npos) << narrow.out << narrow.err;
  std::istringstream widths(narrow.out.substr(at + 13));
  int scrollWidth = 0, clientWidth = 0;
  char slash = 0;
  widths >> scrollWidth >> slash >> clientWidth;
  EXPECT_GT(clientWidth, 300);
  EXPECT_LE(scrollWidth, clientWidth) << "the page scrolls sideways at 400 px";

  for (const auto& [page, size, name] : {std::tuple("eval-report.html", "1200,2000", "eval_report.png"),
                                         std::tuple("narrow.html", "420,1900", "eval_report_narrow.png")}) {
    const fs::path picture = fs::path(TOVRIN_AI_BINARY_DIR) / name;
    fs::remove(picture);
    const test::ProcessResult shot = browse(page, size, "--screenshot=" + picture.string());
    EXPECT_EQ(shot.exitStatus, 0) << shot.err;
    EXPECT_GT(fs::exists(picture) ? fs::file_size(picture) : 0, 0u) << name;
  }
}

// The README's 33 lines against a server that drips a byte every 100 ms
// (every single wait succeeds) and against one that never answers: the
// deadline ends a dripping request, the time-out a silent one, and the
// report lists each as timed out. By default the run stops once three
// requests in a row have timed out; with --stop-after 0 every line runs.
TEST(EvalTool, DrippingAndSilentServersEndTheRunInBoundedTime) {
  const struct {
    const char* name;
    test::LoopbackStep step;
    std::vector<std::string> args;
    int exitStatus;
    const char* error;
  } rows[] = {
      {"dripping", {.answer = std::string(100000, 'x'), .dripBytes = 1, .dripPause = 100ms},
       {"--timeout", "300", "--deadline", "600"}, 1, "AI request deadline passed"},
      {"silent", test::delayedStep(60s, {}), {"--timeout", "200", "--stop-after", "0", "--concurrency", "8"}, 0,
       "Failed to receive AI response"},
  };
  for (const auto& row : rows) {
    const test::LoopbackServer server({row.step}, 0, test::Serving::kConcurrently);
    const EvalRun run;
    const auto start = std::chrono::steady_clock::now();
    const test::ProcessResult eval = runReadmeExample(run, server.endpoint(), row.args);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 15s) << row.name;
    EXPECT_EQ(eval.exitStatus, row.exitStatus) << row.name << eval.err;
    const Json report = run.report("eval-report.json");
    const std::size_t runs = report["results"].size();
    EXPECT_EQ(report["complete"], row.exitStatus == 0) << row.name;
    EXPECT_EQ(runs, row.exitStatus == 0 ? 33u : report["summary"]["overall"]["timedOut"].get<std::size_t>()) << row.name;
    EXPECT_GE(runs, 3u) << row.name;
    for (const Json& entry : report["results"]) {
      EXPECT_EQ(Json({entry["timedOut"], entry["response"]["error"]}), Json({true, row.error})) << row.name;
    }
    std::size_t listed = 0;
    const std::string line = "(timed out): " + std::string(row.error) + "\n";
    for (std::size_t at = 0; (at = eval.out.find(line, at)) != std::string::npos; ++at) ++listed;
    EXPECT_EQ(listed, runs) << row.name << eval.out;
  }
}

// Ctrl-C ends the run at once. The reports of an earlier run stay as they
// were while it runs, and are then replaced whole by reports of the
// requests that finished, marked as partial; no temporary file is left.
TEST(EvalTool, InterruptWritesPartialReportsInPlaceOfThePrevious) {
  if (test::runningUnderWine()) GTEST_SKIP() << "Wine delivers no SIGINT to a program started this way";
  const test::LoopbackServer server(
      {test::chatCompletionStep("OK"), test::chatCompletionStep("OK"), test::delayedStep(60s, {})});
  const EvalRun run;
  std::string lines;
  for (const char* message : {"a", "b", "c", "d", "e"}) lines += R"({"kind": 4, "message": ")" + std::string(message) + "\"}\n";
  run.write("in.jsonl", lines);
  for (const char* name : {"r.json", "r.html"}) run.write(name, "previous");
  test::ProcessResult result;
  std::thread tool([&] {
    result = test::runProcess("/bin/sh", {"-c", "\"$0\" \"$@\" & echo $! > pid; wait $!", TOVRIN_AI_EVAL_PATH, "--endpoint",
                                          server.endpoint(), "--json", "r.json", "--html", "r.html", "in.jsonl"},
                              run.path());
  });
  for (int i = 0; i < 2000 && server.requests().size() < 3; ++i) std::this_thread::sleep_for(10ms);
  EXPECT_EQ(run.read("r.json") + run.read("r.html"), "previousprevious");
  const auto interrupted = std::chrono::steady_clock::now();
  test::runProcess("/bin/sh", {"-c", "kill -INT $(cat pid)"}, run.path());
  tool.join();
  EXPECT_LT(std::chrono::steady_clock::now() - interrupted, 3s);
  EXPECT_EQ(result.exitStatus, 130) << result.err;
  const Json report = run.report("r.json");
  EXPECT_EQ(Json({report["complete"], report["stopped"], report["requestsPlanned"], report["results"].size()}),
            Json({false, "interrupted", 5, 2}));
  EXPECT_NE(run.read("r.html").find("Partial report: the run was interrupted after 2 of 5 requests."), std::string::npos);
  std::vector<std::string> files;
  for (const auto& entry : fs::directory_iterator(run.path())) files.push_back(entry.path().filename().string());
  std::sort(files.begin(), files.end());
  EXPECT_EQ(files, (std::vector<std::string>{"in.jsonl", "pid", "r.html", "r.json"}));
}

// The watchdog's verdicts on the answers as written, the tools' exact
// results applied first (line 5); a line without an answer is left out.
TEST(EvalTool, ReplayTableReadsAsWritten) {
  const EvalRun run;
  run.write("in.jsonl", R"({"message": "Kolik je 2+2?", "kind": "ShortAnswer", "answer": "Jsou to 4.", "tags": ["počty"]}
{"message": "ty lamo", "kind": "ChatModeration", "expected": "WARN", "answer": " warn\n"}
{"message": "Jak na mapu?", "kind": "ShortAnswer", "answer": "Napiš /mapa, je to 5 kroků.", "tags": ["počty"]}
{"message": "bez odpovědi"}
{"message": "Kolik je 3*3?", "kind": "ShortAnswer", "answer": "Asi 10."}
)");
  const test::ProcessResult result = run.run({"--replay", "--json", "r.json", "in.jsonl"});
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out, test::readFile(kSourceDir / "eval/testdata/replay_table.txt"));
  const Json report = run.report("r.json");
  EXPECT_EQ(report["mode"], "replay");
  EXPECT_FALSE(report.contains("settings"));
  Json verdicts = Json::array();
  for (const Json& entry : report["results"]) {
    verdicts.push_back({entry["line"], entry["response"]["answer"], entry["response"]["watchdogReasons"]});
  }
  EXPECT_EQ(verdicts, Json::parse(R"([[1, "Jsou to 4.", []], [2, "warn", ["invalid_moderation_label"]],
      [3, "Napiš /mapa, je to 5 kroků.", ["slash_command_forbidden"]],
      [5, "Asi 10.", ["missing_tool_value:9", "unexpected_number:10"]]])"));
}

// Every refusal in testdata/refusals.txt (a command line after "$ ", with
// '...' for a word holding blanks, then the one line it writes to standard
// error, or the first and how many more) ends the tool with status 2 before
// any model call. Each runs with a counting server's --endpoint
// first, which a later --endpoint replaces.
// --server-command starts the model server, waits while it loads, runs and
// stops it: afterwards nothing listens on its port. A server that cannot
// start, or a command that cannot be split, ends the tool with one line
// saying why (and the server's last lines).
TEST(EvalTool, StartsItsModelServerAndStopsIt) {
  const EvalRun run;
  run.write("in.jsonl", test::readFile(kSourceDir / "examples/eval/requests.jsonl"));
  const std::string standIn = std::string("'") + TOVRIN_AI_STAND_IN + "' --port {port}";
  const test::ProcessResult served =
      run.run({"--server-command", standIn + " --ready-after-ms 300", "--json", "r.json", "in.jsonl"});
  ASSERT_EQ(served.exitStatus, 0) << served.err;
  const Json report = run.report("r.json");
  EXPECT_EQ(report["results"].size(), 33u);
  EXPECT_EQ(report["summary"]["overall"]["acceptedModel"], 16) << report["summary"]["overall"].dump();
  const AiEndpoint used = parseEndpoint(report["settings"]["endpoint"].get<std::string>());
  detail::SocketLibrary library;
  detail::Socket connection;
  EXPECT_EQ(detail::connectTcp(used.host, used.port, 1000, connection), detail::ConnectResult::kNotAccepted);

  const struct {
    const char* name;
    std::vector<std::string> args;
    const char* firstLine;
  } refusals[] = {
      {"missing model", {"--server-command", standIn + " --model absent.gguf", "--helper", "", "in.jsonl"},
       "tovrin-ai-eval: the model server did not start: the server exited with status 1 before it was ready; "
       "1 failure within 60000 ms, no more restarts"},
      {"unclosed quote", {"--server-command", "'stand-in", "in.jsonl"},
       "tovrin-ai-eval: bad value for --server-command: unclosed ' in the command line"},
      {"replay", {"--server-command", standIn, "--replay", "in.jsonl"},
       "tovrin-ai-eval: --replay asks no model: --server-command does not apply"},
  };
  for (const auto& refusal : refusals) {
    const test::ProcessResult result = run.run(refusal.args);
    EXPECT_EQ(result.exitStatus, 2) << refusal.name;
    EXPECT_EQ(result.err.substr(0, result.err.find('\n')), refusal.firstLine) << refusal.name;
  }
}

TEST(EvalTool, RefusalsStopBeforeAnyModelCall) {
  const test::LoopbackServer server({test::chatCompletionStep("OK")});
  const EvalRun run;
  run.write("in.jsonl", "{\"message\": \"a\"}\n");
  run.write("empty.jsonl", "");
  run.write("blank.jsonl", "\n  \r\n\t\n");
  run.write("bad_lines.jsonl", test::readFile(kSourceDir / "eval/testdata/bad_lines.jsonl"));
  fs::create_directories(run.path() / "sub");
  const std::string expected = test::readFile(kSourceDir / "eval/testdata/refusals.txt");
  std::istringstream lines(expected);
  std::string transcript;
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with("$ tovrin-ai-eval ")) continue;
    std::vector<std::string> args{"--endpoint", server.endpoint()};
    std::istringstream words(line.substr(17));
    for (std::string word; words >> std::quoted(word, '\'');) args.push_back(word);
    const test::ProcessResult result = run.run(args);
    const std::size_t firstEnd = result.err.find('\n') + 1;
    const auto more = std::count(result.err.begin() + static_cast<std::ptrdiff_t>(firstEnd), result.err.end(), '\n');
    transcript += line + "\n" + result.err.substr(0, firstEnd);
    if (more > 0) transcript += "(" + std::to_string(more) + " more lines)\n";
    EXPECT_EQ(result.exitStatus, 2) << line;
    EXPECT_EQ(result.out, "") << line;
    EXPECT_TRUE(server.requests().empty()) << line;
    EXPECT_FALSE(fs::exists(run.path() / "r")) << line;
  }
  EXPECT_EQ(transcript, expected);
}

}  // namespace
}  // namespace tovrin::ai::eval
