// The layer's thread: starts the server, probes it until it is ready,
// watches it, restarts it after a pause and stops it on command. It is the
// only thread that starts, waits for or ends a server process, and it lives
// as long as the layer (on Linux the server's parent-death signal follows
// this thread).
#ifndef TOVRIN_AI_SERVER_SUPERVISOR_HPP_
#define TOVRIN_AI_SERVER_SUPERVISOR_HPP_

#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "server/process_platform.hpp"
#include "server/readiness_probe.hpp"
#include "server/server_shared.hpp"

namespace tovrin::ai::detail {

class Supervisor {
 public:
  // Starts the thread, which starts the server at once.
  explicit Supervisor(ServerShared& shared);
  // Posts a shutdown and joins: the server is stopped within stopGrace and
  // a few milliseconds.
  ~Supervisor();
  Supervisor(const Supervisor&) = delete;
  Supervisor& operator=(const Supervisor&) = delete;

 private:
  using Clock = std::chrono::steady_clock;

  // How one server's run ended.
  struct Ending {
    enum Kind {
      kCommand,  // the game asked for something; the command is pending
      kFailure,  // it died or stopped answering: restart after a pause
      kFatal,    // starting again would not help: failed
    } kind = kCommand;
    std::string reason;
  };

  void run();
  Ending runOnce();
  Ending watch(ChildProcess* child, OutputDrain* drain);
  void stopChild(ChildProcess& child, OutputDrain& drain);
  void pauseAfter(const std::string& reason, bool& wanted);

  bool waitForCommand(Clock::time_point until);  // true: a command is pending
  Command takeCommand();
  void update(const std::function<void(AiServerStatus&)>& change);
  void enter(AiServerState state, std::string reason = {});
  void recordExit(const ProcessExit& exit);

  ServerShared& shared_;
  std::deque<Clock::time_point> failures_;  // within the window; this thread only
  std::thread thread_;  // last: starts once the rest exists
};

}  // namespace tovrin::ai::detail

#endif  // TOVRIN_AI_SERVER_SUPERVISOR_HPP_
