// The model-server layer through the C interface: options, start, status,
// stop, restart, and a service that waits for the server's model.
#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "capi/c_service.hpp"
#include "tovrin/ai/model_server.hpp"
#include "tovrin/ai_c_server.h"

namespace tovrin::ai::detail {

namespace {

static_assert(TOVRIN_AI_SERVER_STARTING == int(AiServerState::kStarting));
static_assert(TOVRIN_AI_SERVER_LOADING == int(AiServerState::kLoading));
static_assert(TOVRIN_AI_SERVER_READY == int(AiServerState::kReady));
static_assert(TOVRIN_AI_SERVER_RESTARTING == int(AiServerState::kRestarting));
static_assert(TOVRIN_AI_SERVER_STOPPED == int(AiServerState::kStopped));
static_assert(TOVRIN_AI_SERVER_FAILED == int(AiServerState::kFailed));

constexpr std::initializer_list<std::size_t> kOptionsSizes = {
    sizeof(tovrin_ai_model_server_options)};
constexpr std::initializer_list<std::size_t> kStatusSizes = {
    sizeof(tovrin_ai_model_server_status)};

struct ServerObject {
  explicit ServerObject(AiModelServerOptions options)
      : server(std::move(options)), chatEndpoint(server.endpoint()) {}

  AiModelServer server;
  const std::string chatEndpoint;
  AiServerStatus status;  // the last one read, whose texts were handed out
};

ServerObject& serverOf(const tovrin_ai_model_server* handle, Shell*& where) {
  return objectOf<ServerObject>(handle, HandleKind::kModelServer, "server",
                                where);
}

std::filesystem::path pathIn(const char* data, std::size_t size,
                             const char* what) {
  const std::string text = textIn(data, size, what);
  return std::filesystem::path(std::u8string(text.begin(), text.end()));
}

// "a\0b\0" to {"a", "b"}: a NUL ends every argument.
std::vector<std::string> argumentsIn(const char* data, std::size_t size) {
  const std::string all = textIn(data, size, "options->arguments");
  if (!all.empty() && all.back() != '\0') {
    throw CFailure(TOVRIN_AI_ERR_INVALID_ARGUMENT,
                   "options->arguments must end with a NUL byte");
  }
  std::vector<std::string> arguments;
  for (std::size_t at = 0; at < all.size();) {
    const std::size_t end = all.find('\0', at);
    arguments.push_back(all.substr(at, end - at));
    at = end + 1;
  }
  return arguments;
}

std::int64_t millisUntil(std::chrono::steady_clock::time_point from,
                         std::chrono::steady_clock::time_point to) {
  return to > from ? std::chrono::duration_cast<std::chrono::milliseconds>(
                         to - from).count()
                   : 0;
}

AiModelServerOptions serverOptions(const tovrin_ai_model_server_options& o) {
  using std::chrono::milliseconds;
  AiModelServerOptions options;
  options.program = pathIn(o.program, o.program_size, "options->program");
  options.arguments = argumentsIn(o.arguments, o.arguments_size);
  options.workingFolder = pathIn(o.working_folder, o.working_folder_size,
                                 "options->working_folder");
  if (o.port > 0xFFFF) {
    throw CFailure(TOVRIN_AI_ERR_INVALID_ARGUMENT, "options->port is above 65535");
  }
  options.port = static_cast<std::uint16_t>(o.port);
  options.useRunningServer = o.use_running_server != 0;
  options.healthPath = textIn(o.health_path, o.health_path_size,
                              "options->health_path");
  options.startDeadline = milliseconds(o.start_deadline_ms);
  options.stopGrace = milliseconds(o.stop_grace_ms);
  options.restartPause = milliseconds(o.restart_pause_ms);
  options.maxRestartPause = milliseconds(o.max_restart_pause_ms);
  options.failureLimit = o.failure_limit;
  options.failureWindow = milliseconds(o.failure_window_ms);
  options.probeInterval = milliseconds(o.probe_interval_ms);
  options.readyProbeInterval = milliseconds(o.ready_probe_interval_ms);
  options.probeTimeout = milliseconds(o.probe_timeout_ms);
  options.unansweredProbeLimit = o.unanswered_probe_limit;
  options.logFile = pathIn(o.log_file, o.log_file_size, "options->log_file");
  options.logTailBytes = o.log_tail_bytes;
  return options;
}

}  // namespace

}  // namespace tovrin::ai::detail

namespace ai = tovrin::ai;
using ai::detail::guarded;
using ai::detail::requirePointer;
using ai::detail::Shell;

tovrin_ai_status tovrin_ai_model_server_options_defaults(
    tovrin_ai_model_server_options* options) {
  return guarded([&](Shell*&) {
    requirePointer(options, "options");
    ai::detail::checkStructSize(options->struct_size,
                                ai::detail::kOptionsSizes, "options");
    const ai::AiModelServerOptions d;  // the layer's own defaults
    static const std::string healthPath = d.healthPath;
    tovrin_ai_model_server_options full{};
    full.port = d.port;
    full.use_running_server = d.useRunningServer;
    full.program = full.arguments = full.working_folder = full.log_file = "";
    full.health_path = healthPath.c_str();
    full.health_path_size = healthPath.size();
    full.start_deadline_ms = d.startDeadline.count();
    full.stop_grace_ms = d.stopGrace.count();
    full.restart_pause_ms = d.restartPause.count();
    full.max_restart_pause_ms = d.maxRestartPause.count();
    full.failure_window_ms = d.failureWindow.count();
    full.probe_interval_ms = d.probeInterval.count();
    full.ready_probe_interval_ms = d.readyProbeInterval.count();
    full.probe_timeout_ms = d.probeTimeout.count();
    full.failure_limit = d.failureLimit;
    full.unanswered_probe_limit = d.unansweredProbeLimit;
    full.log_tail_bytes = d.logTailBytes;
    ai::detail::fillSized(options, full);
    return TOVRIN_AI_OK;
  });
}

