// tovrin::ai::AiModelServer -- the game starts, watches and stops its own
// model server.
//
// A game that ships local AI ships the server program and a model file with
// it. AiModelServer runs that program on a thread of its own: it picks a
// port, starts the server, asks its readiness path until the model is
// loaded, restarts it when it dies, and stops it when the game ends. The
// game's thread only reads the status, which never waits.
//
// Use:
//
//   tovrin::ai::AiModelServerOptions serverOptions;
//   serverOptions.program = "ai/llama-server";
//   serverOptions.arguments = {"-m", "ai/model.gguf", "--host", "127.0.0.1",
//                              "--port", "{port}", "-np", "2"};
//   tovrin::ai::AiModelServer server(serverOptions);  // returns at once
//
//   tovrin::ai::AiRuntimeConfig config;
//   config.endpoint = server.endpoint();  // the port chosen above
//   tovrin::ai::AiServiceOptions options;  // workers = 2, as -np
//   options.waitForModel = server.waitForModel();
//   tovrin::ai::AiService service(config, options);
//   ...
//   const tovrin::ai::AiServerStatus status = server.status();  // any frame
//   if (status.state == tovrin::ai::AiServerState::kFailed) show(status.reason);
//
// Guarantees:
//   * The constructor chooses the port (a free loopback port when asked for
//     any) and returns; starting, probing, restarting and stopping happen on
//     the layer's thread. status() copies the fields and the last log lines
//     under locks held only to copy them, never across a probe, a wait or
//     a write to the log file.
//   * The server is started from an argument list, never through a shell;
//     "{port}" in an argument becomes the chosen port. Its standard output
//     and error are drained at once into a ring of the last logTailBytes
//     (and the log file when named), never to the game's console, so a
//     server that writes a lot never blocks on its output.
//   * Readiness is a GET of healthPath on 127.0.0.1 with the runtime's own
//     socket code, each probe bounded by probeTimeout: 200 is ready, any
//     other answer is loading, no answer is starting.
//   * A server that exits, or stops answering its probes once ready, is
//     killed with everything it started and restarted after a pause that
//     doubles with each failure in the failure window, from restartPause up
//     to maxRestartPause. failureLimit failures in the window, a program that
//     cannot start, a port another program holds, or a start that misses
//     startDeadline end in kFailed: nothing more is started until restart().
//   * stop(), restart() and the destructor ask the server to stop (SIGTERM
//     to its process group on POSIX; on Windows CTRL_BREAK to its process
//     group when the game has a console the server shares, otherwise
//     WM_CLOSE to its windows) and kill it and everything it started after
//     stopGrace. The destructor returns within stopGrace + 100 ms.
//   * The server does not outlive the game. On Windows it runs in a job
//     object that kills everything in it when the game's handle closes,
//     whatever ends the game. On Linux the server gets SIGKILL when the
//     layer's thread ends, also when the game is killed outright; processes
//     the server itself starts are killed with its process group on every
//     stop and restart, but not when the game is killed outright. Other
//     POSIX systems have no such signal: there a game killed outright leaves
//     the server running.
//   * A process the layer started is always reaped; no wait is unbounded.
//
// Where the guarantees stop: a server that answers probes but never answers
// a chat completion is not noticed here (requests time out in the service);
// a server started by someone else (useRunningServer) is watched but never
// stopped or restarted by this layer. A server's exit is looked for every
// 10 ms, but only after a probe in progress ends (at most probeTimeout,
// for a server that accepts and never answers). A server still being torn
// down 60 ms after its kill (a large model to unmap) is reaped by a thread
// of its own, after the destructor has returned.
//
// This header is not part of <tovrin/ai.hpp>: a game that links only
// tovrin::ai gets no process code. Link tovrin::ai_server to use it.
#ifndef TOVRIN_AI_MODEL_SERVER_HPP_
#define TOVRIN_AI_MODEL_SERVER_HPP_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace tovrin::ai {

namespace detail {
struct ServerShared;
class Supervisor;
}  // namespace detail

