// The console program's one platform difference: Windows translates "\n"
// into "\r\n" on text-mode streams, which would change the bytes of the
// status line that scripts read.
#include "console_output.hpp"

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>

#include <cstdio>
#endif

namespace tovrin::ai::app {

void prepareConsole() {
#ifdef _WIN32
  _setmode(_fileno(stdout), _O_BINARY);
  _setmode(_fileno(stderr), _O_BINARY);
#endif
}

}  // namespace tovrin::ai::app