tovrin_ai_status tovrin_ai_model_server_start(
    const tovrin_ai_model_server_options* options,
    tovrin_ai_model_server** server) {
  if (server != nullptr) *server = nullptr;
  return guarded([&](Shell*&) {
    requirePointer(options, "options");
    requirePointer(server, "server");
    ai::detail::checkStructSize(options->struct_size,
                                ai::detail::kOptionsSizes, "options");
    *server = ai::detail::newHandle<tovrin_ai_model_server>(
        std::make_unique<ai::detail::ServerObject>(
            ai::detail::serverOptions(*options)),
        ai::detail::HandleKind::kModelServer);
    return TOVRIN_AI_OK;
  });
}

tovrin_ai_status tovrin_ai_model_server_destroy(tovrin_ai_model_server* server) {
  return ai::detail::destroyHandle<ai::detail::ServerObject>(
      server, ai::detail::HandleKind::kModelServer, "server");
}

tovrin_ai_status tovrin_ai_model_server_last_error(
    const tovrin_ai_model_server* server, const char** text, size_t* size) {
  return guarded([&](Shell*& where) {
    ai::detail::serverOf(server, where);
    requirePointer(text, "text");
    requirePointer(size, "size");
    ai::detail::textOut(where->error, text, size);
    return TOVRIN_AI_OK;
  });
}

tovrin_ai_status tovrin_ai_model_server_read_status(
    tovrin_ai_model_server* server, tovrin_ai_model_server_status* status) {
  return guarded([&](Shell*& where) {
    ai::detail::ServerObject& s = ai::detail::serverOf(server, where);
    requirePointer(status, "status");
    ai::detail::checkStructSize(status->struct_size,
                                ai::detail::kStatusSizes, "status");
    s.status = s.server.status();
    const ai::AiServerStatus& now = s.status;
    const auto at = std::chrono::steady_clock::now();
    tovrin_ai_model_server_status full{};
    full.state = static_cast<uint32_t>(now.state);
    full.port = now.port;
    full.external = now.external;
    full.has_exit_code = now.exitCode.has_value();
    full.exit_code = now.exitCode.value_or(0);
    full.has_exit_signal = now.exitSignal.has_value();
    full.exit_signal = now.exitSignal.value_or(0);
    full.process_id = now.processId;
    full.state_age_ms = ai::detail::millisUntil(now.since, at);
    full.next_start_in_ms =
        now.state == ai::AiServerState::kRestarting
            ? ai::detail::millisUntil(at, now.nextStart) : 0;
    full.starts = now.starts;
    full.recent_failures = now.recentFailures;
    ai::detail::textOut(now.reason, &full.reason, &full.reason_size);
    ai::detail::textOut(now.endpoint, &full.endpoint, &full.endpoint_size);
    full.log_line_count = now.lastLogLines.size();
    ai::detail::fillSized(status, full);
    return TOVRIN_AI_OK;
  });
}

tovrin_ai_status tovrin_ai_model_server_log_line(tovrin_ai_model_server* server,
                                                 size_t line, const char** text,
                                                 size_t* size) {
  return guarded([&](Shell*& where) {
    const ai::detail::ServerObject& s = ai::detail::serverOf(server, where);
    requirePointer(text, "text");
    requirePointer(size, "size");
    const std::vector<std::string>& lines = s.status.lastLogLines;
    if (line >= lines.size()) {
      throw ai::detail::CFailure(
          TOVRIN_AI_ERR_INVALID_ARGUMENT,
          "line " + std::to_string(line) + " is beyond the " +
              std::to_string(lines.size()) + " there are");
    }
    ai::detail::textOut(lines[line], text, size);
    return TOVRIN_AI_OK;
  });
}

tovrin_ai_status tovrin_ai_model_server_endpoint(
    const tovrin_ai_model_server* server, const char** text, size_t* size) {
  return guarded([&](Shell*& where) {
    const ai::detail::ServerObject& s = ai::detail::serverOf(server, where);
    requirePointer(text, "text");
    requirePointer(size, "size");
    ai::detail::textOut(s.chatEndpoint, text, size);
    return TOVRIN_AI_OK;
  });
}

tovrin_ai_status tovrin_ai_model_server_stop(tovrin_ai_model_server* server) {
  return guarded([&](Shell*& where) {
    ai::detail::serverOf(server, where).server.stop();
    return TOVRIN_AI_OK;
  });
}

tovrin_ai_status tovrin_ai_model_server_restart(tovrin_ai_model_server* server) {
  return guarded([&](Shell*& where) {
    ai::detail::serverOf(server, where).server.restart();
    return TOVRIN_AI_OK;
  });
}

tovrin_ai_status tovrin_ai_service_create_for_server(
    const tovrin_ai_service_config* config,
    const tovrin_ai_model_server* server, tovrin_ai_service** service) {
  if (service != nullptr) *service = nullptr;
  return guarded([&](Shell*&) {
    Shell* own = nullptr;  // failures go to the thread: no service yet
    const ai::detail::ServerObject& s = ai::detail::serverOf(server, own);
    requirePointer(service, "service");
    auto [runtime, options] = ai::detail::serviceSettings(config);
    if (config == nullptr || config->endpoint_size == 0) {
      runtime.endpoint = s.chatEndpoint;
    }
    options.waitForModel = s.server.waitForModel();
    *service = ai::detail::createService(std::move(runtime), std::move(options));
    return TOVRIN_AI_OK;
  });
}
