// The test suites' only platform-dependent code: running a program through
// the system's shell with its output redirected to files, a private network
// namespace on Linux, and the count of open descriptors.
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
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include "testing/files.hpp"

namespace tovrin::ai::test {

namespace fs = std::filesystem;

#ifdef _WIN32

namespace {

// Between double quotes cmd.exe leaves every character alone but '%' and
// '"', and the program's C runtime reads the text back as one argument
// unless it ends in a backslash; the tests pass none of those.
std::wstring quoted(const std::wstring& text) {
  if (text.find_first_of(L"%\"") != std::wstring::npos || text.ends_with(L'\\')) {
    throw std::invalid_argument("runProcess cannot pass this argument through cmd.exe");
  }
  return L"\"" + text + L"\"";
}

}  // namespace

ProcessResult runProcess(const fs::path& program, const std::vector<std::string>& arguments,
                         const fs::path& workingDirectory) {
  const TempDir outputs("process");
  // The arguments are UTF-8; Windows takes the command line in UTF-16.
  std::wstring command = L"cd /d " + quoted(workingDirectory.wstring()) + L" && " + quoted(fs::absolute(program).wstring());
  for (const std::string& argument : arguments) {
    command += L" " + quoted(fs::path(std::u8string(argument.begin(), argument.end())).wstring());
  }
  command += L" <NUL >" + quoted((outputs.path() / "out").wstring()) + L" 2>" + quoted((outputs.path() / "err").wstring());
  ProcessResult result;
  // cmd.exe /c drops the first and the last quote of its command.
  result.exitStatus = _wsystem((L"\"" + command + L"\"").c_str());
  result.out = outputs.read("out");
  result.err = outputs.read("err");
  return result;
}

#else  // POSIX

namespace {

// Between single quotes the shell takes every byte as it stands; a quote
// ends the quoting, is passed escaped, and the quoting starts again.
std::string quoted(const std::string& text) {
  std::string out = "'";
  for (const char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

}  // namespace

ProcessResult runProcess(const fs::path& program, const std::vector<std::string>& arguments,
                         const fs::path& workingDirectory) {
  const TempDir outputs("process");
  std::string command = "cd " + quoted(workingDirectory.string()) + " && exec " + quoted(fs::absolute(program).string());
  for (const std::string& argument : arguments) command += " " + quoted(argument);
  command += " </dev/null >" + quoted((outputs.path() / "out").string()) + " 2>" + quoted((outputs.path() / "err").string());
  ProcessResult result;
  const int status = std::system(command.c_str());
  result.exitStatus = status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  result.out = outputs.read("out");
  result.err = outputs.read("err");
  return result;
}

#endif

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
