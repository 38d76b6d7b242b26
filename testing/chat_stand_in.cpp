// A loopback chat-completion server for the tests of programs that are not
// C++ (the C interface's test, the C# example): it serves while it runs
// the program given, with "{endpoint}" in its arguments replaced by the
// server's chat-completion URL, passes the program's output through and
// exits with its status.
//
//   chat_stand_in [--answer TEXT | --echo] [--delay-ms N] -- PROGRAM [ARGUMENT...]
//
// Every request gets the answer (JSON string contents, escapes as written),
// or with --echo the request's own bytes, after the delay; connections are
// served side by side.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

#include "testing/loopback_server.hpp"
#include "testing/process_runner.hpp"
#include "tovrin/ai/transport.hpp"

namespace test = tovrin::ai::test;

namespace {

constexpr const char* kUsage =
    "usage: chat_stand_in [--answer TEXT | --echo] [--delay-ms N] -- PROGRAM [ARGUMENT...]\n";

int usage() {
  std::fputs(kUsage, stderr);
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  std::string answer = "Dobrý den, poutníku. Pivo stojí 4 mince.";
  long delayMs = 0;
  bool echo = false;
  int at = 1;
  for (; at < argc && std::string(argv[at]) != "--"; at += 2) {
    const std::string flag = argv[at];
    if (flag == "--echo") {
      echo = true;
      --at;
    } else if (at + 1 >= argc) {
      return usage();
    } else if (flag == "--answer") {
      answer = argv[at + 1];
    } else if (flag == "--delay-ms") {
      delayMs = std::strtol(argv[at + 1], nullptr, 10);
    } else {
      return usage();
    }
  }
  if (at + 1 >= argc) return usage();
  try {
    test::LoopbackStep step = test::delayedStep(
        std::chrono::milliseconds(delayMs), test::chatCompletionStep(answer));
    if (echo) {
      step.respond = [](const std::string& request) {
        return test::chatCompletionStep(tovrin::ai::jsonEscape(request)).answer;
      };
    }
    const test::LoopbackServer server({step}, 0, test::Serving::kConcurrently);
    std::vector<std::string> arguments(argv + at + 2, argv + argc);
    for (std::string& argument : arguments) {
      if (argument == "{endpoint}") argument = server.endpoint();
    }
    const test::ProcessResult result = test::runProcess(
        argv[at + 1], arguments, std::filesystem::current_path());
    std::fwrite(result.out.data(), 1, result.out.size(), stdout);
    std::fwrite(result.err.data(), 1, result.err.size(), stderr);
    return result.exitStatus;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "chat_stand_in: %s\n", e.what());
    return 3;
  }
}
