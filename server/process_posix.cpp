// Processes on POSIX: fork and exec, a process group per server, and on
// Linux a parent-death signal.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#ifdef __linux__
#include <sys/prctl.h>
#endif

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string_view>
#include <thread>

#include "server/process_platform.hpp"

namespace tovrin::ai::detail {

namespace fs = std::filesystem;

struct ChildProcess::Native {
  pid_t pid = -1;
  bool ownGroup = true;
  int output = -1;                  // read end of the output pipe
  std::optional<ProcessExit> exit;  // once reaped
};

namespace {

constexpr int kExecFailed = 127;
constexpr int kMaxDescriptorSweep = 65536;
constexpr auto kReapPoll = std::chrono::milliseconds(2);

void closeQuietly(int& fd) {
  if (fd >= 0) ::close(fd);
  fd = -1;
}

std::string errorText(int error) { return std::strerror(error); }

// A game started without standard descriptors gets new ones numbered 0 to
// 2; the child's dup2 onto 0, 1 and 2 must not overwrite one it still needs.
int aboveStandard(int fd) {
  if (fd < 0 || fd > 2) return fd;
  const int moved = ::fcntl(fd, F_DUPFD_CLOEXEC, 3);
  ::close(fd);
  return moved;
}

// The child side, between fork and exec: async-signal-safe calls only.
// Descriptors the game opened without close-on-exec get it here, so the
// server holds none of the game's files or sockets.
[[noreturn]] void becomeProgram(const SpawnRequest& request, char* const* argv,
                                const char* folder, int nullInput, int output,
                                int report, pid_t parent, int sweepLimit) {
  if (request.ownGroup) {
    ::setpgid(0, 0);
#ifdef __linux__
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    // The parent may have died before the signal was armed.
    if (::getppid() != parent) ::_exit(kExecFailed);
#endif
  }
  (void)parent;
  // Dispositions the game set (an ignored SIGPIPE, say) survive exec.
  struct sigaction standard {};
  standard.sa_handler = SIG_DFL;
  for (int signal = 1; signal < NSIG; ++signal) ::sigaction(signal, &standard, nullptr);
  sigset_t none;
  sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);

  int error = 0;
  if (::dup2(nullInput, 0) < 0 || ::dup2(output, 1) < 0 || ::dup2(output, 2) < 0) {
    error = errno;
  } else if (folder[0] != '\0' && ::chdir(folder) != 0) {
    error = errno;
  } else {
#if defined(SYS_close_range) && defined(CLOSE_RANGE_CLOEXEC)
    if (::syscall(SYS_close_range, 3U, ~0U, CLOSE_RANGE_CLOEXEC) != 0)
#endif
      for (int fd = 3; fd < sweepLimit; ++fd) ::fcntl(fd, F_SETFD, FD_CLOEXEC);
    ::execv(argv[0], argv);
    error = errno;
  }
  while (::write(report, &error, sizeof error) < 0 && errno == EINTR) {
  }
  ::_exit(kExecFailed);
}

}  // namespace

ChildProcess::ChildProcess() : native(std::make_unique<Native>()) {}

ChildProcess::~ChildProcess() {
  if (native->pid > 0) {
    if (native->ownGroup) {
      killTree(*this);
    } else {
      killProcess(*this);
    }
    waitForExit(*this, 1000);
  }
  closeQuietly(native->output);
}

ProcessId ChildProcess::id() const { return native->pid; }

