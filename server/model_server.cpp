#include "tovrin/ai/model_server.hpp"

#include <stdexcept>

#include "server/server_shared.hpp"
#include "server/supervisor.hpp"

namespace tovrin::ai {

namespace {

constexpr const char* kStateNames[] = {"starting", "loading", "ready", "restarting", "stopped", "failed"};

bool settled(AiServerState state) {
  return state == AiServerState::kReady || state == AiServerState::kStopped || state == AiServerState::kFailed;
}

// The checks the constructor promises, and the port chosen.
AiModelServerOptions checked(AiModelServerOptions options) {
  const auto positive = [](std::chrono::milliseconds duration) { return duration.count() > 0; };
  if (options.program.empty() && !options.useRunningServer) {
    throw std::invalid_argument("AiModelServerOptions: program is empty");
  }
  if (options.useRunningServer && options.port == 0) {
    throw std::invalid_argument("AiModelServerOptions: useRunningServer needs a fixed port");
  }
  if (!options.healthPath.starts_with('/')) {
    throw std::invalid_argument("AiModelServerOptions: healthPath must start with '/'");
  }
  if (options.failureLimit == 0 || options.unansweredProbeLimit == 0 || options.logTailBytes == 0) {
    throw std::invalid_argument("AiModelServerOptions: a limit is zero");
  }
  if (!positive(options.startDeadline) || options.stopGrace.count() < 0 || !positive(options.restartPause) ||
      !positive(options.maxRestartPause) || !positive(options.failureWindow) || !positive(options.probeInterval) ||
      !positive(options.readyProbeInterval) || !positive(options.probeTimeout)) {
    throw std::invalid_argument("AiModelServerOptions: a duration is not positive");
  }
  if (options.port == 0) {
    // Any free port, asked of the system once and kept across restarts, so
    // that the endpoint the game configured stays right.
    const detail::SocketLibrary library;
    detail::Socket listener;
    if (!library.started() || !detail::listenLoopback(0, listener, options.port)) {
      throw std::runtime_error("AiModelServer: no free loopback port");
    }
  }
  return options;
}

}  // namespace

const char* stateName(AiServerState state) {
  const auto index = static_cast<std::size_t>(state);
  return index < std::size(kStateNames) ? kStateNames[index] : "unknown";
}

AiModelServer::AiModelServer(AiModelServerOptions options)
    : shared_(std::make_shared<detail::ServerShared>(checked(std::move(options)))) {
  shared_->status.since = std::chrono::steady_clock::now();
  shared_->status.port = shared_->options.port;
  shared_->status.endpoint = endpoint("");
  supervisor_ = std::make_unique<detail::Supervisor>(*shared_);
}

AiModelServer::~AiModelServer() = default;  // the supervisor stops the server

AiServerStatus AiModelServer::status() const {
  AiServerStatus copy;
  {
    const std::lock_guard<std::mutex> lock(shared_->mutex);
    copy = shared_->status;
  }
  copy.lastLogLines = shared_->log.lastLines(detail::kStatusLogLines);
  return copy;
}

std::string AiModelServer::endpoint(std::string_view path) const {
  return "http://127.0.0.1:" + std::to_string(shared_->options.port) + std::string(path);
}

std::uint16_t AiModelServer::port() const { return shared_->options.port; }

void AiModelServer::stop() { shared_->post(detail::Command::kStop); }

void AiModelServer::restart() { shared_->post(detail::Command::kRestart); }

std::function<void(std::stop_token)> AiModelServer::waitForModel() const {
  return [weak = std::weak_ptr<detail::ServerShared>(shared_)](std::stop_token token) {
    const std::shared_ptr<detail::ServerShared> shared = weak.lock();
    if (!shared) return;
    std::unique_lock<std::mutex> lock(shared->mutex);
    shared->changed.wait(lock, token, [&] { return settled(shared->status.state); });
  };
}

AiServerStatus AiModelServer::waitUntilSettled(std::chrono::milliseconds timeout) const {
  {
    std::unique_lock<std::mutex> lock(shared_->mutex);
    shared_->changed.wait_for(lock, timeout, [&] { return settled(shared_->status.state); });
  }
  return status();
}

}  // namespace tovrin::ai
