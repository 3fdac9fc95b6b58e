# Writes the CTest entries of a test program's suites:
#   cmake -DPROGRAM=... -DPREFIX=... -DLABEL=... -DSECONDS=... -DLIST=FILE -P list_suites.cmake
execute_process(COMMAND ${PROGRAM} --gtest_list_tests OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^\n]+" lines "${output}")
set(suites "")
foreach(line IN LISTS lines)
  # "Suite." or, of a suite with parameters, "All/Suite.  # TypeParam = ...".
  if(line MATCHES "^([A-Za-z0-9_]+/)?([A-Za-z0-9_]+)\\.")
    list(APPEND suites ${CMAKE_MATCH_2})
  endif()
endforeach()
list(REMOVE_DUPLICATES suites)
set(entries "")
foreach(suite IN LISTS suites)
  set(name "${PREFIX}.${suite}")
  string(APPEND entries
    "add_test([[${name}]] [[${PROGRAM}]] [[--gtest_filter=${suite}.*:*/${suite}.*]])\n"
    "set_tests_properties([[${name}]] PROPERTIES LABELS ${LABEL} TIMEOUT ${SECONDS})\n")
endforeach()
file(WRITE ${LIST} "${entries}")
