#include "testing/process_runner.hpp"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <thread>

namespace tovrin::ai::test {

namespace {

std::string readAll(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file),
                     std::istreambuf_iterator<char>());
}

}  // namespace

ProcessResult runProcess(const std::filesystem::path& program,
                         const std::vector<std::string>& arguments,
                         const std::filesystem::path& workingDirectory,
                         std::chrono::milliseconds limit) {
  const std::filesystem::path outPath =
      std::filesystem::temp_directory_path() /
      ("tovrin_ai_out_" + std::to_string(::getpid()));
  const std::filesystem::path errPath = outPath.string() + ".err";

  // Everything the child needs is prepared before fork, so that between
  // fork and exec only async-signal-safe calls run.
  std::vector<std::string> argvStorage{program.string()};
  argvStorage.insert(argvStorage.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& argument : argvStorage) argv.push_back(argument.data());
  argv.push_back(nullptr);
  const std::string directory = workingDirectory.string();
  const std::string outName = outPath.string();
  const std::string errName = errPath.string();

  const pid_t child = ::fork();
  if (child < 0) throw std::runtime_error("fork failed");
  if (child == 0) {
    const int out = ::open(outName.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int err = ::open(errName.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int in = ::open("/dev/null", O_RDONLY);
    if (out < 0 || err < 0 || in < 0 || ::chdir(directory.c_str()) != 0 ||
        ::dup2(in, 0) < 0 || ::dup2(out, 1) < 0 || ::dup2(err, 2) < 0) {
      ::_exit(127);
    }
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }

  ProcessResult result;
  const auto deadline = std::chrono::steady_clock::now() + limit;
  int status = 0;
  for (;;) {
    const pid_t done = ::waitpid(child, &status, WNOHANG);
    if (done == child) break;
    if (std::chrono::steady_clock::now() > deadline) {
      ::kill(child, SIGKILL);
      ::waitpid(child, &status, 0);
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  if (WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
  result.out = readAll(outPath);
  result.err = readAll(errPath);
  std::filesystem::remove(outPath);
  std::filesystem::remove(errPath);
  return result;
}

}  // namespace tovrin::ai::test
