# zorv run as a user runs it, compared with golden transcripts. Each golden/<case>.run lists zorv
# runs and the files to look at afterwards; everything they print, their exit statuses and those
# files must read as golden/<case>.out. No Python and no shell, so it runs on Windows (through the
# cross build's runner) as on POSIX.
#
#   cmake -DZORV=<zorv> [-DRUNNER=<runner>] -DWORK_DIR=<scratch> [-DPOSIX=ON] [-DCASES=a,b] -P golden_run.cmake
#
# Each case runs in a fresh WORK_DIR/<case> holding a copy of golden/data, with TMPDIR pointing at
# its tmp/, which must be empty again at the end. A .run file's lines:
#   zorv ARGS...        run zorv (ARGS split as a POSIX shell would split them)
#   stdin FILE          the next zorv reads FILE as its standard input
#   show FILE           append FILE
#   grep REGEX FILE     append the lines of FILE that match REGEX
#   ignore REGEX        leave out every line that matches REGEX (a race of the job's worker)
#   posix               (first) the case needs POSIX: a shell launcher or the analysis script
# The scratch folder's path reads @WORK@; zorv's own temporary folder and a job's result file
# read zorv-@ and @.csv.
#
# With GENOSTAT_UPDATE_GOLDEN=1 in the environment the .out files are written instead of compared;
# read every change before committing it.
cmake_minimum_required(VERSION 3.20)
set(golden ${CMAKE_CURRENT_LIST_DIR}/golden)
file(GLOB runs RELATIVE ${golden} ${golden}/*.run)
string(REPLACE "," ";" only "${CASES}")
set(failed "")

# Keeps the lines of `var` that match `regex` (keep ON) or that do not (keep OFF).
function(filter_lines var regex keep)
  string(REPLACE ";" "@SEMICOLON@" t "${${var}}")  # a list's separator
  string(REGEX MATCHALL "[^\n]*\n|[^\n]+$" t "${t}")
  set(kept "")
  foreach(l IN LISTS t)
    set(matches OFF)
    if(l MATCHES "${regex}")
      set(matches ON)
    endif()
    if(matches STREQUAL keep)
      string(APPEND kept "${l}")
    endif()
  endforeach()
  string(REPLACE "@SEMICOLON@" ";" kept "${kept}")
  set(${var} "${kept}" PARENT_SCOPE)
endfunction()

foreach(run IN LISTS runs)
  string(REGEX REPLACE "\\.run$" "" case "${run}")
  if(only AND NOT case IN_LIST only)
    continue()
  endif()
  set(dir ${WORK_DIR}/${case})
  file(REMOVE_RECURSE ${dir})
  file(COPY ${golden}/data/ DESTINATION ${dir})
  file(MAKE_DIRECTORY ${dir}/tmp)
  file(STRINGS ${golden}/${run} lines ENCODING UTF-8)
  set(text "")
  set(ignored "")
  set(input "")
  set(skip OFF)
  foreach(line IN LISTS lines)
    if(line MATCHES "^posix$")
      if(NOT POSIX)
        set(skip ON)
        break()
      endif()
    elseif(line MATCHES "^ignore (.*)$")
      list(APPEND ignored "${CMAKE_MATCH_1}")
    elseif(line MATCHES "^stdin (.*)$")
      set(input INPUT_FILE ${dir}/${CMAKE_MATCH_1})
    elseif(line MATCHES "^zorv ?(.*)$")
      separate_arguments(args UNIX_COMMAND "${CMAKE_MATCH_1}")
      execute_process(COMMAND ${CMAKE_COMMAND} -E env TMPDIR=${dir}/tmp ${RUNNER} ${ZORV} ${args}
                      WORKING_DIRECTORY ${dir} ${input} TIMEOUT 120
                      OUTPUT_VARIABLE out ERROR_VARIABLE err RESULT_VARIABLE rc)
      string(REPLACE "\r\n" "\n" out "${out}")  # text mode on Windows; the files zorv writes stay bytes
      string(REPLACE "\r\n" "\n" err "${err}")
      string(APPEND text "$ ${line}\n${out}")
      if(NOT err STREQUAL "")
        string(APPEND text "--- stderr\n${err}")
      endif()
      string(APPEND text "--- exit ${rc}\n")
      set(input "")
    elseif(line MATCHES "^(show|grep ([^ ]+)) (.*)$")
      set(content "(no such file)\n")
      if(EXISTS ${dir}/${CMAKE_MATCH_3})
        file(READ ${dir}/${CMAKE_MATCH_3} content)
      endif()
      if(CMAKE_MATCH_2)
        filter_lines(content "${CMAKE_MATCH_2}" ON)
        set(CMAKE_MATCH_3 "${CMAKE_MATCH_3} (${CMAKE_MATCH_2})")
      endif()
      string(APPEND text "--- ${CMAKE_MATCH_3}\n${content}")
    elseif(NOT line MATCHES "^(#.*)?$")
      message(FATAL_ERROR "${run}: not understood: ${line}")
    endif()
  endforeach()
  if(skip)
    message(STATUS "${case}: left out (needs POSIX)")
    continue()
  endif()
  file(GLOB left RELATIVE ${dir}/tmp ${dir}/tmp/*)
  if(POSIX AND left)
    string(APPEND text "--- left in TMPDIR: ${left}\n")
  endif()
  string(REPLACE "${dir}" "@WORK@" text "${text}")
  string(REGEX REPLACE "/zorv-[A-Za-z0-9]+" "/zorv-@" text "${text}")
  string(REGEX REPLACE "/[0-9]+\\.csv" "/@.csv" text "${text}")
  if(ignored)
    list(JOIN ignored "|" ignored)
    filter_lines(text "${ignored}" OFF)
  endif()

  set(expected "")
  if(EXISTS ${golden}/${case}.out)
    file(READ ${golden}/${case}.out expected)
  endif()
  if("$ENV{GENOSTAT_UPDATE_GOLDEN}")
    file(WRITE ${golden}/${case}.out "${text}")
    message(STATUS "${case}: written")
  elseif(text STREQUAL expected)
    message(STATUS "${case}: as golden")
  else()
    file(WRITE ${dir}.actual "${text}")
    execute_process(COMMAND diff -u ${golden}/${case}.out ${dir}.actual)
    message(SEND_ERROR "${case}: differs from golden/${case}.out; the transcript is in ${dir}.actual")
    list(APPEND failed ${case})
  endif()
endforeach()
if(failed)
  message(FATAL_ERROR "transcripts that differ: ${failed}")
endif()
