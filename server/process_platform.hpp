// The platform seam of the model-server layer: starting a program, reading
// its output, waiting for it and ending it, with fork/exec on POSIX and
// CreateProcessW with a job object on Windows. Nothing else in the layer
// includes a system process header.
#ifndef TOVRIN_AI_SERVER_PROCESS_PLATFORM_HPP_
#define TOVRIN_AI_SERVER_PROCESS_PLATFORM_HPP_

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tovrin::ai::detail {

using ProcessId = std::int64_t;

struct ProcessExit {
  std::optional<int> code;    // the exit status, when it exited
  std::optional<int> signal;  // the signal that ended it (POSIX)
};

struct SpawnRequest {
  std::filesystem::path program;        // resolved: see findProgram
  std::vector<std::string> arguments;   // UTF-8, without the program
  std::filesystem::path workingFolder;  // empty: the caller's
  // True: a process group (POSIX) or job (Windows) of its own, killed as a
  // whole, and a death that follows the caller's (Linux: when the calling
  // thread ends; Windows: when the last handle to the job closes). False:
  // a plain child in the caller's group or job.
  bool ownGroup = true;
};

// One started program. Its standard input is the null device; standard
// output and error go together into a pipe that readOutput drains. Every
// descriptor or handle it holds is closed on exec and not inherited by
// other children. Destruction kills what is still running (killTree, or
// the process alone without a group), reaps it and closes everything.
// readOutput may run on one thread while another calls the rest.
class ChildProcess {
 public:
  ChildProcess();
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  ProcessId id() const;

  struct Native;
  std::unique_ptr<Native> native;
};

// Starts the program. Empty on success, otherwise why it could not start
// ("No such file or directory", ...); then child holds nothing.
std::string spawnProcess(const SpawnRequest& request, ChildProcess& child);

// Waits at most timeoutMs for output and reads what there is: the number
// of bytes read, 0 when nothing came in time, -1 once every writer has
// closed the pipe.
std::ptrdiff_t readOutput(ChildProcess& child, char* buffer,
                          std::size_t capacity, int timeoutMs);

// The exit of the child, reaped, once it has ended; waits at most
// timeoutMs (0: only looks). Once reaped, the same exit every time.
std::optional<ProcessExit> waitForExit(ChildProcess& child, int timeoutMs);

// Asks the child to end: SIGTERM to its group; on Windows CTRL_BREAK to
// its group when it shares this process's console, else WM_CLOSE to its
// windows. False when there was no way to ask (nothing was sent).
bool askToStop(ChildProcess& child);

// Kills the child and everything in its group or job, at once. Harmless
// after the child has ended.
void killTree(ChildProcess& child);

// Kills the child alone, leaving its group or job alone (to play a crash
// of a program that started servers).
void killProcess(ChildProcess& child);

// A program path to start: a name without a folder is looked up on PATH;
// any other path is made absolute against the current folder. On Windows
// ".exe" is added to a name without extension that names no file. Empty
// when a bare name is not found.
std::filesystem::path findProgram(const std::filesystem::path& program);

// True while a process with this id runs (a zombie counts as ended).
bool processRunning(ProcessId id);

ProcessId currentProcessId();

// What ended a process, for people: "exited with status 1", "ended by
// signal 6 (Aborted)".
std::string describeExit(const ProcessExit& exit);

}  // namespace tovrin::ai::detail

#endif  // TOVRIN_AI_SERVER_PROCESS_PLATFORM_HPP_
