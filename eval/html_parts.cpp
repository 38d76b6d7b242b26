#include "html_parts.hpp"

#include <algorithm>

#include "display_text.hpp"
#include "figure_text.hpp"

namespace tovrin::ai::eval {

namespace {

constexpr double kChartWidth = 320;
constexpr std::size_t kHistogramBins = 10;
constexpr double kBins = static_cast<double>(kHistogramBins);
// A histogram's bars stand on this line and reach at most this high, which
// leaves room above the highest for its count.
constexpr double kBaseline = 98;
constexpr double kTallest = 78;

double share(std::size_t part, std::size_t whole) {
  return whole == 0 ? 0
                    : static_cast<double>(part) / static_cast<double>(whole);
}

std::string bar(const char* kind, double y, std::size_t count,
                std::size_t whole) {
  return "<rect class=\"" + std::string(kind) + "\" x=\"0\" y=\"" +
         fixedText(y, 0) + "\" width=\"" +
         fixedText(kChartWidth * share(count, whole), 1) +
         "\" height=\"10\"></rect>";
}

}  // namespace

std::string htmlText(std::string_view text) {
  std::string out;
  for (char c : validText(text)) {
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

std::string tableRow(const std::vector<std::string>& cells, bool heading) {
  std::string out = "<tr>";
  for (std::size_t i = 0; i < cells.size(); ++i) {
    const bool th = heading || i == 0;
    out += (th ? "<th>" : "<td>") + cells[i] + (th ? "</th>" : "</td>");
  }
  return out + "</tr>\n";
}

std::string scrollBox(const std::string& table) {
  return "<div class=\"wide\">" + table + "</div>\n";
}

std::string rulesTable(const Summary& summary) {
  std::string out = "<table id=\"rules\">\n" +
                    tableRow({"rule", "first", "final", ""}, true);
  const std::size_t runs = summary.overall.requests;
  for (const ReasonCount& reason : summary.reasons) {
    const std::string chart =
        "<svg class=\"rule-chart\" width=\"" + fixedText(kChartWidth, 0) +
        "\" height=\"24\" role=\"img\" aria-label=\"" + htmlText(reason.rule) +
        "\">" + bar("first", 1, reason.firstAttempt, runs) +
        bar("final", 13, reason.final, runs) + "</svg>";
    out += tableRow({htmlText(reason.rule), std::to_string(reason.firstAttempt),
                     std::to_string(reason.final), chart});
  }
  return scrollBox(out + "</table>");
}

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
  const double slot = kChartWidth / kBins;
  std::string out;
  for (const GroupSummary& kind : summary.byKind) {
    std::vector<std::size_t> bins(kHistogramBins);
    for (const EvalResult& result : results) {
      if (kindName(cases[result.caseIndex].request.kind) != kind.name) continue;
      const auto bin = static_cast<std::size_t>(result.latencyMs / binWidth);
      ++bins[std::min(bin, kHistogramBins - 1)];
    }
    const std::size_t highest = *std::max_element(bins.begin(), bins.end());
    std::string svg = "<svg class=\"histogram\" width=\"" +
                      fixedText(kChartWidth, 0) +
                      "\" height=\"120\" role=\"img\" aria-label=\"" +
                      htmlText(kind.name) + "\">";
    for (std::size_t i = 0; i < kHistogramBins; ++i) {
      const auto at = static_cast<double>(i);
      const double height = kTallest * share(bins[i], highest);
      svg += "<rect class=\"hist\" x=\"" + fixedText(slot * at + 1, 1) +
             "\" y=\"" + fixedText(kBaseline - height, 1) + "\" width=\"" +
             fixedText(slot - 2, 1) + "\" height=\"" + fixedText(height, 1) +
             "\"><title>" + fixedText(binWidth * at, decimals) + " to " +
             fixedText(binWidth * (at + 1), decimals) +
             " ms: " + std::to_string(bins[i]) + "</title></rect>";
      if (bins[i] > 0) {
        svg += "<text x=\"" + fixedText(slot * (at + 0.5), 1) + "\" y=\"" +
               fixedText(kBaseline - height - 3, 1) +
               "\" font-size=\"11\" text-anchor=\"middle\">" +
               std::to_string(bins[i]) + "</text>";
      }
    }
    svg +=
        "<text x=\"0\" y=\"114\" font-size=\"12\">0</text>"
        "<text x=\"" +
        fixedText(kChartWidth, 0) +
        "\" y=\"114\" font-size=\"12\" text-anchor=\"end\">" +
        fixedText(slowest, decimals) + " ms</text></svg>";
    out += "<figure><figcaption>" + htmlText(kind.name) + " (" +
           std::to_string(kind.requests) +
           (kind.requests == 1 ? " run" : " runs") + ")</figcaption>" + svg +
           "</figure>\n";
  }
  return out;
}

}  // namespace tovrin::ai::eval
