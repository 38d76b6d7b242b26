#include "report_table.hpp"

#include <algorithm>
#include <string>
#include <string_view>

#include "display_text.hpp"
#include "figure_text.hpp"

namespace tovrin::ai::eval {

namespace {

constexpr std::size_t kNameWidth = 30;
constexpr std::size_t kNumberWidth = 10;
// A console line shows the start of an answer or an error body.
constexpr std::size_t kShownBytes = 120;

// Received text as the console may show it.
std::string shown(std::string_view text) { return validText(text, true); }

// Characters, not bytes, so that Czech tag names line up.
std::size_t displayWidth(std::string_view text) {
  std::size_t width = 0;
  for (char c : text) {
    if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) ++width;
  }
  return width;
}

std::string left(std::string_view text, std::size_t width) {
  std::string cell = shown(text);
  const std::size_t columns = displayWidth(cell);
  if (columns < width) cell.append(width - columns, ' ');
  return cell + ' ';
}

std::string right(std::string_view text, std::size_t width = kNumberWidth) {
  const std::string cell = shown(text);
  const std::size_t columns = displayWidth(cell);
  return std::string(columns < width ? width - columns : 0, ' ') + cell;
}

void writeGroups(std::ostream& out, const Summary& summary, bool replay) {
  std::vector<const GroupSummary*> groups{&summary.overall};
  for (const GroupSummary& group : summary.byKind) groups.push_back(&group);
  if (replay) {
    out << left("", kNameWidth) << right("answers") << right("passed")
        << right("rejected") << '\n';
  } else {
    out << left("", kNameWidth) << right("requests") << right("model")
        << right("template") << right("rejected") << right("transport")
        << right("calls") << right("p50 ms") << right("p90 ms")
        << right("p99 ms") << '\n';
  }
  auto row = [&](const GroupSummary& group, const std::string& name) {
    out << left(name, kNameWidth) << right(std::to_string(group.requests))
        << right(std::to_string(group.model));
    if (!replay) {
      out << right(std::to_string(group.templateAnswers));
    }
    out << right(std::to_string(group.rejected));
    if (!replay) {
      out << right(std::to_string(group.transportFailures))
          << right(std::to_string(group.transportCalls))
          << right(fixedText(group.latencyMs.p50, 0))
          << right(fixedText(group.latencyMs.p90, 0))
          << right(fixedText(group.latencyMs.p99, 0));
    }
    out << '\n';
  };
  for (const GroupSummary* group : groups) row(*group, group->name);
  for (const GroupSummary& group : summary.byTag) row(group, "#" + group.name);

  const GroupSummary& all = summary.overall;
  out << '\n';
  if (replay) {
    out << "passed " << percentText(all.model, all.requests) << ", rejected "
        << percentText(all.rejected, all.requests) << '\n';
  } else {
    out << "accepted from the model " << percentText(all.model, all.requests)
        << ", as template " << percentText(all.templateAnswers, all.requests)
        << ", rejected " << percentText(all.rejected, all.requests)
        << ", transport failures "
        << percentText(all.transportFailures, all.requests);
    if (all.timedOut > 0) out << "; " << all.timedOut << " timed out";
    out << '\n';
  }
}

void writeReasons(std::ostream& out, const Summary& summary, bool replay) {
  bool any = false;
  for (const ReasonCount& reason : summary.reasons) {
    if (reason.firstAttempt == 0 && reason.final == 0) continue;
    if (!any) {
      out << '\n' << left("watchdog rule", kNameWidth);
      if (replay) {
        out << right("answers") << '\n';
      } else {
        out << right("first", kNumberWidth + 4) << right("final") << '\n';
      }
      any = true;
    }
    out << left(reason.rule, kNameWidth);
    if (replay) {
      out << right(std::to_string(reason.final)) << '\n';
    } else {
      out << right(std::to_string(reason.firstAttempt), kNumberWidth + 4)
          << right(std::to_string(reason.final)) << '\n';
    }
  }
  if (!any) out << "\nno watchdog rule fired\n";
}

void writeMatrix(std::ostream& out, const LabelSummary& labels,
                 const LabelScore& score, std::string_view whose) {
  out << '\n'
      << kindName(labels.kind) << whose << ": " << score.correct << " of "
      << labels.lines << " labels right ("
      << percentText(score.correct, labels.lines) << ")\n";
  out << "  " << left("expected \\ given", kNameWidth - 2);
  for (const std::string& label : labels.labels) out << right(label);
  out << right(kNoLabel) << '\n';
  for (std::size_t row = 0; row < labels.labels.size(); ++row) {
    out << "  " << left(labels.labels[row], kNameWidth - 2);
    for (std::size_t count : score.matrix[row]) {
      out << right(std::to_string(count));
    }
    out << '\n';
  }
}

// Replayed answers all come from the model, so one score says it all.
void writeLabels(std::ostream& out, const Summary& summary, bool replay) {
  for (const LabelSummary& labels : summary.labels) {
    if (replay) {
      writeMatrix(out, labels, labels.model, "");
      continue;
    }
    writeMatrix(out, labels, labels.model, ", the model's own answers");
    writeMatrix(out, labels, labels.game,
                ", what the game receives (" +
                    std::to_string(labels.templateAnswers) +
                    " from the template)");
  }
  const AnswerScore& answers = summary.expectedAnswers;
  if (answers.lines == 0) return;
  out << "\nexpected answers: " << answers.matchedByModel << " of "
      << answers.lines << " matched by the model";
  if (!replay) {
    out << ", " << answers.matchedForGame << " in what the game receives";
  }
  out << '\n';
}

// The model's last answer, shortened, and the rules it broke; "" when no
// answer came back.
std::string lastAnswerText(const EvalResult& result) {
  std::string text;
  if (result.modelAnswer) {
    text = "the model's last answer \"" +
           shown(cutText(*result.modelAnswer, kShownBytes)) + '"';
  } else if (!result.finalReasons.empty()) {
    text = "the model's last answer";
  }
  if (!result.finalReasons.empty()) {
    text += " broke " + shown(joinedText(result.finalReasons));
  }
  return text;
}

void writeMisses(std::ostream& out, const std::vector<EvalCase>& cases,
                 const std::vector<EvalResult>& results, bool replay) {
  bool any = false;
  for (const EvalResult& result : results) {
    if (result.outcome == Outcome::kModel) continue;
    if (!any) {
      out << '\n'
          << (replay ? "rejected answers:\n" : "not answered by the model:\n");
      any = true;
    }
    out << "  line " << cases[result.caseIndex].line;
    if (replay) {
      out << ": " << shown(joinedText(result.finalReasons)) << '\n';
      continue;
    }
    std::string outcome(outcomeName(result.outcome));
    std::replace(outcome.begin(), outcome.end(), '_', ' ');
    out << ", run " << result.run << ": " << outcome;
    // A template label passes for an answer: "OK" lets a message through.
    if (const EvalCase& evalCase = cases[result.caseIndex];
        result.outcome == Outcome::kTemplate &&
        !labelsOf(evalCase.request.kind).empty()) {
      out << " " << shown(result.response.answer);
      if (evalCase.expected && *evalCase.expected != result.response.answer) {
        out << " (expected " << shown(*evalCase.expected) << ")";
      }
    }
    if (const std::string said = lastAnswerText(result); !said.empty()) {
      out << ", " << said;
    }
    if (!result.response.error.empty()) {
      out << ", error" << (result.timedOut ? " (timed out)" : "") << ": "
          << shown(result.response.error);
    }
    if (!result.errorBody.empty()) {
      out << "; the server said: "
          << shown(cutText(result.errorBody, kShownBytes));
    }
    out << '\n';
  }
}

}  // namespace

