# The README shows examples/embed/main.cpp as the embedding example; the
# example is built and run by the installation test, so the README's code
# must be that file, byte for byte. Run with cmake -P; expects SOURCE_DIR.
file(READ "${SOURCE_DIR}/examples/embed/main.cpp" example)
file(READ "${SOURCE_DIR}/README.md" readme)
string(FIND "${readme}" "```cpp\n${example}```\n" at)
if(at EQUAL -1)
  message(FATAL_ERROR "README.md does not show examples/embed/main.cpp "
    "as it is, in a ```cpp block")
endif()
