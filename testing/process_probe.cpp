// A program for the process runner's tests: writes each argument in
// brackets to standard output and "err" to standard error, then exits with
// the number of arguments. With "--hang" first it sleeps instead, to be
// killed. No line feed is written, so text-mode streams change nothing.
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

int main(int argc, char** argv) {
  if (argc > 1 && std::strcmp(argv[1], "--hang") == 0) {
    std::this_thread::sleep_for(std::chrono::minutes(5));
    return 0;
  }
  for (int i = 1; i < argc; ++i) {
    std::fputc('[', stdout);
    std::fputs(argv[i], stdout);
    std::fputc(']', stdout);
  }
  std::fputs("err", stderr);
  return argc - 1;
}
