#include "report_file.hpp"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <string_view>
#include <system_error>

namespace tovrin::ai::eval {

namespace {

namespace fs = std::filesystem;

// Also for a report file that does not exist yet and is named differently.
bool sameFile(const std::string& a, const std::string& b) {
  std::error_code error;
  if (fs::equivalent(a, b, error)) return true;
  const fs::path left = fs::absolute(a, error).lexically_normal();
  if (error) return false;
  const fs::path right = fs::absolute(b, error).lexically_normal();
  return !error && left == right;
}

bool isFilePath(const std::string& path) {
  return !path.empty() && path != "-";
}

// A name beside path that no other run picks at the same time.
fs::path temporaryBeside(const std::string& path) {
  std::random_device random;
  return fs::path(path + "." + std::to_string(random()) + ".tmp");
}

std::string cannotWrite(const std::string& path) {
  return "cannot write " + path;
}

}  // namespace

std::string reportPathFault(const EvalOptions& options) {
  struct Report {
    std::string_view option;
    const std::string& path;
  };
  const Report reports[] = {{"--json", options.jsonReport},
                            {"--html", options.htmlReport}};
  for (const Report& report : reports) {
    if (!isFilePath(report.path)) continue;
    if (options.input != "-" && sameFile(report.path, options.input)) {
      return std::string(report.option) + " names the input file " +
             options.input;
    }
    if (!options.helperPath.empty() &&
        sameFile(report.path, options.helperPath)) {
      return std::string(report.option) + " names the helper text " +
             options.helperPath;
    }
  }
  if (isFilePath(options.jsonReport) && isFilePath(options.htmlReport) &&
      sameFile(options.jsonReport, options.htmlReport)) {
    return "--json and --html name the same file " + options.jsonReport;
  }
  return "";
}

std::string ReportFile::check() const {
  if (!isFilePath(path_)) return "";
  std::error_code error;
  if (fs::is_directory(path_, error)) return path_ + " is a directory";
  const fs::path probe = temporaryBeside(path_);
  const bool made = static_cast<bool>(std::ofstream(probe, std::ios::binary));
  fs::remove(probe, error);
  return made ? "" : cannotWrite(path_);
}

std::string ReportFile::write(const std::string& text) const {
  if (path_.empty()) return "";
  if (toStandardOutput()) {
    std::cout << text;
    return "";
  }
  const fs::path temporary = temporaryBeside(path_);
  std::ofstream file(temporary, std::ios::binary);
  file << text;
  file.close();
  std::error_code error;
  if (file) fs::rename(temporary, path_, error);
  if (!file || error) {
    fs::remove(temporary, error);
    return cannotWrite(path_);
  }
  return "";
}

}  // namespace tovrin::ai::eval
