// What the game's thread and the layer's thread share: the options, the
// status, the pending command and the server's log. Every field that
// changes is guarded by mutex; changed is notified after every change.
#ifndef TOVRIN_AI_SERVER_SERVER_SHARED_HPP_
#define TOVRIN_AI_SERVER_SERVER_SHARED_HPP_

#include <condition_variable>
#include <mutex>

#include "server/log_capture.hpp"
#include "tovrin/ai/model_server.hpp"
#include "transport/socket_platform.hpp"

namespace tovrin::ai::detail {

// How many of the server's last lines the status carries.
inline constexpr std::size_t kStatusLogLines = 12;

// What the game asks the layer's thread to do next.
enum class Command { kNone, kStop, kRestart, kShutdown };

struct ServerShared {
  explicit ServerShared(AiModelServerOptions chosen)
      : options(std::move(chosen)), log(options.logFile, options.logTailBytes) {}

  const AiModelServerOptions options;  // port resolved: never 0 here
  LogCapture log;
  WakeSignal wake;  // raised with every command, to end a probe at once

  mutable std::mutex mutex;
  std::condition_variable_any changed;
  AiServerStatus status;           // guarded by mutex
  Command command = Command::kNone;  // guarded by mutex

  // Records a command for the layer's thread; a shutdown is never replaced.
  void post(Command next) {
    {
      const std::lock_guard<std::mutex> lock(mutex);
      if (command != Command::kShutdown) command = next;
    }
    wake.raise();
    changed.notify_all();
  }
};

}  // namespace tovrin::ai::detail

#endif  // TOVRIN_AI_SERVER_SERVER_SHARED_HPP_
