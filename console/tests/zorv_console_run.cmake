# zorv run as a user runs it, checked from its output: a syntax file with CRLF lines in a folder
# with a non-ASCII name, standard input, --events to a file and to standard output, the output page,
# the default installation folder, and start-up errors. Needs no Python and no shell, so it runs on
# Windows (through the cross build's runner) as on POSIX.
#
#   cmake -DZORV=<zorv program> [-DRUNNER=<runner>] -DWORK_DIR=<scratch folder> -P zorv_console_run.cmake
cmake_minimum_required(VERSION 3.20)
foreach(var ZORV WORK_DIR)
  if(NOT DEFINED ${var})
    message(FATAL_ERROR "${var} is not set")
  endif()
endforeach()

set(failures 0)
macro(fail text)
  message(SEND_ERROR "${step}: ${text}")
  math(EXPR failures "${failures} + 1")
endmacro()
macro(expect_equal actual expected what)
  if(NOT "${actual}" STREQUAL "${expected}")
    fail("${what}: expected [${expected}], got [${actual}]")
  endif()
endmacro()
macro(expect_contains text needle what)
  string(FIND "${text}" "${needle}" found_at)
  if(found_at EQUAL -1)
    fail("${what}: [${needle}] not in [${text}]")
  endif()
endmacro()