// How the server is started and watched. The defaults suit llama-server.
struct AiModelServerOptions {
  std::filesystem::path program;       // a path, or a bare name found on PATH
  std::vector<std::string> arguments;  // UTF-8, one per entry; "{port}" replaced
  std::filesystem::path workingFolder; // empty: the game's current folder
  std::uint16_t port = 0;              // 0: any free loopback port, kept across restarts
  bool useRunningServer = false;       // a server already answering healthPath on port is used
  std::string healthPath = "/health";  // 200: ready; any other answer: loading
  std::chrono::milliseconds startDeadline{120000};  // start to ready, then killed and kFailed
  std::chrono::milliseconds stopGrace{2000};        // polite stop to kill
  std::chrono::milliseconds restartPause{500};      // after the first failure, doubling
  std::chrono::milliseconds maxRestartPause{30000};
  std::size_t failureLimit = 5;                     // failures within failureWindow -> kFailed
  std::chrono::milliseconds failureWindow{60000};
  std::chrono::milliseconds probeInterval{20};      // between probes until ready
  std::chrono::milliseconds readyProbeInterval{1000};  // between probes once ready
  std::chrono::milliseconds probeTimeout{2000};     // one probe, connect to answer
  std::size_t unansweredProbeLimit = 3;  // probes in a row unanswered once ready -> restart
  std::filesystem::path logFile;         // set: the server's output also goes here
                                         // (truncated at construction)
  std::size_t logTailBytes = 16 * 1024;  // the server's last output kept in memory
};

enum class AiServerState {
  kStarting,    // the program runs; nothing answers on the port yet
  kLoading,     // the readiness path answers, not yet with 200
  kReady,       // the readiness path answered 200; requests can be made
  kRestarting,  // the server failed; the next start waits for its pause
  kStopped,     // stop() was called, or the layer is being destroyed
  kFailed,      // nothing more is started until restart(); see reason
};

// "starting", "loading", "ready", "restarting", "stopped", "failed".
const char* stateName(AiServerState state);

// A snapshot of the layer, copied for the caller.
struct AiServerStatus {
  AiServerState state = AiServerState::kStarting;
  std::chrono::steady_clock::time_point since;  // when state was entered
  std::string reason;   // why it is restarting, stopped or failed; else empty
  std::optional<int> exitCode;    // the last server's exit status
  std::optional<int> exitSignal;  // or the signal that ended it (POSIX)
  std::vector<std::string> lastLogLines;  // the server's last lines of output
  std::string endpoint;           // "http://127.0.0.1:<port>"
  std::uint16_t port = 0;
  std::int64_t processId = 0;     // the running server's, 0 when none
  bool external = false;          // a server the game did not start is used
  std::size_t starts = 0;         // processes started so far
  std::size_t recentFailures = 0; // failures within the failure window
  std::chrono::steady_clock::time_point nextStart;  // when restarting
};

class AiModelServer {
 public:
  // Checks options, chooses the port and starts the layer's thread, which
  // starts the server. Throws std::invalid_argument for an empty program
  // (unless useRunningServer), useRunningServer without a fixed port, a
  // health path not starting with '/', a zero failure limit, probe limit or
  // log tail, or durations that are not positive (stopGrace may be 0), and
  // std::runtime_error when no loopback port can be had.
  explicit AiModelServer(AiModelServerOptions options);

  // Stops the server as stop() does, within stopGrace + 100 ms.
  ~AiModelServer();
  AiModelServer(const AiModelServer&) = delete;
  AiModelServer& operator=(const AiModelServer&) = delete;

  // The state now, never waiting for the server.
  AiServerStatus status() const;

  // "http://127.0.0.1:<port>" followed by path, for AiRuntimeConfig.
  std::string endpoint(std::string_view path = "/v1/chat/completions") const;
  std::uint16_t port() const;

  // Stops the server (polite stop, then a kill after stopGrace) and keeps
  // it stopped: kStopped. Returns at once.
  void stop();

  // Stops the server if one runs, forgets past failures and starts again,
  // from any state. Returns at once.
  void restart();

  // For AiServiceOptions::waitForModel: returns when the server is ready,
  // stopped or failed (a call then fails as it would without this layer),
  // or when the token is stopped; waits while it starts, loads or restarts.
  // The function may outlive this object; it then returns at once.
  std::function<void(std::stop_token)> waitForModel() const;

  // Waits until the server is ready, stopped or failed, or timeout passes,
  // and returns the status then. For tools; a game reads status() instead.
  AiServerStatus waitUntilSettled(std::chrono::milliseconds timeout) const;

 private:
  std::shared_ptr<detail::ServerShared> shared_;  // also held by waitForModel's functions
  std::unique_ptr<detail::Supervisor> supervisor_;
};

// Splits a command line the way a tool's flag takes it: words separated by
// spaces or tabs; '...' keeps everything inside; "..." keeps everything but
// \" and \\, which stand for " and \; other backslashes are kept, so
// Windows paths need no doubling; "" is an empty word. Throws
// std::invalid_argument for an unclosed quote.
std::vector<std::string> splitCommandLine(std::string_view line);

// Options whose program and arguments come from splitCommandLine(line).
// Throws std::invalid_argument for an empty line or an unclosed quote.
AiModelServerOptions serverOptionsFromCommand(std::string_view line);

}  // namespace tovrin::ai

#endif  // TOVRIN_AI_MODEL_SERVER_HPP_
