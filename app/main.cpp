// tovrin-ai: sends one short-answer request through the runtime and prints
// the outcome in a fixed, machine-readable form.
//
//   stdout: ok=<bool> model=<name> attempts=<n> fallback=<bool>
//           <answer>                (only when the answer is not empty)
//   stderr: <error>                 (only when the error is not empty)
//   exit:   0 when an answer was accepted, 2 otherwise
#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>

#include "console_output.hpp"
#include "tovrin/ai.hpp"

namespace {

constexpr const char* kTestSentence =
    "Řekni jednou krátkou větou, že lokální AI v Tovrin Engine funguje.";

// The library's standard configuration; the helper path is converted
// before the runtime exists, so that text the platform cannot decode ends
// the run before any request is made.
tovrin::ai::AiRuntimeConfig standardConfig() {
  tovrin::ai::AiRuntimeConfig config;
  config.helperPath =
      tovrin::ai::app::narrowToPath(tovrin::ai::kDefaultHelperPath);
  return config;
}

int run(int argc, char** argv) {
  const tovrin::ai::AiRuntime runtime(standardConfig(), tovrin::ai::AiTransport{});

  tovrin::ai::AiRequest request;
  request.message = argc > 1 ? std::string(argv[1]) : std::string(kTestSentence);
  request.kind = tovrin::ai::AiRequestKind::ShortAnswer;

  const tovrin::ai::AiResponse response = runtime.ask(request);
  tovrin::ai::app::writeResponse(response);
  return response.ok ? 0 : 2;
}

}  // namespace

int main(int argc, char** argv) {
  tovrin::ai::app::prepareConsole();
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    // The runtime reports ordinary failures in its response; anything that
    // escapes it (running out of memory, say) still ends in a status line,
    // the error and the failure status, so scripts read one form only.
    tovrin::ai::AiResponse failed;
    failed.error = error.what();
    tovrin::ai::app::writeResponse(failed);
    return 2;
  }
}
