// Where the reports go: a file written whole or not at all, or standard
// output.
#ifndef TOVRIN_AI_EVAL_REPORT_FILE_HPP_
#define TOVRIN_AI_EVAL_REPORT_FILE_HPP_

#include <string>

#include "options.hpp"

namespace tovrin::ai::eval {

// Why the report paths of options cannot be used: one that names the input
// file, the helper text or the other report (also through another
// spelling, a link, or before the file exists). "" when none does.
std::string reportPathFault(const EvalOptions& options);

// A report named on the command line: "" for none, "-" for standard
// output, otherwise a file. The file is written to a temporary file beside
// it, which is then renamed over it, so that a run that is cut short never
// leaves a truncated report and keeps the previous one until the new one is
// complete.
class ReportFile {
 public:
  explicit ReportFile(std::string path) : path_(std::move(path)) {}

  bool wanted() const { return !path_.empty(); }
  bool toStandardOutput() const { return path_ == "-"; }

  // Before the run, so that a bad path costs no model time: whether a file
  // can be made beside the report. Leaves an existing report as it is.
  // "" when it can, otherwise why not.
  std::string check() const;

  // Writes text whole; "" or why it could not.
  std::string write(const std::string& text) const;

 private:
  std::string path_;
};

}  // namespace tovrin::ai::eval

#endif  // TOVRIN_AI_EVAL_REPORT_FILE_HPP_
