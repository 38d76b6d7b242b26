// Runs a program to completion for end-to-end tests and collects what it
// wrote, byte for byte.
#ifndef TOVRIN_AI_TESTING_PROCESS_RUNNER_HPP_
#define TOVRIN_AI_TESTING_PROCESS_RUNNER_HPP_

#include <filesystem>
#include <string>
#include <vector>

namespace tovrin::ai::test {

struct ProcessResult {
  std::string out;     // everything written to standard output
  std::string err;     // everything written to standard error
  int exitStatus = -1; // the exit status; -1 when a signal ended it
};

// Runs program with arguments in workingDirectory through the system's
// shell (sh or cmd.exe), which takes the arguments as they are, and waits
// for it to end; the test's own time limit bounds the wait. Throws
// std::invalid_argument for an argument cmd.exe would change.
ProcessResult runProcess(const std::filesystem::path& program,
                         const std::vector<std::string>& arguments,
                         const std::filesystem::path& workingDirectory);

// Moves this process into a private network namespace whose loopback
// interface is up, where the platform allows one (Linux); false otherwise.
// Call it while the process has a single thread.
bool isolateNetwork();

// How many descriptors this process has open; -1 where the system does not
// list them (/proc/self/fd on Linux; under Wine it lists Wine's own).
long openDescriptors();

// True when this process is a Windows program running under Wine, whose
// sockets differ from Windows in a few corners (an abortive close arrives
// as an orderly one).
bool runningUnderWine();

}  // namespace tovrin::ai::test

#endif  // TOVRIN_AI_TESTING_PROCESS_RUNNER_HPP_
