include(GNUInstallDirs)

# Warnings the project keeps clean; -Werror when TOVRIN_AI_WERROR is on.
function(tovrin_ai_warnings target)
  if(MSVC)
    target_compile_options(${target} PRIVATE /W4 $<$<BOOL:${TOVRIN_AI_WERROR}>:/WX>)
  else()
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic
      $<$<BOOL:${TOVRIN_AI_WERROR}>:-Werror>)
  endif()
endfunction()

# Test rows are designated initializers that name only the fields they set.
function(tovrin_ai_test_options target)
  if(NOT MSVC)
    target_compile_options(${target} PRIVATE -Wno-missing-field-initializers)
  endif()
endfunction()

# tovrin_ai_add_test(<name> <sources>...): one GoogleTest executable linked
# against the library, its tests registered with CTest one by one.
function(tovrin_ai_add_test name)
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE tovrin::ai tovrin_ai_testing GTest::gtest_main)
  tovrin_ai_warnings(${name})
  tovrin_ai_test_options(${name})
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 NO_PRETTY_VALUES)
endfunction()
