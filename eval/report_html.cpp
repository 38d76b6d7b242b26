#include "report_html.hpp"

#include <string_view>
#include <utility>

#include "display_text.hpp"
#include "figure_text.hpp"
#include "html_parts.hpp"

namespace tovrin::ai::eval {

namespace {

// The page; each @NAME@ is filled in once, in order.
constexpr std::string_view kPage = R"(<!DOCTYPE html>
<html lang="cs">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>tovrin-ai-eval: @MODEL@</title>
<style>
body{font:15px/1.45 system-ui,sans-serif;color:#222;max-width:1100px;margin:1.5em auto;padding:0 1em;overflow-wrap:anywhere}
h1{font-size:1.5em}h2{font-size:1.2em;margin-top:1.8em;border-bottom:2px solid #4a78b5}
.wide{overflow-x:auto;max-width:100%;margin:.4em 0 1em}
table{border-collapse:collapse}
th,td{padding:.2em .7em;border-bottom:1px solid #ddd;text-align:right;vertical-align:top;overflow-wrap:normal}
th:first-child,td.text{text-align:left}td.text{max-width:30em}td.free{min-width:7em;overflow-wrap:anywhere}
.first{fill:#4a78b5}.final{fill:#d9822b}.hist{fill:#6a9a5b}
.key{display:inline-block;width:.9em;height:.9em;margin:0 .3em 0 1em}
.histograms,.matrices{display:flex;flex-wrap:wrap;gap:1.5em 3em}
figure{margin:0;max-width:100%}figcaption{font-weight:bold}
.partial{background:#fbe3c8;border-left:4px solid #d9822b;padding:.4em .7em}
.said{color:#555}
#misses th,#misses td{text-align:left}
</style>
</head>
<body>
<h1>tovrin-ai-eval: @MODEL@</h1>
@PARTIAL@<p>@HEADLINE@</p>
<h2>Summary</h2>
@SUMMARY@
<h2>Watchdog rules</h2>
<p>Runs in which a rule fired:<span class="key" style="background:#4a78b5"></span>on the first model answer<span class="key" style="background:#d9822b"></span>on the final one</p>
@RULES@
<h2>Latency per kind</h2>
<div class="histograms">@LATENCY@</div>
<h2>Labels</h2>
@LABELS@
@MISSES@
<h2>Settings</h2>
@SETTINGS@
</body>
</html>
)";

std::string cell(std::string_view text) {
  return "<td class=\"text\">" + htmlText(text) + "</td>";
}

// A cell of received text, which may hold words longer than any screen.
std::string freeCell(std::string_view text) {
  return "<td class=\"text free\">" + htmlText(text) + "</td>";
}

std::string summaryTable(const Summary& summary, bool replay) {
  std::string out = "<table id=\"summary\">\n";
  out += replay ? tableRow({"", "answers", "passed", "rejected"}, true)
                : tableRow({"", "requests", "model", "template", "rejected",
                            "transport", "calls", "p50 ms", "p90 ms",
                            "p99 ms"},
                           true);
  auto add = [&](const GroupSummary& group, const std::string& name) {
    if (replay) {
      out += tableRow({htmlText(name), std::to_string(group.requests),
                       std::to_string(group.model),
                       std::to_string(group.rejected)});
      return;
    }
    out += tableRow(
        {htmlText(name), std::to_string(group.requests),
         std::to_string(group.model), std::to_string(group.templateAnswers),
         std::to_string(group.rejected),
         std::to_string(group.transportFailures),
         std::to_string(group.transportCalls),
         fixedText(group.latencyMs.p50, 0), fixedText(group.latencyMs.p90, 0),
         fixedText(group.latencyMs.p99, 0)});
  };
  add(summary.overall, summary.overall.name);
  for (const GroupSummary& group : summary.byKind) add(group, group.name);
  for (const GroupSummary& group : summary.byTag) add(group, "#" + group.name);
  return scrollBox(out + "</table>");
}

// Each cell shaded by its share of the row: blue where given equals
// expected, orange where it does not.
std::string matrixTable(const LabelSummary& labels, const LabelScore& score,
                        const std::string& caption) {
  std::string out = "<figure><figcaption>" + htmlText(caption) + "<br>" +
                    std::to_string(score.correct) + " of " +
                    std::to_string(labels.lines) + " right (" +
                    percentText(score.correct, labels.lines) +
                    ")</figcaption>\n";
  std::string table = "<table class=\"matrix\">\n";
  std::vector<std::string> heading{"expected \\ given"};
  for (const std::string& label : labels.labels) heading.push_back(label);
  heading.emplace_back(kNoLabel);
  table += tableRow(heading, true);
  for (std::size_t r = 0; r < labels.labels.size(); ++r) {
    std::size_t rowTotal = 0;
    for (std::size_t count : score.matrix[r]) rowTotal += count;
    table += "<tr><th>" + htmlText(labels.labels[r]) + "</th>";
    for (std::size_t c = 0; c < score.matrix[r].size(); ++c) {
      const std::size_t count = score.matrix[r][c];
      const double share = rowTotal == 0 ? 0
                                         : static_cast<double>(count) /
                                               static_cast<double>(rowTotal);
      table += "<td style=\"background:rgba(" +
               std::string(c == r ? "74,120,181," : "217,130,43,") +
               fixedText(0.8 * share, 2) + ")\">" + std::to_string(count) +
               "</td>";
    }
    table += "</tr>\n";
  }
  return out + scrollBox(table + "</table>") + "</figure>\n";
}

std::string labelSection(const Summary& summary, bool replay) {
  std::string out;
  for (const LabelSummary& labels : summary.labels) {
    const std::string kind = kindName(labels.kind);
    if (replay) {
      out += matrixTable(labels, labels.model, kind);
      continue;
    }
    out +=
        "<div class=\"matrices\">" +
        matrixTable(labels, labels.model, kind + ", the model's own answers") +
        matrixTable(labels, labels.game,
                    kind + ", what the game receives (" +
                        std::to_string(labels.templateAnswers) +
                        " from the template)") +
        "</div>\n";
  }
  const AnswerScore& answers = summary.expectedAnswers;
  if (answers.lines > 0) {
    out += "<p>Expected answers: " + std::to_string(answers.matchedByModel) +
           " of " + std::to_string(answers.lines) + " matched by the model";
    if (!replay) {
      out += ", " + std::to_string(answers.matchedForGame) +
             " in what the game receives";
    }
    out += ".</p>\n";
  }
  return out.empty() ? "<p>No line names an expected label or answer.</p>\n"
                     : out;
}

// The runtime's error, then what the server sent with it, when known.
std::string errorCell(const EvalResult& result) {
  std::string text = htmlText(result.response.error);
  if (!result.errorBody.empty()) {
    text += "<br><span class=\"said\">the server said: " +
            htmlText(result.errorBody) + "</span>";
  }
  return "<td class=\"text free\">" + text + "</td>";
}

std::string missesTable(const std::vector<EvalCase>& cases,
                        const std::vector<EvalResult>& results, bool replay) {
  std::string out =
      "<table id=\"misses\">\n" +
      tableRow({"line", "run", "kind", "outcome", "message", "expected",
                "the game got", "the model's last answer",
                "rules of the last model answer", "error"},
               true);
  bool any = false;
  for (const EvalResult& result : results) {
    if (result.outcome == Outcome::kModel) continue;
    any = true;
    const EvalCase& evalCase = cases[result.caseIndex];
    const std::string outcome = std::string(outcomeName(result.outcome)) +
                                (result.timedOut ? ", timed out" : "");
    out += "<tr><th>" + std::to_string(evalCase.line) + "</th><td>" +
           std::to_string(result.run) + "</td>" +
           cell(kindName(evalCase.request.kind)) + cell(outcome) +
           freeCell(cutText(evalCase.request.message, kKeptTextBytes)) +
           freeCell(cutText(evalCase.expected.value_or(""), kKeptTextBytes)) +
           (result.response.ok ? freeCell(result.response.answer)
                               : "<td class=\"text\">nothing</td>") +
           freeCell(replay ? result.response.answer
                           : result.modelAnswer.value_or("")) +
           freeCell(joinedText(result.finalReasons)) + errorCell(result) +
           "</tr>\n";
  }
  if (!any) return "<h2>Every request answered by the model</h2>\n";
  return std::string(replay ? "<h2>Rejected answers</h2>\n"
                            : "<h2>Not answered by the model</h2>\n") +
         scrollBox(out + "</table>");
}

std::string settingsTable(const EvalOptions& options) {
  std::vector<std::pair<std::string, std::string>> settings{
      {"mode", options.replay ? "replay" : "model"}, {"input", options.input}};
  if (!options.replay) {
    settings.insert(
        settings.end(),
        {{"endpoint", options.endpoint},
         {"model", options.model},
         {"fallback endpoint", options.fallbackEndpoint},
         {"fallback model", options.fallbackModel},
         {"timeout ms", std::to_string(options.timeoutMs)},
         {"deadline ms", std::to_string(requestDeadline(options).count())},
         {"stop after timed-out requests", std::to_string(options.stopAfter)},
         {"temperature", shortestText(options.temperature)},
         {"top-p", shortestText(options.topP)},
         {"helper text",
          options.helperPath.empty() ? "none used" : options.helperPath},
         {"repeat", std::to_string(options.repeat)},
         {"concurrency", std::to_string(options.concurrency)}});
  }
  std::string out = "<table id=\"settings\">\n";
  for (const auto& [name, value] : settings) {
    out += "<tr><th>" + htmlText(name) + "</th>" + cell(value) + "</tr>\n";
  }
  return scrollBox(out + "</table>");
}

std::string headline(const EvalOptions& options, const Summary& summary) {
  const GroupSummary& all = summary.overall;
  if (options.replay) {
    return std::to_string(all.requests) +
           " recorded answers judged by the watchdog: passed " +
           percentText(all.model, all.requests) + ", rejected " +
           percentText(all.rejected, all.requests) + ".";
  }
  return std::to_string(all.requests) + " requests. Accepted from the model " +
         percentText(all.model, all.requests) + ", as template " +
         percentText(all.templateAnswers, all.requests) + ", rejected " +
         percentText(all.rejected, all.requests) + ", transport failures " +
         percentText(all.transportFailures, all.requests) +
         (all.timedOut > 0 ? "; " + std::to_string(all.timedOut) + " timed out"
                           : "") +
         ".";
}

std::string partialNote(const RunStatus& status, std::size_t finished) {
  if (status.end == RunEnd::kComplete) return "";
  return "<p class=\"partial\">Partial report: " +
         std::string(status.end == RunEnd::kInterrupted
                         ? "the run was interrupted"
                         : "the run stopped because requests kept timing out") +
         " after " + std::to_string(finished) + " of " +
         std::to_string(status.planned) + " requests.</p>\n";
}

}  // namespace

std::string htmlReport(const EvalOptions& options,
                       const std::vector<EvalCase>& cases,
                       const std::vector<EvalResult>& results,
                       const Summary& summary, const RunStatus& status) {
  const std::string model = options.replay ? "replay" : htmlText(options.model);
  const std::pair<std::string_view, std::string> fills[] = {
      {"@MODEL@", model},
      {"@MODEL@", model},
      {"@PARTIAL@", partialNote(status, results.size())},
      {"@HEADLINE@", htmlText(headline(options, summary))},
      {"@SUMMARY@", summaryTable(summary, options.replay)},
      {"@RULES@", rulesTable(summary)},
      {"@LATENCY@", latencyHistograms(cases, results, summary)},
      {"@LABELS@", labelSection(summary, options.replay)},
      {"@MISSES@", missesTable(cases, results, options.replay)},
      {"@SETTINGS@", settingsTable(options)},
  };
  std::string page(kPage);
  std::size_t from = 0;
  for (const auto& [name, text] : fills) {
    const std::size_t at = page.find(name, from);
    page.replace(at, name.size(), text);
    from = at + text.size();
  }
  return page;
}

}  // namespace tovrin::ai::eval
