#include "server/supervisor.hpp"

#include <algorithm>
#include <utility>

#include "server/command_line.hpp"

namespace tovrin::ai::detail {

namespace {

using std::chrono::milliseconds;

// How often a running server's exit is looked for between probes.
constexpr milliseconds kExitPoll{10};
// After the kill: how long the server's end is waited for before a thread
// of its own takes over the reaping, so that a stop keeps its time bound.
constexpr int kReapWaitMs = 60;
constexpr int kLateReapMs = 10000;

constexpr const char* kStoppedByGame = "stopped by the game";
constexpr const char* kShutDown = "the layer was destroyed";

// UTF-8 on every platform: path::string() would use Windows' code page.
std::string quoted(const std::filesystem::path& path) {
  const std::u8string text = path.u8string();
  return "'" + std::string(text.begin(), text.end()) + "'";
}

std::string millisecondsText(milliseconds duration) { return std::to_string(duration.count()) + " ms"; }

}  // namespace

Supervisor::Supervisor(ServerShared& shared) : shared_(shared), thread_([this] { run(); }) {}

Supervisor::~Supervisor() {
  shared_.post(Command::kShutdown);
  thread_.join();
}

void Supervisor::run() {
  bool wanted = true;
  for (;;) {
    if (!wanted) waitForCommand(Clock::time_point::max());
    switch (takeCommand()) {
      case Command::kShutdown:
        enter(AiServerState::kStopped, kShutDown);
        return;
      case Command::kStop:
        wanted = false;
        enter(AiServerState::kStopped, kStoppedByGame);
        continue;
      case Command::kRestart:
        wanted = true;
        failures_.clear();
        update([](AiServerStatus& status) { status.recentFailures = 0; });
        break;
      case Command::kNone:
        break;
    }
    if (!wanted) continue;
    Ending ending;
    try {
      ending = runOnce();
    } catch (const std::exception& e) {  // a full disk or memory: never the game's crash
      ending = {Ending::kFatal, std::string("the model-server layer failed: ") + e.what()};
    }
    if (ending.kind == Ending::kFatal) {
      wanted = false;
      enter(AiServerState::kFailed, ending.reason);
    } else if (ending.kind == Ending::kFailure) {
      pauseAfter(ending.reason, wanted);
    }
  }
}

// The pause doubles with every failure still inside the window, so a
// server that keeps failing is started less and less often.
void Supervisor::pauseAfter(const std::string& reason, bool& wanted) {
  const AiModelServerOptions& options = shared_.options;
  const Clock::time_point now = Clock::now();
  failures_.push_back(now);
  while (now - failures_.front() > options.failureWindow) failures_.pop_front();
  if (failures_.size() >= options.failureLimit) {
    wanted = false;
    update([&](AiServerStatus& status) { status.recentFailures = failures_.size(); });
    const std::string count = failures_.size() == 1 ? "1 failure" : std::to_string(failures_.size()) + " failures";
    enter(AiServerState::kFailed,
          reason + "; " + count + " within " + millisecondsText(options.failureWindow) + ", no more restarts");
    return;
  }
  milliseconds pause = options.restartPause;
  for (std::size_t i = 1; i < failures_.size() && pause < options.maxRestartPause; ++i) pause *= 2;
  pause = std::min(pause, options.maxRestartPause);
  update([&](AiServerStatus& status) {
    status.recentFailures = failures_.size();
    status.nextStart = now + pause;
  });
  enter(AiServerState::kRestarting, reason);
  waitForCommand(now + pause);  // a command cuts the pause short; run() takes it
}

Supervisor::Ending Supervisor::runOnce() {
  const AiModelServerOptions& options = shared_.options;
  update([](AiServerStatus& status) {
    status.external = false;
    status.processId = 0;
  });
  if (options.useRunningServer) {
    const Probe probe = probeReadiness(options.port, options.healthPath, options.probeTimeout, shared_.wake);
    if (probe.result == ProbeResult::kInterrupted) return {Ending::kCommand, {}};
    if (probe.result != ProbeResult::kNoAnswer) {
      update([](AiServerStatus& status) { status.external = true; });
      return watch(nullptr, nullptr);
    }
    if (options.program.empty()) {
      return {Ending::kFailure, "no server answers " + options.healthPath + " on port " + std::to_string(options.port)};
    }
  }
  const std::filesystem::path program = findProgram(options.program);
  if (program.empty()) return {Ending::kFatal, "cannot find the server program " + quoted(options.program) + " on PATH"};
  {
    Socket probeListener;
    std::uint16_t bound = 0;
    if (!listenLoopback(options.port, probeListener, bound)) {
      return {Ending::kFatal, "port " + std::to_string(options.port) + " is taken by another program"};
    }
  }
  auto child = std::make_unique<ChildProcess>();
  const std::string error = spawnProcess({program, withPort(options.arguments, options.port), options.workingFolder}, *child);
  if (!error.empty()) return {Ending::kFatal, "cannot start the server program " + quoted(program) + ": " + error};
  shared_.log.note("[tovrin-ai] started " + quoted(program) + " as process " + std::to_string(child->id()));
  update([&](AiServerStatus& status) {
    status.processId = child->id();
    ++status.starts;
  });
  enter(AiServerState::kStarting);
  Ending ending;
  {
    OutputDrain drain(*child, shared_.log);
    ending = watch(child.get(), &drain);
  }  // the drain has read the server's last words before the state changes
  if (!waitForExit(*child, 0)) {
    // Still being torn down after the kill (a large model to unmap, say).
    std::thread([late = std::move(child)] { waitForExit(*late, kLateReapMs); }).detach();
  }
  update([](AiServerStatus& status) { status.processId = 0; });
  return ending;
}

// Watches a started child, or with none the server that was already
// running, until it ends, stops answering or a command comes.
Supervisor::Ending Supervisor::watch(ChildProcess* child, OutputDrain* drain) {
  const AiModelServerOptions& options = shared_.options;
  const Clock::time_point deadline = Clock::now() + options.startDeadline;
  Clock::time_point nextProbe = Clock::now();
  bool ready = false;
  std::size_t unanswered = 0;
  for (;;) {
    if (waitForCommand(child ? std::min(nextProbe, Clock::now() + kExitPoll) : nextProbe)) {
      if (child) stopChild(*child, *drain);
      return {Ending::kCommand, {}};
    }
    if (child) {
      if (const std::optional<ProcessExit> exit = waitForExit(*child, 0)) {
        killTree(*child);  // what it started goes with it
        recordExit(*exit);
        return {Ending::kFailure, "the server " + describeExit(*exit) + (ready ? " after it was ready" : " before it was ready")};
      }
    }
    if (Clock::now() >= nextProbe) {
      const Probe probe = probeReadiness(options.port, options.healthPath, options.probeTimeout, shared_.wake);
      if (probe.result == ProbeResult::kInterrupted) continue;
      if (probe.result == ProbeResult::kNoAnswer) {
        if ((ready || !child) && ++unanswered >= options.unansweredProbeLimit) {
          if (child) stopChild(*child, *drain);
          return {Ending::kFailure, "the server stopped answering " + options.healthPath + " (" +
                                        std::to_string(unanswered) + " probes unanswered)"};
        }
      } else {
        unanswered = 0;
        if (!ready) {
          ready = probe.result == ProbeResult::kReady;
          enter(ready ? AiServerState::kReady : AiServerState::kLoading);
        }
      }
      nextProbe = Clock::now() + (ready ? options.readyProbeInterval : options.probeInterval);
    }
    if (!ready && Clock::now() >= deadline) {
      const std::string missed = " was not ready within the start deadline of " + millisecondsText(options.startDeadline);
      if (!child) return {Ending::kFatal, "the server running on port " + std::to_string(options.port) + missed};
      stopChild(*child, *drain);
      return {Ending::kFatal, "the server" + missed + "; stopped"};
    }
  }
}

void Supervisor::stopChild(ChildProcess& child, OutputDrain& drain) {
  if (!waitForExit(child, 0) && askToStop(child)) {
    waitForExit(child, static_cast<int>(shared_.options.stopGrace.count()));
  }
  killTree(child);
  drain.finish();
  if (const std::optional<ProcessExit> exit = waitForExit(child, kReapWaitMs)) recordExit(*exit);
}

bool Supervisor::waitForCommand(Clock::time_point until) {
  std::unique_lock<std::mutex> lock(shared_.mutex);
  const auto pending = [this] { return shared_.command != Command::kNone; };
  if (until == Clock::time_point::max()) {
    shared_.changed.wait(lock, pending);
    return true;
  }
  return shared_.changed.wait_until(lock, until, pending);
}

Command Supervisor::takeCommand() {
  const std::lock_guard<std::mutex> lock(shared_.mutex);
  shared_.wake.clear();
  return std::exchange(shared_.command, Command::kNone);
}

void Supervisor::update(const std::function<void(AiServerStatus&)>& change) {
  {
    const std::lock_guard<std::mutex> lock(shared_.mutex);
    change(shared_.status);
  }
  shared_.changed.notify_all();
}

void Supervisor::enter(AiServerState state, std::string reason) {
  update([&](AiServerStatus& status) {
    if (status.state != state) status.since = Clock::now();
    status.state = state;
    status.reason = std::move(reason);
  });
}

void Supervisor::recordExit(const ProcessExit& exit) {
  update([&](AiServerStatus& status) {
    status.exitCode = exit.code;
    status.exitSignal = exit.signal;
  });
}

}  // namespace tovrin::ai::detail
