// Reads the recorded server exchanges kept in testdata/ for the tests.
#ifndef TOVRIN_AI_TRANSPORT_TESTDATA_FILES_HPP_
#define TOVRIN_AI_TRANSPORT_TESTDATA_FILES_HPP_

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace tovrin::ai::test {

// The whole file testdata/<name>, byte for byte. Throws when it is missing
// so that a lost file fails the test instead of passing on empty input.
inline std::string readTestdata(const std::string& name) {
  const std::string path =
      std::string(TOVRIN_AI_TRANSPORT_TESTDATA) + "/" + name;
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("missing test data " + path);
  return std::string(std::istreambuf_iterator<char>(file),
                     std::istreambuf_iterator<char>());
}

// The part of a recorded response after its head.
inline std::string recordedBody(const std::string& name) {
  const std::string response = readTestdata(name);
  const std::size_t headEnd = response.find("\r\n\r\n");
  if (headEnd == std::string::npos)
    throw std::runtime_error("no head end in " + name);
  return response.substr(headEnd + 4);
}

}  // namespace tovrin::ai::test

#endif  // TOVRIN_AI_TRANSPORT_TESTDATA_FILES_HPP_