# Runs zorv in WORK_DIR; sets out, err (line ends as LF) and rc.
function(run_zorv)
  cmake_parse_arguments(RUN "" "INPUT" "ARGS" ${ARGN})
  set(input)
  if(RUN_INPUT)
    set(input INPUT_FILE ${RUN_INPUT})
  endif()
  execute_process(COMMAND ${RUNNER} ${ZORV} ${RUN_ARGS}
                  WORKING_DIRECTORY ${WORK_DIR} ${input}
                  OUTPUT_VARIABLE o ERROR_VARIABLE e RESULT_VARIABLE r TIMEOUT 60)
  string(REPLACE "\r\n" "\n" o "${o}")
  string(REPLACE "\r\n" "\n" e "${e}")
  set(out "${o}" PARENT_SCOPE)
  set(err "${e}" PARENT_SCOPE)
  set(rc "${r}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
set(folder "sitzung-ä日本")
file(MAKE_DIRECTORY "${WORK_DIR}/${folder}")

# ---- A syntax file: a summary, a command error, a host command's error -------------------------
set(step "syntax file")
file(WRITE "${WORK_DIR}/${folder}/lauf.sps"
     "GENOSTAT /PRINT SAMPLE_COUNT=2 VARIABLE_COUNT=25 MESSAGE=100\r\n"
     "   /JOB NAME='probe'.\r\n"
     "GENOSTAT /NOSUCH.\r\n"
     "DATASET NAME x.\r\n")
run_zorv(ARGS --events "${folder}/ereignisse-ü.jsonl" --output "${folder}/seite-ü.html"
              "${folder}/lauf.sps")
expect_equal("${rc}" "1" "exit status (a command failed)")
expect_contains("${out}" "Summary\n" "the summary table")
expect_contains("${out}" "│ Samples   │     2 │\n│ Variables │    25 │" "the counts")
expect_contains("${out}" "│ Dataset │ probe" "the job's dataset in the Details table")
expect_equal("${err}"
  "${folder}/lauf.sps:3: GENOSTAT: Line 1, column 11, at NOSUCH: unknown subcommand of GENOSTAT.\n${folder}/lauf.sps:4: DATASET NAME: there is no active dataset to name\n"
  "the errors, each with its file and line")

set(step "events file")
if(NOT EXISTS "${WORK_DIR}/${folder}/ereignisse-ü.jsonl")
  fail("no events file under its non-ASCII name")
else()
  file(READ "${WORK_DIR}/${folder}/ereignisse-ü.jsonl" events)
  string(FIND "${events}" "\r" cr_at)
  expect_equal("${cr_at}" "-1" "position of a carriage return in the event lines")
  expect_contains("${events}" "{\"event\":\"table\",\"title\":\"Summary\",\"column_labels\":[\"Count\"],\"row_labels\":[\"Samples\",\"Variables\"],\"cells\":[[\"2\"],[\"25\"]]}\n" "the summary's event")
  expect_contains("${events}" "{\"event\":\"error\",\"command\":\"DATASET NAME\",\"text\":\"there is no active dataset to name\"}\n" "the error's event")
endif()

set(step "output page")
if(NOT EXISTS "${WORK_DIR}/${folder}/seite-ü.html")
  fail("no output page under its non-ASCII name")
else()
  file(READ "${WORK_DIR}/${folder}/seite-ü.html" page)
  string(FIND "${page}" "<!DOCTYPE html>" doctype_at)
  expect_equal("${doctype_at}" "0" "where the page's doctype is")
  expect_contains("${page}" "GENOSTAT: Line 1, column 11, at NOSUCH" "the command error on the page")
endif()

# ---- Standard input, events on standard output, human output on standard error -----------------
set(step "standard input")
file(WRITE "${WORK_DIR}/eingabe.txt" "GENOSTAT /PRINT\r\n  SAMPLE_COUNT=7 MESSAGE=100.\r\n:jobs\r\n")
run_zorv(INPUT "${WORK_DIR}/eingabe.txt" ARGS --events -)
expect_equal("${rc}" "0" "exit status")
string(REGEX MATCHALL "[^\n]+" event_lines "${out}")
list(LENGTH event_lines n_events)
expect_equal("${n_events}" "2" "number of lines on standard output (the two table events)")
foreach(line IN LISTS event_lines)
  string(FIND "${line}" "{\"event\":\"table\"," event_at)
  expect_equal("${event_at}" "0" "where a table event starts in [${line}]")
endforeach()
expect_contains("${out}" "\"cells\":[[\"7\"],[\"0\"]]" "the summary read from standard input")
expect_contains("${err}" "No jobs.\n" "the console command's answer on standard error")
expect_contains("${err}" "│ Samples   │     7 │" "the table text on standard error")

# ---- Start-up and file errors ------------------------------------------------------------------
set(step "missing installation folder")
run_zorv(ARGS --install-dir "${folder}/fehlt" -e "GENOSTAT /PRINT.")
expect_equal("${rc}" "2" "exit status")
expect_equal("${err}" "zorv: installation folder not found: ${folder}/fehlt\n" "the message")
expect_equal("${out}" "" "output (nothing may run)")

set(step "output page in a missing folder")
run_zorv(ARGS --output "${folder}/fehlt/seite.html" -e "GENOSTAT /PRINT.")
expect_equal("${rc}" "2" "exit status")
expect_equal("${err}" "zorv: cannot write the output page ${folder}/fehlt/seite.html: No such file or directory\n" "the message")

set(step "missing temporary folder")
run_zorv(ARGS --temp-dir "${folder}/fehlt" -e "GENOSTAT /PRINT.")
expect_equal("${rc}" "2" "exit status")
expect_equal("${err}" "zorv: temporary folder not found: ${folder}/fehlt\n" "the message")

set(step "missing syntax file")
run_zorv(ARGS "${folder}/fehlt.sps")
expect_equal("${rc}" "1" "exit status")
expect_equal("${err}" "${folder}/fehlt.sps: zorv: cannot open file: No such file or directory\n" "the message")

set(step "command-line mode")
run_zorv(ARGS --batch -e "GENOSTAT /PRINT.")
expect_equal("${rc}" "1" "exit status")
expect_contains("${err}" "-e:1: GENOSTAT: GENOSTAT procedure is not supported in command-line mode." "the refusal")

set(step "unknown option")
run_zorv(ARGS --frob)
expect_equal("${rc}" "2" "exit status")
expect_equal("${err}" "zorv: unknown option '--frob' (try --help)\n" "the message")

if(failures GREATER 0)
  message(FATAL_ERROR "${failures} check(s) failed")
endif()
message(STATUS "zorv console run: all checks passed")
