# The coverage preset's report. Its tests write raw profiles into
# <build>/profiles (LLVM_PROFILE_FILE); every build of the preset clears
# them first, and coverage_report merges them and measures the library's own
# object files, so that code no test links in counts as not covered.
find_program(TOVRIN_AI_LLVM_PROFDATA NAMES llvm-profdata-14 llvm-profdata REQUIRED)
find_program(TOVRIN_AI_LLVM_COV NAMES llvm-cov-14 llvm-cov REQUIRED)

set(TOVRIN_AI_PROFILE_DIR ${PROJECT_BINARY_DIR}/profiles)

add_custom_target(coverage_reset ALL
  COMMAND ${CMAKE_COMMAND} -E rm -rf ${TOVRIN_AI_PROFILE_DIR}
  COMMENT "Clearing coverage profiles"
  VERBATIM)

add_custom_target(coverage_report
  COMMAND ${CMAKE_COMMAND}
    -DPROFDATA=${TOVRIN_AI_LLVM_PROFDATA}
    -DCOV=${TOVRIN_AI_LLVM_COV}
    -DPROFILE_DIR=${TOVRIN_AI_PROFILE_DIR}
    -DHTML_DIR=${PROJECT_BINARY_DIR}/coverage-html
    "-DOBJECTS=$<JOIN:$<TARGET_OBJECTS:tovrin_ai>,|>"
    -P ${PROJECT_SOURCE_DIR}/cmake/CoverageReport.cmake
  VERBATIM)
