# Runs every shipped example through the program as a user would: each example cell with the light
# and the dark I-V action list, and each example script.  Each run must end with status 0, print its
# summary, and leave result files whose data rows hold numbers (no "nan", no "inf").
#
#   cmake -DTERVO=<executable> -DSOURCE_DIR=<repository> -DWORK_DIR=<scratch folder> -P run_examples.cmake

foreach(var TERVO SOURCE_DIR WORK_DIR)
  if(NOT ${var})
    message(FATAL_ERROR "run_examples: pass -D${var}=...")
  endif()
endforeach()

# A home folder of its own: the shipped tree with the examples where the program looks for them.
set(home "${WORK_DIR}/examples_home")
file(REMOVE_RECURSE "${home}")
file(COPY "${SOURCE_DIR}/home/" DESTINATION "${home}")
file(GLOB cells "${SOURCE_DIR}/examples/cells/*.def")
file(GLOB actions "${SOURCE_DIR}/examples/actions/*.act")
file(GLOB scripts "${SOURCE_DIR}/examples/scripts/*.script")
file(COPY ${cells} ${actions} DESTINATION "${home}/def")
file(COPY ${scripts} DESTINATION "${home}/script")
file(GLOB home_cells RELATIVE "${home}/def" "${home}/def/*.def")

set(failures "")

# Result files must exist, hold data rows, and no number that is not finite.
function(check_results label)
  file(GLOB written "${home}/results/*")
  if(NOT written)
    set(failures "${failures}\n  ${label}: no result file written" PARENT_SCOPE)
    return()
  endif()
  foreach(f IN LISTS written)
    file(READ "${f}" text)
    string(TOLOWER "${text}" lower)
    if(lower MATCHES "[^a-z](nan|inf)[^a-z]")
      set(failures "${failures}\n  ${label}: ${f} holds a number that is not finite" PARENT_SCOPE)
    endif()
    if(NOT text MATCHES "\n *-?[0-9]+(\\.[0-9]+)?\t *-?[0-9]")
      set(failures "${failures}\n  ${label}: ${f} holds no data row" PARENT_SCOPE)
    endif()
  endforeach()
endfunction()

foreach(cell IN LISTS home_cells)
  string(REGEX REPLACE "\\.def$" "" name "${cell}")
  foreach(action light_iv dark_iv)
    file(REMOVE_RECURSE "${home}/results")
    file(MAKE_DIRECTORY "${home}/results")
    execute_process(COMMAND "${TERVO}" --home "${home}" "${cell}" "${action}.act"
                    RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
    set(label "${cell} ${action}")
    if(NOT status EQUAL 0)
      string(APPEND failures "\n  ${label}: exit status ${status}: ${err}")
    endif()
    if(action STREQUAL "light_iv" AND NOT out MATCHES "${name}: Voc = [0-9.]+ V, Jsc = [0-9.]+ mA/cm2")
      string(APPEND failures "\n  ${label}: no summary line in: ${out}")
    endif()
    if(NOT EXISTS "${home}/results/${name}.iv" OR NOT EXISTS "${home}/results/${name}.eb")
      string(APPEND failures "\n  ${label}: ${name}.iv or ${name}.eb missing")
    endif()
    check_results("${label}")
  endforeach()
endforeach()

foreach(script IN LISTS scripts)
  get_filename_component(name "${script}" NAME)
  file(REMOVE_RECURSE "${home}/results")
  file(MAKE_DIRECTORY "${home}/results")
  execute_process(COMMAND "${TERVO}" --home "${home}" "${name}"
                  RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT status EQUAL 0 OR NOT err STREQUAL "")
    string(APPEND failures "\n  ${name}: exit status ${status}, messages: ${err}")
  endif()
  check_results("${name}")
endforeach()

file(REMOVE_RECURSE "${home}")
if(failures)
  message(FATAL_ERROR "Shipped examples that did not run as they should:${failures}")
endif()
list(LENGTH home_cells ncells)
list(LENGTH scripts nscripts)
message(STATUS "${ncells} cells with 2 action lists and ${nscripts} scripts ran cleanly")
