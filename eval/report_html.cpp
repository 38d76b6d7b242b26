#include "report_html.hpp"

#include <algorithm>
#include <string_view>
#include <utility>

#include "figure_text.hpp"

namespace tovrin::ai::eval {

namespace {

// The page; each @NAME@ is filled in once, in order.
constexpr std::string_view kPage = R"(<!DOCTYPE html>
<html lang="cs">
<head>
<meta charset="utf-8">
<title>tovrin-ai-eval: @MODEL@</title>
<style>
body{font:15px/1.45 system-ui,sans-serif;color:#222;max-width:1100px;margin:1.5em auto;padding:0 1em}
h1{font-size:1.5em}h2{font-size:1.2em;margin-top:1.8em;border-bottom:2px solid #4a78b5}
table{border-collapse:collapse;margin:.4em 0 1em}
th,td{padding:.2em .7em;border-bottom:1px solid #ddd;text-align:right;vertical-align:top}
th:first-child,td.text{text-align:left}td.text{max-width:30em}
.first{fill:#4a78b5}.final{fill:#d9822b}.hist{fill:#6a9a5b}
.key{display:inline-block;width:.9em;height:.9em;margin:0 .3em 0 1em}
.histograms,.matrices{display:flex;flex-wrap:wrap;gap:1.5em 3em}
figure{margin:0}figcaption{font-weight:bold}
#misses th,#misses td{text-align:left}
</style>
</head>
<body>
<h1>tovrin-ai-eval: @MODEL@</h1>
<p>@HEADLINE@</p>
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

constexpr double kChartWidth = 320;
constexpr std::size_t kHistogramBins = 10;
constexpr double kBins = static_cast<double>(kHistogramBins);

std::string escape(std::string_view text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&#39;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

double share(std::size_t part, std::size_t whole) {
  return whole == 0 ? 0
                    : static_cast<double>(part) / static_cast<double>(whole);
}

// "<tr><th>a</th><td>b</td>...</tr>": the first cell names the row.
std::string row(const std::vector<std::string>& cells, bool heading = false) {
  std::string out = "<tr>";
  for (std::size_t i = 0; i < cells.size(); ++i) {
    const bool th = heading || i == 0;
    out += (th ? "<th>" : "<td>") + cells[i] + (th ? "</th>" : "</td>");
  }
  return out + "</tr>\n";
}

std::string summaryTable(const Summary& summary, bool replay) {
  std::string out = "<table id=\"summary\">\n";
  out += replay ? row({"", "answers", "passed", "rejected"}, true)
                : row({"", "requests", "model", "template", "rejected",
                       "transport", "calls", "p50 ms", "p90 ms", "p99 ms"},
                      true);
  auto add = [&](const GroupSummary& group, const std::string& name) {
    if (replay) {
      out += row({escape(name), std::to_string(group.requests),
                  std::to_string(group.model), std::to_string(group.rejected)});
      return;
    }
    out += row(
        {escape(name), std::to_string(group.requests),
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
  return out + "</table>\n";
}

std::string bar(const char* kind, double y, std::size_t count,
                std::size_t whole) {
  return "<rect class=\"" + std::string(kind) + "\" x=\"0\" y=\"" +
         fixedText(y, 0) + "\" width=\"" +
         fixedText(kChartWidth * share(count, whole), 1) +
         "\" height=\"10\"></rect>";
}

std::string rulesTable(const Summary& summary) {
  std::string out =
      "<table id=\"rules\">\n" + row({"rule", "first", "final", ""}, true);
  const std::size_t runs = summary.overall.requests;
  for (const ReasonCount& reason : summary.reasons) {
    const std::string chart =
        "<svg class=\"rule-chart\" width=\"" + fixedText(kChartWidth, 0) +
        "\" height=\"24\" role=\"img\" aria-label=\"" + escape(reason.rule) +
        "\">" + bar("first", 1, reason.firstAttempt, runs) +
        bar("final", 13, reason.final, runs) + "</svg>";
    out += row({escape(reason.rule), std::to_string(reason.firstAttempt),
                std::to_string(reason.final), chart});
  }
  return out + "</table>\n";
}

// Bins of equal width from 0 to the slowest run of all kinds, so that the
// kinds can be compared at a glance.
std::string latencyHistograms(const std::vector<EvalCase>& cases,
                              const std::vector<EvalResult>& results,
                              const Summary& summary) {
  double slowest = 0;
  for (const EvalResult& result : results) {
    slowest = std::max(slowest, result.latencyMs);
  }
  // Replayed judgements take microseconds, model calls seconds.
  const int decimals = slowest < 1 ? 3 : slowest < 10 ? 1 : 0;
  const double binWidth = slowest > 0 ? slowest / kBins : 1.0 / kBins;
  std::string out;
  for (const GroupSummary& kind : summary.byKind) {
    std::vector<std::size_t> bins(kHistogramBins);
    for (const EvalResult& result : results) {
      if (kindName(cases[result.caseIndex].request.kind) != kind.name) continue;
      const auto bin = static_cast<std::size_t>(result.latencyMs / binWidth);
      ++bins[std::min(bin, kHistogramBins - 1)];
    }
    const std::size_t highest = *std::max_element(bins.begin(), bins.end());
    const double slot = kChartWidth / kBins;
    std::string svg = "<svg class=\"histogram\" width=\"" +
                      fixedText(kChartWidth, 0) +
                      "\" height=\"120\" role=\"img\" aria-label=\"" +
                      escape(kind.name) + "\">";
    for (std::size_t i = 0; i < kHistogramBins; ++i) {
      const auto at = static_cast<double>(i);
      const double height = 90 * share(bins[i], highest);
      svg += "<rect class=\"hist\" x=\"" + fixedText(slot * at + 1, 1) +
             "\" y=\"" + fixedText(95 - height, 1) + "\" width=\"" +
             fixedText(slot - 2, 1) + "\" height=\"" + fixedText(height, 1) +
             "\"><title>" + fixedText(binWidth * at, decimals) + " to " +
             fixedText(binWidth * (at + 1), decimals) +
             " ms: " + std::to_string(bins[i]) + "</title></rect>";
    }
    svg +=
        "<text x=\"0\" y=\"114\" font-size=\"12\">0</text>"
        "<text x=\"" +
        fixedText(kChartWidth, 0) +
        "\" y=\"114\" font-size=\"12\" text-anchor=\"end\">" +
        fixedText(slowest, decimals) + " ms</text></svg>";
    out += "<figure><figcaption>" + escape(kind.name) + " (" +
           std::to_string(kind.requests) + " runs)</figcaption>" + svg +
           "</figure>\n";
  }
  return out;
}

// Each cell shaded by its share of the row: blue where given equals
// expected, orange where it does not.
std::string matrixTable(const LabelSummary& labels, const LabelScore& score,
                        const std::string& caption) {
  std::string out = "<figure><figcaption>" + escape(caption) + "<br>" +
                    std::to_string(score.correct) + " of " +
                    std::to_string(labels.lines) + " right (" +
                    percentText(score.correct, labels.lines) +
                    ")</figcaption>\n<table class=\"matrix\">\n";
  std::vector<std::string> heading{"expected \\ given"};
  for (const std::string& label : labels.labels) heading.push_back(label);
  heading.emplace_back(kNoLabel);
  out += row(heading, true);
  for (std::size_t r = 0; r < labels.labels.size(); ++r) {
    std::size_t rowTotal = 0;
    for (std::size_t count : score.matrix[r]) rowTotal += count;
    out += "<tr><th>" + escape(labels.labels[r]) + "</th>";
    for (std::size_t c = 0; c < score.matrix[r].size(); ++c) {
      const std::size_t count = score.matrix[r][c];
      out += "<td style=\"background:rgba(" +
             std::string(c == r ? "74,120,181," : "217,130,43,") +
             fixedText(0.8 * share(count, rowTotal), 2) + ")\">" +
             std::to_string(count) + "</td>";
    }
    out += "</tr>\n";
  }
  return out + "</table></figure>\n";
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

std::string missesTable(const std::vector<EvalCase>& cases,
                        const std::vector<EvalResult>& results, bool replay) {
  std::string out =
      std::string(replay ? "<h2>Rejected answers</h2>\n"
                         : "<h2>Not answered by the model</h2>\n") +
      "<table id=\"misses\">\n" +
      row({"line", "run", "kind", "outcome", "message", "expected",
           "the game got", "rules of the last model answer", "error"},
          true);
  bool any = false;
  for (const EvalResult& result : results) {
    if (result.outcome == Outcome::kModel) continue;
    any = true;
    const EvalCase& evalCase = cases[result.caseIndex];
    out +=
        "<tr><th>" + std::to_string(evalCase.line) + "</th><td>" +
        std::to_string(result.run) + "</td><td class=\"text\">" +
        escape(kindName(evalCase.request.kind)) + "</td><td class=\"text\">" +
        escape(outcomeName(result.outcome)) + "</td><td class=\"text\">" +
        escape(evalCase.request.message) + "</td><td class=\"text\">" +
        escape(evalCase.expected.value_or("")) + "</td><td class=\"text\">" +
        (result.response.ok ? escape(result.response.answer) : "nothing") +
        "</td><td class=\"text\">" + escape(joinedText(result.finalReasons)) +
        "</td><td class=\"text\">" + escape(result.response.error) +
        "</td></tr>\n";
  }
  if (!any) return "<h2>Every request answered by the model</h2>\n";
  return out + "</table>\n";
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
         {"temperature", shortestText(options.temperature)},
         {"top-p", shortestText(options.topP)},
         {"helper text",
          options.helperPath.empty() ? "none used" : options.helperPath},
         {"repeat", std::to_string(options.repeat)},
         {"concurrency", std::to_string(options.concurrency)}});
  }
  std::string out = "<table id=\"settings\">\n";
  for (const auto& [name, value] : settings) {
    out += "<tr><th>" + escape(name) + "</th><td class=\"text\">" +
           escape(value) + "</td></tr>\n";
  }
  return out + "</table>\n";
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
         percentText(all.transportFailures, all.requests) + ".";
}

}  // namespace

std::string htmlReport(const EvalOptions& options,
                       const std::vector<EvalCase>& cases,
                       const std::vector<EvalResult>& results,
                       const Summary& summary) {
  const std::string model = options.replay ? "replay" : escape(options.model);
  const std::pair<std::string_view, std::string> fills[] = {
      {"@MODEL@", model},
      {"@MODEL@", model},
      {"@HEADLINE@", escape(headline(options, summary))},
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
