#include <signal.h>

#include "server/testing/stand_in_platform.hpp"

namespace tovrin::ai::test {

std::vector<std::string> utf8Arguments(int argc, char** argv) { return {argv, argv + argc}; }

std::filesystem::path ownProgram() {
  std::error_code error;
  const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
  return error ? std::filesystem::path() : self;
}

void ignorePoliteStop() { ::signal(SIGTERM, SIG_IGN); }

}  // namespace tovrin::ai::test
