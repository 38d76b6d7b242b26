#include "terminal.hpp"

#ifdef _WIN32
#include <io.h>
#include <windows.h>
#else
#include <sys/ioctl.h>
#include <unistd.h>
#endif

namespace tovrin::ai::eval {

bool isTerminal(std::FILE* stream) {
#ifdef _WIN32
  return _isatty(_fileno(stream)) != 0;
#else
  return ::isatty(::fileno(stream)) != 0;
#endif
}

std::size_t terminalColumns(std::FILE* stream) {
#ifdef _WIN32
  const HANDLE handle =
      reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
  CONSOLE_SCREEN_BUFFER_INFO info;
  if (handle == INVALID_HANDLE_VALUE ||
      !GetConsoleScreenBufferInfo(handle, &info)) {
    return 0;
  }
  return static_cast<std::size_t>(info.srWindow.Right - info.srWindow.Left + 1);
#else
  winsize size{};
  if (::ioctl(::fileno(stream), TIOCGWINSZ, &size) != 0) return 0;
  return size.ws_col;
#endif
}

}  // namespace tovrin::ai::eval
