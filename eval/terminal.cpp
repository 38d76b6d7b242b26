#include "terminal.hpp"

#ifdef _WIN32
#include <io.h>
#else
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

}  // namespace tovrin::ai::eval
