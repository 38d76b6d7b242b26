// The test suites' only platform-dependent code: starting a program with
// its output redirected to files, waiting for it within a limit and killing
// it past that (CreateProcessW on Windows, fork and exec elsewhere), a
// private network namespace on Linux, and the count of open descriptors.
#include "testing/process_runner.hpp"

#ifdef _WIN32
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#else
#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>
#endif

#include <cstring>
#include <fstream>
#include <stdexcept>

#include "testing/files.hpp"

namespace tovrin::ai::test {

namespace {

namespace fs = std::filesystem;

#ifdef _WIN32

// Appends argument so that the C runtime's command-line parser (and
// CommandLineToArgvW) gives it back unchanged: quoted when it is empty or
// holds white space or a quote; backslashes doubled only where they precede
// a quote, the closing one included.
void appendQuoted(std::wstring& commandLine, const std::wstring& argument) {
  if (!commandLine.empty()) commandLine += L' ';
  if (!argument.empty() && argument.find_first_of(L" \t\n\v\"") == std::wstring::npos) {
    commandLine += argument;
    return;
  }
  commandLine += L'"';
  std::size_t backslashes = 0;
  for (const wchar_t c : argument) {
    if (c == L'\\') {
      ++backslashes;
      continue;
    }
    commandLine.append(c == L'"' ? backslashes * 2 + 1 : backslashes, L'\\');
    backslashes = 0;
    commandLine += c;
  }
  commandLine.append(backslashes * 2, L'\\');
  commandLine += L'"';
}

// Closes the handle it owns when it goes out of scope.
struct Handle {
  HANDLE handle;
  ~Handle() {
    if (valid()) ::CloseHandle(handle);
  }
  bool valid() const { return handle != nullptr && handle != INVALID_HANDLE_VALUE; }
};

HANDLE openForChild(const wchar_t* name, DWORD access, DWORD disposition) {
  SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
  return ::CreateFileW(name, access, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit, disposition,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
}

int runAndWait(const fs::path& program, const std::vector<std::string>& arguments,
               const fs::path& workingDirectory, const fs::path& outPath, const fs::path& errPath,
               std::chrono::milliseconds limit) {
  // Made absolute here: the child's working directory is not ours. The
  // arguments are UTF-8; Windows takes the command line in UTF-16.
  const std::wstring application = fs::absolute(program).wstring();
  std::wstring commandLine;
  appendQuoted(commandLine, application);
  for (const std::string& argument : arguments) {
    appendQuoted(commandLine, fs::path(std::u8string(argument.begin(), argument.end())).wstring());
  }
  const Handle in{openForChild(L"NUL", GENERIC_READ, OPEN_EXISTING)};
  const Handle out{openForChild(outPath.c_str(), GENERIC_WRITE, CREATE_ALWAYS)};
  const Handle err{openForChild(errPath.c_str(), GENERIC_WRITE, CREATE_ALWAYS)};
  if (!in.valid() || !out.valid() || !err.valid()) throw std::runtime_error("cannot open the output files");

  // Only the three standard handles go to the child: a test's sockets
  // (a loopback server's listener, say) must not outlive the test in it.
  HANDLE inherited[] = {in.handle, out.handle, err.handle};
  SIZE_T attributeSize = 0;
  ::InitializeProcThreadAttributeList(nullptr, 1, 0, &attributeSize);
  std::vector<char> attributeStorage(attributeSize);
  const auto attributes = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(attributeStorage.data());
  if (!::InitializeProcThreadAttributeList(attributes, 1, 0, &attributeSize) ||
      !::UpdateProcThreadAttribute(attributes, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, inherited, sizeof inherited,
                                   nullptr, nullptr)) {
    throw std::runtime_error("cannot limit the inherited handles");
  }
  STARTUPINFOEXW startup{};
  startup.StartupInfo.cb = sizeof startup;
  startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
  startup.StartupInfo.hStdInput = in.handle;
  startup.StartupInfo.hStdOutput = out.handle;
  startup.StartupInfo.hStdError = err.handle;
  startup.lpAttributeList = attributes;
  PROCESS_INFORMATION process{};
  const BOOL started =
      ::CreateProcessW(application.c_str(), commandLine.data(), nullptr, nullptr, TRUE, EXTENDED_STARTUPINFO_PRESENT,
                       nullptr, workingDirectory.c_str(), &startup.StartupInfo, &process);
  ::DeleteProcThreadAttributeList(attributes);
  if (!started) {
    throw std::runtime_error("cannot start " + program.string() + ", error " + std::to_string(::GetLastError()));
  }
  const Handle processHandle{process.hProcess};
  const Handle threadHandle{process.hThread};
  if (::WaitForSingleObject(process.hProcess, static_cast<DWORD>(limit.count())) != WAIT_OBJECT_0) {
    ::TerminateProcess(process.hProcess, 1);
    ::WaitForSingleObject(process.hProcess, INFINITE);
    return -1;
  }
  DWORD exitCode = 0;
  return ::GetExitCodeProcess(process.hProcess, &exitCode) ? static_cast<int>(exitCode) : -1;
}

#else  // POSIX

int runAndWait(const fs::path& program, const std::vector<std::string>& arguments,
               const fs::path& workingDirectory, const fs::path& outPath, const fs::path& errPath,
               std::chrono::milliseconds limit) {
  // Everything the child needs is prepared before fork, so that between
  // fork and exec only async-signal-safe calls run.
  std::vector<std::string> argvStorage{program.string()};
  argvStorage.insert(argvStorage.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& argument : argvStorage) argv.push_back(argument.data());
  argv.push_back(nullptr);
  const std::string directory = workingDirectory.string(), outName = outPath.string(), errName = errPath.string();

  const pid_t child = ::fork();
  if (child < 0) throw std::runtime_error("fork failed");
  if (child == 0) {
    const int out = ::open(outName.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int err = ::open(errName.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int in = ::open("/dev/null", O_RDONLY);
    if (out >= 0 && err >= 0 && in >= 0 && ::chdir(directory.c_str()) == 0 && ::dup2(in, 0) >= 0 &&
        ::dup2(out, 1) >= 0 && ::dup2(err, 2) >= 0) {
      ::execv(argv[0], argv.data());
    }
    ::_exit(127);
  }
  const auto deadline = std::chrono::steady_clock::now() + limit;
  int status = 0;
  while (::waitpid(child, &status, WNOHANG) != child) {
    if (std::chrono::steady_clock::now() > deadline) {
      ::kill(child, SIGKILL);
      ::waitpid(child, &status, 0);
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

#endif

}  // namespace

ProcessResult runProcess(const fs::path& program, const std::vector<std::string>& arguments,
                         const fs::path& workingDirectory, std::chrono::milliseconds limit) {
  const TempDir outputs("process");
  ProcessResult result;
  result.exitStatus = runAndWait(program, arguments, workingDirectory, outputs.path() / "out",
                                 outputs.path() / "err", limit);
  result.out = outputs.read("out");
  result.err = outputs.read("err");
  return result;
}

#if defined(__linux__)
bool isolateNetwork() {
  // As root a network namespace needs nothing more; otherwise a user
  // namespace, with this user mapped to itself, grants the right to one.
  if (::unshare(CLONE_NEWNET) != 0) {
    const std::string uid = std::to_string(::getuid()), gid = std::to_string(::getgid());
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) return false;
    std::ofstream("/proc/self/setgroups") << "deny";
    if (!(std::ofstream("/proc/self/uid_map") << uid + " " + uid + " 1\n") ||
        !(std::ofstream("/proc/self/gid_map") << gid + " " + gid + " 1\n")) {
      return false;
    }
  }
  // A new namespace's loopback interface starts down.
  const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
  ifreq request{};
  std::strcpy(request.ifr_name, "lo");
  bool up = fd >= 0 && ::ioctl(fd, SIOCGIFFLAGS, &request) == 0;
  request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP);
  up = up && ::ioctl(fd, SIOCSIFFLAGS, &request) == 0;
  if (fd >= 0) ::close(fd);
  return up;
}
#else
bool isolateNetwork() { return false; }
#endif

long openDescriptors() {
#ifdef __linux__
  std::error_code error;
  const fs::directory_iterator listing("/proc/self/fd", error);
  return error ? -1 : std::distance(listing, fs::directory_iterator());
#else
  return -1;
#endif
}

bool runningUnderWine() {
#ifdef _WIN32
  const HMODULE ntdll = ::GetModuleHandleW(L"ntdll.dll");
  return ntdll != nullptr && ::GetProcAddress(ntdll, "wine_get_version") != nullptr;
#else
  return false;
#endif
}

}  // namespace tovrin::ai::test
