// Files for the tests: whole files byte for byte, and a folder of a test's
// own that is gone when the test ends.
#ifndef TOVRIN_AI_TESTING_FILES_HPP_
#define TOVRIN_AI_TESTING_FILES_HPP_

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <string>

namespace tovrin::ai::test {

// The whole file, byte for byte. Throws when it cannot be read, so that a
// lost file fails the test instead of passing on empty input.
inline std::string readFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path.string());
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

// A new empty folder under the system's temporary one, removed with all it
// holds at the end. The name is new on every run: other checkouts may run
// the same test at the same time.
class TempDir {
 public:
  explicit TempDir(const std::string& prefix)
      : path_(std::filesystem::temp_directory_path() /
              ("tovrin_ai_" + prefix + "_" + std::to_string(std::random_device{}()))) {
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
  }
  ~TempDir() {
    std::error_code ignored;  // a program still holding a file must not end the run
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return path_; }
  void write(const std::string& name, const std::string& bytes) const {
    std::ofstream(path_ / name, std::ios::binary) << bytes;
  }
  std::string read(const std::string& name) const { return readFile(path_ / name); }

 private:
  std::filesystem::path path_;
};

#ifdef TOVRIN_AI_TRANSPORT_TESTDATA
// Exchanges recorded from a real model server, kept in transport/testdata.
inline std::string readTestdata(const std::string& name) {
  return readFile(std::filesystem::path(TOVRIN_AI_TRANSPORT_TESTDATA) / name);
}
// The part of a recorded response after its head.
inline std::string recordedBody(const std::string& name) {
  const std::string response = readTestdata(name);
  return response.substr(response.find("\r\n\r\n") + 4);
}
#endif

}  // namespace tovrin::ai::test

#endif  // TOVRIN_AI_TESTING_FILES_HPP_
