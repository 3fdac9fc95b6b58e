# Writes qvn_build_info.h with the revision, the version and the date of this build. The file is written anew only when
# one of the first two has changed, so that an unchanged tree is not compiled again. With SOURCE_DATE_EPOCH set they
# depend on the commit alone, not on the clone and its branch, and without git on nothing: builds can be reproduced.
#   cmake -DSOURCE_DIR=... -DOUTPUT=... -DVERSION=... -P build_info.cmake
set(branch "release")
set(commit "")
set(date "January 1 2026 00:00:00")
find_package(Git QUIET)
if(GIT_FOUND)
  execute_process(COMMAND ${GIT_EXECUTABLE} -C ${SOURCE_DIR} -c core.abbrev=10 log -1
    "--date=format:%Y-%m-%d %H:%M:%S" "--format= %h %cd"
    OUTPUT_VARIABLE commit OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()
if(DEFINED ENV{SOURCE_DATE_EPOCH})
  string(TIMESTAMP date "%B %d %Y %H:%M:%S" UTC)
elseif(commit)
  execute_process(COMMAND ${GIT_EXECUTABLE} -C ${SOURCE_DIR} rev-parse --abbrev-ref HEAD
    OUTPUT_VARIABLE branch OUTPUT_STRIP_TRAILING_WHITESPACE)
  string(TIMESTAMP date "%B %d %Y %H:%M:%S")
endif()
set(revision "${branch}${commit}, version ${VERSION}")
# As text of the source language: a branch may have a quote in its name.
string(REPLACE "\\" "\\\\" revision "${revision}")
string(REPLACE "\"" "\\\"" revision "${revision}")
set(line "#define QVN_BUILD_REVISION \"${revision}\"\n")
if(EXISTS ${OUTPUT})
  file(READ ${OUTPUT} written)
  string(FIND "${written}" "${line}" at)
  if(NOT at EQUAL -1)
    return()
  endif()
endif()
# The day of the month stands without a leading zero.
string(REGEX REPLACE " 0([0-9]) " " \\1 " date "${date}")
file(WRITE ${OUTPUT} "#pragma once
${line}#define QVN_BUILD_DATE \"${date}\"
")
