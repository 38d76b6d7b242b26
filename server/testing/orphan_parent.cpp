// A game in miniature for the orphan test: starts the stand-in server
// through the layer, says the server's process id once it is ready, and
// waits to be killed outright. The test then checks the server is gone.
#include <chrono>
#include <cstdio>
#include <thread>

#include "tovrin/ai/model_server.hpp"

int main() {
  tovrin::ai::AiModelServerOptions options;
  options.program = TOVRIN_AI_STAND_IN;
  options.arguments = {"--port", "{port}"};
  tovrin::ai::AiModelServer server(options);
  const tovrin::ai::AiServerStatus status = server.waitUntilSettled(std::chrono::seconds(10));
  if (status.state != tovrin::ai::AiServerState::kReady) return 1;
  std::printf("server process %lld\n", static_cast<long long>(status.processId));
  std::fflush(stdout);
  std::this_thread::sleep_for(std::chrono::seconds(60));
  return 0;
}
