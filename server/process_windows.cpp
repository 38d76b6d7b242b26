// Processes on Windows: CreateProcessW with a quoted UTF-16 command line,
// a job object per server that kills everything in it when its last handle
// closes, and an anonymous pipe for the output.
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "server/command_line.hpp"
#include "server/process_platform.hpp"

namespace tovrin::ai::detail {

namespace fs = std::filesystem;

struct ChildProcess::Native {
  HANDLE process = nullptr;
  HANDLE job = nullptr;     // its own job, when ownGroup
  HANDLE output = nullptr;  // read end of the output pipe
  DWORD id = 0;
  bool sharesConsole = false;  // in this console, in a process group of its own
  std::optional<ProcessExit> exit;
};

namespace {

// An idle pipe is looked at this often: anonymous pipes cannot be waited on.
constexpr DWORD kPeekSliceMs = 10;

void closeQuietly(HANDLE& handle) {
  if (handle != nullptr && handle != INVALID_HANDLE_VALUE) ::CloseHandle(handle);
  handle = nullptr;
}

std::string errorText(DWORD error) {
  wchar_t* text = nullptr;
  const DWORD length = ::FormatMessageW(
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, 0,
      reinterpret_cast<wchar_t*>(&text), 0, nullptr);
  std::wstring wide = length > 0 ? std::wstring(text, length) : L"error " + std::to_wstring(error);
  ::LocalFree(text);
  while (!wide.empty() && (wide.back() == L'\n' || wide.back() == L'\r' || wide.back() == L' ')) wide.pop_back();
  const std::u8string utf8 = fs::path(wide).u8string();
  return std::string(utf8.begin(), utf8.end());
}

std::wstring wide(const std::string& utf8) {
  return fs::path(std::u8string(utf8.begin(), utf8.end())).wstring();
}

// A job that ends everything in it when its last handle closes, which the
// system does for the game however the game ends.
HANDLE killOnCloseJob() {
  HANDLE job = ::CreateJobObjectW(nullptr, nullptr);
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
  limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
  if (job != nullptr &&
      !::SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits, sizeof limits)) {
    closeQuietly(job);
  }
  return job;
}

struct WindowSearch {
  DWORD id;
  bool found;
};

// Posts WM_CLOSE to every top-level window of the process.
BOOL CALLBACK closeWindowsOf(HWND window, LPARAM search) {
  auto* wanted = reinterpret_cast<WindowSearch*>(search);
  DWORD owner = 0;
  ::GetWindowThreadProcessId(window, &owner);
  if (owner == wanted->id && ::PostMessageW(window, WM_CLOSE, 0, 0)) wanted->found = true;
  return TRUE;
}

}  // namespace

ChildProcess::ChildProcess() : native(std::make_unique<Native>()) {}

ChildProcess::~ChildProcess() {
  if (native->process != nullptr) {
    killTree(*this);
    waitForExit(*this, 1000);
  }
  closeQuietly(native->output);
  closeQuietly(native->process);
  closeQuietly(native->job);  // kills whatever is left in it
}

ProcessId ChildProcess::id() const { return native->id; }

std::string spawnProcess(const SpawnRequest& request, ChildProcess& child) {
  std::vector<std::string> words{std::string(reinterpret_cast<const char*>(request.program.u8string().c_str()))};
  words.insert(words.end(), request.arguments.begin(), request.arguments.end());
  std::wstring commandLine = wide(windowsCommandLine(words));

  SECURITY_ATTRIBUTES inheritable{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
  HANDLE readEnd = nullptr, writeEnd = nullptr, job = nullptr;
  HANDLE nullInput = ::CreateFileW(L"NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, &inheritable,
                                   OPEN_EXISTING, 0, nullptr);
  const auto fail = [&](DWORD error) {
    for (HANDLE* handle : {&readEnd, &writeEnd, &job, &nullInput}) closeQuietly(*handle);
    return errorText(error);
  };
  if (nullInput == INVALID_HANDLE_VALUE || !::CreatePipe(&readEnd, &writeEnd, &inheritable, 0) ||
      !::SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0)) {
    return fail(::GetLastError());
  }
  if (request.ownGroup && (job = killOnCloseJob()) == nullptr) return fail(::GetLastError());

  // Only these two handles are inherited, whatever else the game has open.
  HANDLE inherited[] = {writeEnd, nullInput};
  SIZE_T listSize = 0;
  ::InitializeProcThreadAttributeList(nullptr, 1, 0, &listSize);
  std::vector<char> listBytes(listSize);
  auto* list = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(listBytes.data());
  if (!::InitializeProcThreadAttributeList(list, 1, 0, &listSize) ||
      !::UpdateProcThreadAttribute(list, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, inherited, sizeof inherited, nullptr,
                                   nullptr)) {
    return fail(::GetLastError());
  }
  STARTUPINFOEXW startup{};
  startup.StartupInfo.cb = sizeof startup;
  startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
  startup.StartupInfo.hStdInput = nullInput;
  startup.StartupInfo.hStdOutput = writeEnd;
  startup.StartupInfo.hStdError = writeEnd;
  startup.lpAttributeList = list;

  // A console game shares its console, so CTRL_BREAK can reach the server's
  // own group; a game without one must not make a console window appear.
  const bool sharesConsole = request.ownGroup && ::GetConsoleWindow() != nullptr;
  DWORD flags = CREATE_UNICODE_ENVIRONMENT | EXTENDED_STARTUPINFO_PRESENT | CREATE_SUSPENDED;
  if (request.ownGroup) flags |= CREATE_NEW_PROCESS_GROUP;
  if (::GetConsoleWindow() == nullptr) flags |= CREATE_NO_WINDOW;
  const std::wstring folder = request.workingFolder.wstring();
  PROCESS_INFORMATION created{};
  const BOOL started = ::CreateProcessW(request.program.wstring().c_str(), commandLine.data(), nullptr, nullptr, TRUE,
                                        flags, nullptr, folder.empty() ? nullptr : folder.c_str(),
                                        &startup.StartupInfo, &created);
  const DWORD startError = ::GetLastError();
  ::DeleteProcThreadAttributeList(list);
  if (!started) return fail(startError);
  // Suspended until it is in the job, so nothing it starts escapes it.
  if (job != nullptr && !::AssignProcessToJobObject(job, created.hProcess)) {
    const DWORD jobError = ::GetLastError();
    ::TerminateProcess(created.hProcess, 1);
    ::WaitForSingleObject(created.hProcess, 1000);
    ::CloseHandle(created.hThread);
    ::CloseHandle(created.hProcess);
    return fail(jobError);
  }
  ::ResumeThread(created.hThread);
  ::CloseHandle(created.hThread);
  closeQuietly(writeEnd);
  closeQuietly(nullInput);
  ChildProcess::Native& native = *child.native;
  native.process = created.hProcess;
  native.job = job;
  native.output = readEnd;
  native.id = created.dwProcessId;
  native.sharesConsole = sharesConsole;
  native.exit.reset();
  return {};
}

