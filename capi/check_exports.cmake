# Fails unless the shared library exports exactly the functions that its
# headers declare: no C++ (mangled) symbol, nothing of the C++ runtime, no
# declared function missing. Run with cmake -P; expects LIBRARY, HEADERS
# (separated by '|'), and NM (ELF: nm -D) or OBJDUMP (PE: objdump -p).
string(REPLACE "|" ";" HEADERS "${HEADERS}")
set(header "")
foreach(file IN LISTS HEADERS)
  file(READ "${file}" text)
  string(APPEND header "${text}")
endforeach()
string(REGEX MATCHALL "TOVRIN_AI_C_API [^;]*[ *](tovrin_ai_[a-z0-9_]+)\\(" declarations "${header}")
set(declared "")
foreach(declaration IN LISTS declarations)
  string(REGEX REPLACE ".*[ *](tovrin_ai_[a-z0-9_]+)\\($" "\\1" name "${declaration}")
  list(APPEND declared ${name})
endforeach()

if(OBJDUMP)
  execute_process(COMMAND ${OBJDUMP} -p ${LIBRARY} OUTPUT_VARIABLE table
    COMMAND_ERROR_IS_FATAL ANY)
  # The name pointer table's rows, "	[   0] tovrin_ai_c_version"; the
  # address table's, "	[   0] +base[   1] 2980 Export RVA", are skipped.
  string(REGEX MATCHALL "\n[ \t]*\\[ *[0-9]+\\] [^ +\n][^\n]*" rows "${table}")
  set(pattern "^\n[ \t]*\\[ *[0-9]+\\] ([^\n]+)$")
else()
  execute_process(COMMAND ${NM} -D --defined-only ${LIBRARY}
    OUTPUT_VARIABLE table COMMAND_ERROR_IS_FATAL ANY)
  string(REPLACE "\n" ";" rows "${table}")
  set(pattern "^[0-9a-fA-F]* *[A-Za-z] ([^ ]+)$")
endif()
set(exported "")
foreach(row IN LISTS rows)
  if(row MATCHES "${pattern}")
    list(APPEND exported "${CMAKE_MATCH_1}")
  endif()
endforeach()

list(SORT declared)
list(SORT exported)
if(NOT declared OR NOT exported STREQUAL declared)
  set(unexpected ${exported})
  list(REMOVE_ITEM unexpected ${declared})
  set(missing ${declared})
  list(REMOVE_ITEM missing ${exported})
  list(LENGTH declared count)
  message(FATAL_ERROR "${LIBRARY} does not export exactly the ${count} "
    "functions of ${HEADERS}.\nExported but not declared: ${unexpected}\n"
    "Declared but not exported: ${missing}")
endif()
list(LENGTH exported count)
message(STATUS "${count} C functions exported, nothing else")
