# What the build itself promises, in a folder of its own:
#   cmake -DSOURCE_DIR=... -DWORK_DIR=... -P build_test.cmake
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

function(run)
  execute_process(COMMAND ${ARGN} WORKING_DIRECTORY ${WORK_DIR} COMMAND_ERROR_IS_FATAL ANY OUTPUT_QUIET)
endfunction()

# compiler_test.cpp looks at what no type of build may lack, or have.
set(custom -DCMAKE_CXX_FLAGS_CUSTOM=-O1\ -DNDEBUG)
foreach(type IN ITEMS RelWithDebInfo MinSizeRel Custom "")
  run(${CMAKE_COMMAND} -S ${SOURCE_DIR} -B types -G Ninja -DCMAKE_BUILD_TYPE=${type} ${custom})
  run(${CMAKE_COMMAND} --build types --target tests/CMakeFiles/unit_tests.dir/base/compiler_test.cpp.o)
endforeach()

# A branch's name is neither a pattern nor the end of a text, and an unchanged revision leaves the file alone.
set(header ${WORK_DIR}/build_info.h)
set(make_header ${CMAKE_COMMAND} -DSOURCE_DIR=${WORK_DIR} -DOUTPUT=${header} -DVERSION=1.2
    -P ${SOURCE_DIR}/cmake/build_info.cmake)
set(at_any_time ${CMAKE_COMMAND} -E env --unset=SOURCE_DATE_EPOCH ${make_header})
set(at_a_fixed_time ${CMAKE_COMMAND} -E env SOURCE_DATE_EPOCH=0 ${make_header})
run(git init -q -b fix .)
run(git -c user.name=a -c user.email=a@b commit -q --allow-empty -m first)
run(git branch -m "fix/c++20\;\"(or)")
run(${at_any_time})
file(READ ${header} text)
if(NOT text MATCHES "REVISION \"fix/c\\+\\+20;\\\\\"\\(or\\) [0-9a-f]+ [0-9].*, version 1.2\"")
  message(FATAL_ERROR "${text}")
endif()
file(APPEND ${header} "// kept\n")
run(${at_any_time})
file(READ ${header} text)
if(NOT text MATCHES "// kept")
  message(FATAL_ERROR "written again: ${text}")
endif()
run(${at_a_fixed_time})
file(READ ${header} text)
if(NOT text MATCHES "\"release [0-9a-f]+ [0-9].*, version 1.2\".*\"January 1 1970 00:00:00\"")
  message(FATAL_ERROR "depends on more than the commit: ${text}")
endif()
