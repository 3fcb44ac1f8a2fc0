# Checks cmake/source_date.cmake: run by cmake -P, with WORK set to a directory for a repository.
include(${CMAKE_CURRENT_LIST_DIR}/../../../cmake/source_date.cmake)

function(expect_date expected)
  source_date(date)
  if(NOT date STREQUAL expected)
    message(SEND_ERROR "the date is \"${date}\", not \"${expected}\"")
  endif()
endfunction()

function(git)
  execute_process(COMMAND git -C ${WORK} -c user.name=n -c user.email=e -c commit.gpgsign=false ${ARGN}
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
endfunction()

file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
set(PROJECT_SOURCE_DIR ${WORK})
set(ENV{TZ} Pacific/Kiritimati) # the date is that of UTC
set(ENV{SOURCE_DATE_EPOCH} 1698969599)
expect_date("Nov  2 2023")
set(ENV{SOURCE_DATE_EPOCH} 1698969600)
expect_date("Nov  3 2023")

git(init -q)
set(ENV{GIT_AUTHOR_DATE} 2001-09-09T00:00:00Z)
set(ENV{GIT_COMMITTER_DATE} 2010-10-10T10:10:10Z)
git(commit -q --allow-empty -m first)
expect_date("Nov  3 2023")
unset(ENV{SOURCE_DATE_EPOCH})
expect_date("Oct 10 2010")

# Without either, it is today's date, even in a directory inside another repository.
set(PROJECT_SOURCE_DIR ${WORK}/inner)
file(MAKE_DIRECTORY ${WORK}/inner)
string(TIMESTAMP before "%Y" UTC)
source_date(date)
string(TIMESTAMP after "%Y" UTC)
if(NOT date MATCHES " (${before}|${after})$")
  message(SEND_ERROR "the date is \"${date}\", not today")
endif()
