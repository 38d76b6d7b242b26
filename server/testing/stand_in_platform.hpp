// The little the stand-in server needs to know about its platform.
#ifndef TOVRIN_AI_SERVER_TESTING_STAND_IN_PLATFORM_HPP_
#define TOVRIN_AI_SERVER_TESTING_STAND_IN_PLATFORM_HPP_

#include <filesystem>
#include <string>
#include <vector>

namespace tovrin::ai::test {

// The program's arguments in UTF-8, the program's own name first.
std::vector<std::string> utf8Arguments(int argc, char** argv);

// The running program's own file.
std::filesystem::path ownProgram();

// Makes the polite stop do nothing: SIGTERM ignored, or CTRL_BREAK and
// WM_CLOSE handled and ignored on Windows.
void ignorePoliteStop();

}  // namespace tovrin::ai::test

#endif  // TOVRIN_AI_SERVER_TESTING_STAND_IN_PLATFORM_HPP_
