#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#include <shellapi.h>

#include "server/testing/stand_in_platform.hpp"

namespace tovrin::ai::test {

std::vector<std::string> utf8Arguments(int, char**) {
  int count = 0;
  wchar_t** words = ::CommandLineToArgvW(::GetCommandLineW(), &count);
  std::vector<std::string> arguments;
  for (int i = 0; words && i < count; ++i) {
    const std::u8string text = std::filesystem::path(words[i]).u8string();
    arguments.emplace_back(text.begin(), text.end());
  }
  ::LocalFree(words);
  return arguments;
}

std::filesystem::path ownProgram() {
  wchar_t path[MAX_PATH * 4];
  const DWORD length = ::GetModuleFileNameW(nullptr, path, MAX_PATH * 4);
  return std::filesystem::path(std::wstring(path, length));
}

void ignorePoliteStop() {
  ::SetConsoleCtrlHandler([](DWORD) -> BOOL { return TRUE; }, TRUE);
}

}  // namespace tovrin::ai::test