void writeTable(std::ostream& out, const EvalOptions& options,
                const std::vector<EvalCase>& cases,
                const std::vector<EvalResult>& results, const Summary& summary,
                const RunStatus& status) {
  if (options.replay) {
    out << "tovrin-ai-eval --replay: " << results.size()
        << " answers judged by the watchdog";
    if (results.size() < cases.size()) {
      out << ", " << cases.size() - results.size()
          << " lines without an answer left out";
    }
    out << "\n\n";
  } else {
    out << "tovrin-ai-eval: " << results.size() << " requests from "
        << cases.size() << (cases.size() == 1 ? " line" : " lines");
    if (options.repeat > 1) out << " (" << options.repeat << " runs each)";
    out << ", model " << shown(options.model) << " at "
        << shown(options.endpoint);
    if (!options.fallbackEndpoint.empty() && !options.fallbackModel.empty()) {
      out << ", fallback " << shown(options.fallbackModel) << " at "
          << shown(options.fallbackEndpoint);
    }
    out << (options.helperPath.empty()
                ? ", no helper text"
                : ", helper text " + shown(options.helperPath));
    out << '\n';
    if (status.end != RunEnd::kComplete) {
      out << "partial report: "
          << (status.end == RunEnd::kInterrupted
                  ? "interrupted"
                  : "stopped because requests kept timing out")
          << " after " << results.size() << " of " << status.planned
          << " requests; the rest did not run\n";
    }
    out << '\n';
  }
  writeGroups(out, summary, options.replay);
  writeReasons(out, summary, options.replay);
  writeLabels(out, summary, options.replay);
  writeMisses(out, cases, results, options.replay);
}

}  // namespace tovrin::ai::eval
