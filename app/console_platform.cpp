// The console program's platform differences. On Windows, text-mode
// streams would turn "\n" into "\r\n" and change the bytes of the status
// line that scripts read, and a path built from narrow text must be decoded
// in the code page that the file functions use.
#include "console_output.hpp"

#ifdef _WIN32
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <locale.h>

#include <cstdio>
#include <string>
#include <system_error>
#include <utility>
#endif

namespace tovrin::ai::app {

#ifdef _WIN32

void prepareConsole() {
  _setmode(_fileno(stdout), _O_BINARY);
  _setmode(_fileno(stderr), _O_BINARY);
}

// UTF-8 when the C library's code page is UTF-8, otherwise the ANSI or OEM
// code page, whichever the file functions are set to.
std::filesystem::path narrowToPath(std::string_view text) {
  if (text.empty()) return {};
  const UINT codePage = ___lc_codepage_func() == CP_UTF8 ? CP_UTF8
                        : ::AreFileApisANSI()           ? CP_ACP
                                                        : CP_OEMCP;
  const int size = static_cast<int>(text.size());
  const int length = ::MultiByteToWideChar(codePage, MB_ERR_INVALID_CHARS,
                                           text.data(), size, nullptr, 0);
  if (length <= 0) {
    throw std::system_error(static_cast<int>(::GetLastError()),
                            std::system_category(),
                            "Cannot convert path to the file code page");
  }
  std::wstring wide(static_cast<std::size_t>(length), L'\0');
  ::MultiByteToWideChar(codePage, MB_ERR_INVALID_CHARS, text.data(), size,
                        wide.data(), length);
  return std::filesystem::path(std::move(wide));
}

#else

void prepareConsole() {}

std::filesystem::path narrowToPath(std::string_view text) {
  return std::filesystem::path(text);
}

#endif

}  // namespace tovrin::ai::app
