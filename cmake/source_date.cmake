# source_date(VARIABLE): the date of the sources, such as "Nov  2 2026", the form of __DATE__.  It is that of
# SOURCE_DATE_EPOCH (seconds since 1970) if the environment has it, otherwise that of the commit, so that a
# commit gives the same program on any day.  Without either, it is today's date.
function(source_date variable)
  set(time $ENV{SOURCE_DATE_EPOCH})
  if(NOT time AND EXISTS ${PROJECT_SOURCE_DIR}/.git) # this tree's, not an enclosing one's
    execute_process(COMMAND git -C ${PROJECT_SOURCE_DIR} log -1 --format=%ct
      OUTPUT_VARIABLE time ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE)
    # Reconfigure after a new commit.
    execute_process(COMMAND git -C ${PROJECT_SOURCE_DIR} rev-parse --path-format=absolute --git-path logs/HEAD
      OUTPUT_VARIABLE log ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(log AND EXISTS ${log})
      set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${log})
    endif()
  endif()
  if(NOT time)
    message(STATUS "Neither SOURCE_DATE_EPOCH nor a commit is known: builds on other days will differ")
  endif()
  set(before $ENV{SOURCE_DATE_EPOCH})
  set(ENV{SOURCE_DATE_EPOCH} ${time})
  string(TIMESTAMP date "%b %d %Y" UTC)
  set(ENV{SOURCE_DATE_EPOCH} ${before})
  string(REPLACE " 0" "  " date "${date}") # days below 10
  set(${variable} "${date}" PARENT_SCOPE)
endfunction()
