# Runs every shipped example through the program as a user would: each example cell with each example
# action list, and each example script.  Each run must end with status 0, and what it prints and every
# result file it writes must equal the reviewed copy in tests/examples/expected, but for the dates and
# the home folder, which differ from run to run.  Band files are compared for the admittance and
# quantum-efficiency list alone: those of the other runs hold the same kind of rows and are left out
# for their size.
#
#   cmake -DTERVO=<executable> -DSOURCE_DIR=<repository> -DWORK_DIR=<scratch folder>
#         [-DUPDATE=ON] -P run_examples.cmake
#
# With UPDATE=ON the expected copies are written anew from this build; `git diff` then shows every
# number that moved, for review before it is committed.

foreach(var TERVO SOURCE_DIR WORK_DIR)
  if(NOT ${var})
    message(FATAL_ERROR "run_examples: pass -D${var}=...")
  endif()
endforeach()
set(expected_dir "${SOURCE_DIR}/tests/examples/expected")

# A home folder of its own: the shipped tree with the examples where the program looks for them.
set(home "${WORK_DIR}/examples_home")
file(REMOVE_RECURSE "${home}")
file(COPY "${SOURCE_DIR}/home/" DESTINATION "${home}")
file(GLOB cells "${SOURCE_DIR}/examples/cells/*.def")
file(GLOB actions RELATIVE "${SOURCE_DIR}/examples/actions" "${SOURCE_DIR}/examples/actions/*.act")
file(GLOB scripts "${SOURCE_DIR}/examples/scripts/*.script")
file(COPY ${cells} DESTINATION "${home}/def")
foreach(action IN LISTS actions)
  file(COPY "${SOURCE_DIR}/examples/actions/${action}" DESTINATION "${home}/def")
endforeach()
file(COPY ${scripts} DESTINATION "${home}/script")
file(GLOB home_cells RELATIVE "${home}/def" "${home}/def/*.def")

set(failures "")

# The text of a run with what differs between runs replaced: dates and times, the home folder, the
# program's own path in its version line.
function(normalise text out)
  string(REPLACE "${home}" "<home>" text "${text}")
  string(REGEX REPLACE "[0-9]+-[0-9]+-[0-9]+(,| at) +[0-9]+:[0-9]+:[0-9]+" "<date>" text "${text}")
  string(REGEX REPLACE "Version [^\n,]*," "Version <program>," text "${text}")
  set(${out} "${text}" PARENT_SCOPE)
endfunction()

# Compares one text with its expected copy, or writes the copy anew.
function(compare label name text)
  normalise("${text}" text)
  set(copy "${expected_dir}/${label}/${name}")
  if(UPDATE)
    file(WRITE "${copy}" "${text}")
  elseif(NOT EXISTS "${copy}")
    set(failures "${failures}\n  ${label}: ${name} has no expected copy" PARENT_SCOPE)
  else()
    file(READ "${copy}" want)
    if(NOT text STREQUAL want)
      file(WRITE "${WORK_DIR}/examples_actual/${label}/${name}" "${text}")
      set(failures "${failures}\n  ${label}: ${name} differs from ${copy} (this run's copy: ${WORK_DIR}/examples_actual/${label}/${name})" PARENT_SCOPE)
    endif()
  endif()
endfunction()

# One run: its status, what it printed and the result files it wrote, in a fresh results folder.
function(run label)
  file(REMOVE_RECURSE "${home}/results")
  file(MAKE_DIRECTORY "${home}/results")
  execute_process(COMMAND "${TERVO}" --home "${home}" ${ARGN}
                  RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT status EQUAL 0 OR NOT err STREQUAL "")
    string(APPEND failures "\n  ${label}: exit status ${status}, messages: ${err}")
  endif()
  compare("${label}" "terminal.txt" "${out}")
  file(GLOB written RELATIVE "${home}/results" "${home}/results/*")
  list(REMOVE_ITEM written ".gitkeep")
  if(NOT written)
    string(APPEND failures "\n  ${label}: no result file written")
  endif()
  foreach(name IN LISTS written)
    if(name MATCHES "\\.eb$" AND NOT label MATCHES "cv_cf_qe$")
      continue()
    endif()
    file(READ "${home}/results/${name}" text)
    compare("${label}" "${name}" "${text}")
  endforeach()
  set(failures "${failures}" PARENT_SCOPE)
endfunction()

if(UPDATE)
  file(REMOVE_RECURSE "${expected_dir}")
endif()
file(REMOVE_RECURSE "${WORK_DIR}/examples_actual")
foreach(cell IN LISTS home_cells)
  string(REGEX REPLACE "\\.def$" "" name "${cell}")
  foreach(action IN LISTS actions)
    string(REGEX REPLACE "\\.act$" "" list "${action}")
    run("${name}.${list}" "${cell}" "${action}")
  endforeach()
endforeach()
foreach(script IN LISTS scripts)
  get_filename_component(name "${script}" NAME)
  run("${name}" "${name}")
endforeach()

file(REMOVE_RECURSE "${home}")
if(failures)
  message(FATAL_ERROR "Shipped examples that did not run as expected:${failures}")
endif()
list(LENGTH home_cells ncells)
list(LENGTH actions nactions)
list(LENGTH scripts nscripts)
message(STATUS "${ncells} cells with ${nactions} action lists and ${nscripts} scripts ran as expected")
