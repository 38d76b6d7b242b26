# Builds and runs examples/embed the two ways a game uses the library:
# against the installed package (find_package) and from the sources
# (add_subdirectory). Run with cmake -P; expects BUILD_DIR, SOURCE_DIR,
# WORK_DIR, GENERATOR, CXX_COMPILER, CXX_FLAGS, LINKER_FLAGS, EXE_SUFFIX,
# C_LIBRARY (the C interface's library, relative to the prefix) and PROGRAMS
# (the programs this build installs, separated by commas).
file(REMOVE_RECURSE "${WORK_DIR}")

function(run_step)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status
    OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "failed (${status}): ${ARGN}\n${out}")
  endif()
endfunction()

# Nobody listens on port 1, so the request ends in the template answer.
set(endpoint "http://127.0.0.1:1/v1/chat/completions")
set(expected "answer: To ti dát nemůžu.\nmodel: watchdog-template\nerror: Cannot connect to AI endpoint\n")

function(build_and_run name)
  set(dir "${WORK_DIR}/${name}")
  run_step(${CMAKE_COMMAND} -S "${SOURCE_DIR}/examples/embed" -B "${dir}"
    -G "${GENERATOR}" -DCMAKE_CXX_COMPILER=${CXX_COMPILER}
    "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}" "-DCMAKE_EXE_LINKER_FLAGS=${LINKER_FLAGS}"
    ${ARGN})
  run_step(${CMAKE_COMMAND} --build "${dir}")
  execute_process(COMMAND "${dir}/embed${EXE_SUFFIX}" "${endpoint}"
    RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT status EQUAL 0 OR NOT out STREQUAL expected)
    message(FATAL_ERROR "${name}: status ${status}, output:\n${out}${err}")
  endif()
  message(STATUS "${name}: ${out}")
endfunction()

run_step(${CMAKE_COMMAND} --install "${BUILD_DIR}" --prefix "${WORK_DIR}/prefix")
set(installed include/tovrin/ai.hpp include/tovrin/ai/service.hpp
    include/tovrin/ai/model_server.hpp
    include/tovrin/ai_c.h ${C_LIBRARY}
    share/tovrin-ai/assets/ai/czech_helper_cs.txt)
string(REPLACE "," ";" PROGRAMS "${PROGRAMS}")
foreach(program IN LISTS PROGRAMS)
  list(APPEND installed "bin/${program}${EXE_SUFFIX}")
endforeach()
foreach(file IN LISTS installed)
  if(NOT EXISTS "${WORK_DIR}/prefix/${file}")
    message(FATAL_ERROR "not installed: ${file}")
  endif()
endforeach()
build_and_run(find_package "-DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix")
build_and_run(add_subdirectory "-DTOVRIN_AI_SOURCE_DIR=${SOURCE_DIR}")