std::ptrdiff_t readOutput(ChildProcess& child, char* buffer, std::size_t capacity, int timeoutMs) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  for (;;) {
    DWORD available = 0;
    if (!::PeekNamedPipe(child.native->output, nullptr, 0, nullptr, &available, nullptr)) return -1;
    if (available > 0) {
      DWORD read = 0;
      const DWORD wanted = static_cast<DWORD>(std::min<std::size_t>(capacity, available));
      if (!::ReadFile(child.native->output, buffer, wanted, &read, nullptr)) return -1;
      return static_cast<std::ptrdiff_t>(read);
    }
    if (std::chrono::steady_clock::now() >= deadline) return 0;
    ::Sleep(kPeekSliceMs);
  }
}

std::optional<ProcessExit> waitForExit(ChildProcess& child, int timeoutMs) {
  ChildProcess::Native& native = *child.native;
  if (native.exit || native.process == nullptr) return native.exit;
  if (::WaitForSingleObject(native.process, static_cast<DWORD>(std::max(timeoutMs, 0))) != WAIT_OBJECT_0) {
    return std::nullopt;
  }
  DWORD code = 0;
  ProcessExit exit;
  if (::GetExitCodeProcess(native.process, &code)) exit.code = static_cast<int>(code);
  native.exit = exit;
  return native.exit;
}

bool askToStop(ChildProcess& child) {
  const ChildProcess::Native& native = *child.native;
  if (native.process == nullptr || native.exit) return false;
  if (native.sharesConsole) return ::GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, native.id) != 0;
  WindowSearch search{native.id, false};
  ::EnumWindows(closeWindowsOf, reinterpret_cast<LPARAM>(&search));
  return search.found;
}

void killTree(ChildProcess& child) {
  const ChildProcess::Native& native = *child.native;
  if (native.job != nullptr) {
    ::TerminateJobObject(native.job, 1);
  } else {
    killProcess(child);
  }
}

void killProcess(ChildProcess& child) {
  const ChildProcess::Native& native = *child.native;
  if (native.process != nullptr && !native.exit) ::TerminateProcess(native.process, 1);
}

fs::path findProgram(const fs::path& program) {
  if (program.has_parent_path()) {
    // "ai/llama-server" names "ai/llama-server.exe" here, as on the command line.
    fs::path path = fs::absolute(program);
    std::error_code error;
    if (!path.has_extension() && !fs::exists(path, error)) path += ".exe";
    return path;
  }
  wchar_t found[MAX_PATH * 4];
  const DWORD length = ::SearchPathW(nullptr, program.wstring().c_str(), L".exe", MAX_PATH * 4, found, nullptr);
  return length > 0 && length < MAX_PATH * 4 ? fs::path(std::wstring(found, length)) : fs::path();
}

bool processRunning(ProcessId id) {
  HANDLE process = ::OpenProcess(SYNCHRONIZE, FALSE, static_cast<DWORD>(id));
  if (process == nullptr) return false;
  const bool running = ::WaitForSingleObject(process, 0) == WAIT_TIMEOUT;
  ::CloseHandle(process);
  return running;
}

ProcessId currentProcessId() { return ::GetCurrentProcessId(); }

std::string describeExit(const ProcessExit& exit) {
  if (!exit.code) return "ended, its status unknown";
  // Crashes end with an NTSTATUS such as 0xC0000005, read in hexadecimal.
  const auto code = static_cast<unsigned>(*exit.code);
  if (code < 0xC0000000u) return "exited with status " + std::to_string(code);
  char hex[16];
  std::snprintf(hex, sizeof hex, "0x%08X", code);
  return std::string("exited with status ") + hex;
}

}  // namespace tovrin::ai::detail
