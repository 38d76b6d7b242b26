# cmake -DPROFDATA=... -DCOV=... -DPROFILE_DIR=... -DHTML_DIR=...
#       -DOBJECTS=<object files separated by |> -P CoverageReport.cmake
#
# Merges the raw profiles in PROFILE_DIR, prints llvm-cov's per-file report
# of the given object files and one summary line of line and branch
# coverage, and writes the annotated sources as HTML to HTML_DIR.
file(GLOB raw_profiles "${PROFILE_DIR}/*.profraw")
if(NOT raw_profiles)
  message(FATAL_ERROR "No profiles in ${PROFILE_DIR}: run the coverage tests first")
endif()
set(merged "${PROFILE_DIR}/merged.profdata")
execute_process(COMMAND ${PROFDATA} merge -sparse -o ${merged} ${raw_profiles}
  COMMAND_ERROR_IS_FATAL ANY)

string(REPLACE "|" ";" objects "${OBJECTS}")
list(POP_FRONT objects first)
set(inputs ${first})
foreach(object IN LISTS objects)
  list(APPEND inputs -object ${object})
endforeach()
# Instantiations of standard templates are the standard library's business.
set(filters -instr-profile=${merged} -ignore-filename-regex=^/usr/)

execute_process(COMMAND ${COV} report ${inputs} ${filters}
  COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${COV} show ${inputs} ${filters} -format=html
    -show-branches=count -output-dir=${HTML_DIR}
  COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${COV} export -summary-only ${inputs} ${filters}
  OUTPUT_VARIABLE summary COMMAND_ERROR_IS_FATAL ANY)

foreach(kind lines branches)
  string(JSON covered GET "${summary}" data 0 totals ${kind} covered)
  string(JSON count GET "${summary}" data 0 totals ${kind} count)
  string(JSON percent GET "${summary}" data 0 totals ${kind} percent)
  math(EXPR tenths "(${covered} * 1000 + ${count} / 2) / ${count}")
  math(EXPR whole "${tenths} / 10")
  math(EXPR fraction "${tenths} % 10")
  set(${kind} "${whole}.${fraction} % (${covered} of ${count})")
endforeach()
message("Library coverage: lines ${lines}, branches ${branches}")
message("Annotated sources: ${HTML_DIR}/index.html")
