# Writes the CTest entries of a test program's suites, of a suite with parameters one for each:
#   cmake -DPROGRAM=... -DPREFIX=... -DLABEL=... -DSECONDS=... -DLIST=FILE -P list_suites.cmake
execute_process(COMMAND ${PROGRAM} --gtest_list_tests OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^\n]+" lines "${output}")
set(names "")
foreach(line IN LISTS lines)
  # "Suite."; of a suite with parameters "All/Suite.  # TypeParam = ..." and "  Test/parameter  # ...".
  if(line MATCHES "^([A-Za-z0-9_]+/)?([A-Za-z0-9_]+)\\.")
    set(suite ${CMAKE_MATCH_2})
    set(parameters "${CMAKE_MATCH_1}")
    if(parameters STREQUAL "")
      list(APPEND names ${suite})
    endif()
  elseif(line MATCHES "^  [A-Za-z0-9_]+/([A-Za-z0-9_]+)" AND NOT parameters STREQUAL "")
    list(APPEND names ${suite}.${CMAKE_MATCH_1})
  endif()
endforeach()
list(REMOVE_DUPLICATES names)
set(entries "")
foreach(name IN LISTS names)
  string(REPLACE "." ".*/" filter "${name}")
  if(filter STREQUAL name)
    string(APPEND filter ".*")
  endif()
  # The costs of a build that has run no test yet: what waits long begins first.
  string(APPEND entries
    "add_test([[${PREFIX}.${name}]] [[${PROGRAM}]] [[--gtest_filter=${filter}:*/${filter}]])\n"
    "set_tests_properties([[${PREFIX}.${name}]] PROPERTIES LABELS ${LABEL} TIMEOUT ${SECONDS} COST 60)\n")
endforeach()
file(WRITE ${LIST} "${entries}")
