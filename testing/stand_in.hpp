// The stand-in model server (server/testing) as the model-server layer's
// tests start it, and a bounded wait for the layer's status.
#ifndef TOVRIN_AI_TESTING_STAND_IN_HPP_
#define TOVRIN_AI_TESTING_STAND_IN_HPP_

#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "tovrin/ai/model_server.hpp"

namespace tovrin::ai::test {

// The stand-in on the chosen port with flags, quick to restart and stop.
inline AiModelServerOptions standIn(const std::vector<std::string>& flags = {}) {
  AiModelServerOptions options;
  options.program = TOVRIN_AI_STAND_IN;
  options.arguments = {"--port", "{port}"};
  options.arguments.insert(options.arguments.end(), flags.begin(), flags.end());
  options.restartPause = std::chrono::milliseconds(100);
  options.stopGrace = std::chrono::milliseconds(500);
  return options;
}

// The status once done(status) holds, polled as a frame would; the last
// status read when limit passes first.
inline AiServerStatus statusWhen(const AiModelServer& server, const std::function<bool(const AiServerStatus&)>& done,
                                 std::chrono::milliseconds limit = std::chrono::seconds(10)) {
  const auto end = std::chrono::steady_clock::now() + limit;
  AiServerStatus status = server.status();
  while (!done(status) && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    status = server.status();
  }
  return status;
}

// In state, and when line is given, with a log line that starts with it:
// the output is drained on a thread of its own and may trail the state.
inline std::function<bool(const AiServerStatus&)> inState(AiServerState state, std::string line = {}) {
  return [state, line](const AiServerStatus& status) {
    if (status.state != state) return false;
    for (const std::string& logged : status.lastLogLines) {
      if (logged.starts_with(line)) return true;
    }
    return line.empty();
  };
}

}  // namespace tovrin::ai::test

#endif  // TOVRIN_AI_TESTING_STAND_IN_HPP_