std::string spawnProcess(const SpawnRequest& request, ChildProcess& child) {
  // Everything the child uses is made before fork.
  std::vector<std::string> words{request.program.string()};
  words.insert(words.end(), request.arguments.begin(), request.arguments.end());
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  const std::string folder = request.workingFolder.string();
  const long openMax = ::sysconf(_SC_OPEN_MAX);
  const int sweepLimit = openMax > 0 && openMax < kMaxDescriptorSweep ? static_cast<int>(openMax)
                                                                       : kMaxDescriptorSweep;

  int output[2] = {-1, -1};
  int report[2] = {-1, -1};
  int nullInput = aboveStandard(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  const bool made = nullInput >= 0 && ::pipe2(output, O_CLOEXEC) == 0 && ::pipe2(report, O_CLOEXEC) == 0;
  for (int* fd : {&output[0], &output[1], &report[0], &report[1]}) *fd = aboveStandard(*fd);
  if (!made || output[0] < 0 || output[1] < 0 || report[0] < 0 || report[1] < 0) {
    const int error = errno;
    for (int* fd : {&nullInput, &output[0], &output[1], &report[0], &report[1]}) closeQuietly(*fd);
    return errorText(error);
  }
  const pid_t parent = ::getpid();
  const pid_t pid = ::fork();
  if (pid == 0) {
    becomeProgram(request, argv.data(), folder.c_str(), nullInput, output[1], report[1], parent,
                  sweepLimit);
  }
  const int forkError = errno;
  closeQuietly(nullInput);
  closeQuietly(output[1]);
  closeQuietly(report[1]);
  if (pid < 0) {
    closeQuietly(output[0]);
    closeQuietly(report[0]);
    return errorText(forkError);
  }
  // Also here, so that a kill of the group right away cannot miss it.
  if (request.ownGroup) ::setpgid(pid, pid);

  // The report pipe closes on exec; before that the child writes why exec
  // failed. Either comes at once.
  int execError = 0;
  ssize_t n;
  while ((n = ::read(report[0], &execError, sizeof execError)) < 0 && errno == EINTR) {
  }
  closeQuietly(report[0]);
  if (n == static_cast<ssize_t>(sizeof execError)) {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    closeQuietly(output[0]);
    return errorText(execError);
  }
  child.native->pid = pid;
  child.native->ownGroup = request.ownGroup;
  child.native->output = output[0];
  child.native->exit.reset();
  return {};
}

std::ptrdiff_t readOutput(ChildProcess& child, char* buffer, std::size_t capacity, int timeoutMs) {
  pollfd entry{child.native->output, POLLIN, 0};
  if (child.native->output < 0) return -1;
  const int ready = ::poll(&entry, 1, timeoutMs);
  if (ready <= 0) return 0;
  const ssize_t n = ::read(child.native->output, buffer, capacity);
  if (n > 0) return n;
  if (n < 0 && (errno == EINTR || errno == EAGAIN)) return 0;
  return -1;
}

std::optional<ProcessExit> waitForExit(ChildProcess& child, int timeoutMs) {
  ChildProcess::Native& native = *child.native;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  while (!native.exit && native.pid > 0) {
    int status = 0;
    const pid_t reaped = ::waitpid(native.pid, &status, WNOHANG);
    if (reaped == native.pid) {
      ProcessExit exit;
      if (WIFEXITED(status)) exit.code = WEXITSTATUS(status);
      if (WIFSIGNALED(status)) exit.signal = WTERMSIG(status);
      native.exit = exit;
    } else if (reaped < 0 && errno != EINTR) {
      native.exit = ProcessExit{};  // reaped elsewhere: the status is lost
    } else if (std::chrono::steady_clock::now() >= deadline) {
      return std::nullopt;
    } else {
      std::this_thread::sleep_for(kReapPoll);
    }
  }
  return native.exit;
}

bool askToStop(ChildProcess& child) {
  const ChildProcess::Native& native = *child.native;
  if (native.pid <= 0) return false;
  if (native.ownGroup) return ::kill(-native.pid, SIGTERM) == 0;
  return !native.exit && ::kill(native.pid, SIGTERM) == 0;
}

void killTree(ChildProcess& child) {
  const ChildProcess::Native& native = *child.native;
  if (native.pid <= 0) return;
  // The group outlives its leader while anything in it runs.
  if (native.ownGroup) ::kill(-native.pid, SIGKILL);
  killProcess(child);
}

void killProcess(ChildProcess& child) {
  const ChildProcess::Native& native = *child.native;
  // Once reaped, the id may belong to someone else.
  if (native.pid > 0 && !native.exit) ::kill(native.pid, SIGKILL);
}

fs::path findProgram(const fs::path& program) {
  if (program.has_parent_path()) return fs::absolute(program);
  const char* path = std::getenv("PATH");
  std::string_view folders = path ? path : "/usr/local/bin:/usr/bin:/bin";
  while (!folders.empty()) {
    const std::size_t end = std::min(folders.find(':'), folders.size());
    const fs::path candidate = fs::path(folders.substr(0, end).empty() ? "." : folders.substr(0, end)) / program;
    std::error_code error;
    if (fs::is_regular_file(candidate, error) && ::access(candidate.c_str(), X_OK) == 0) {
      return fs::absolute(candidate);
    }
    folders.remove_prefix(std::min(end + 1, folders.size()));
  }
  return {};
}

bool processRunning(ProcessId id) {
  if (id <= 0 || (::kill(static_cast<pid_t>(id), 0) != 0 && errno != EPERM)) return false;
  // A zombie waits for a parent (or a container's init) that may never reap it.
  std::ifstream stat("/proc/" + std::to_string(id) + "/stat");
  std::string line;
  if (!std::getline(stat, line)) return true;
  const std::size_t nameEnd = line.rfind(')');
  return nameEnd == std::string::npos || nameEnd + 2 >= line.size() || line[nameEnd + 2] != 'Z';
}

ProcessId currentProcessId() { return ::getpid(); }

std::string describeExit(const ProcessExit& exit) {
  if (exit.signal) {
    const char* name = ::strsignal(*exit.signal);
    return "ended by signal " + std::to_string(*exit.signal) + (name ? " (" + std::string(name) + ")" : "");
  }
  if (exit.code) return "exited with status " + std::to_string(*exit.code);
  return "ended, its status unknown";
}

}  // namespace tovrin::ai::detail
