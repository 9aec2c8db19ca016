# Fails when an include of src/ runs upward: a folder may include its own headers and those of the
# folders on lower floors, never those of a higher floor.  The floors are read from the line
# "Floors: a < b < ..." of ARCHITECTURE.md, so the document and the check cannot drift apart.
# A folder of src/ that the line does not name is an error too: every folder has its floor.
#
#   cmake -DSOURCE_DIR=<repository> -P tools/check_includes.cmake

if(NOT SOURCE_DIR)
  message(FATAL_ERROR "check_includes: pass -DSOURCE_DIR=<repository>")
endif()

file(STRINGS "${SOURCE_DIR}/ARCHITECTURE.md" floor_lines REGEX "^Floors: ")
list(LENGTH floor_lines count)
if(NOT count EQUAL 1)
  message(FATAL_ERROR "check_includes: ARCHITECTURE.md needs exactly one line \"Floors: a < b < ...\"")
endif()
string(REGEX REPLACE "^Floors: " "" floors "${floor_lines}")
string(REPLACE "<" ";" floors "${floors}")
set(rank 0)
set(known "")
foreach(floor IN LISTS floors)
  string(STRIP "${floor}" floor)
  math(EXPR rank "${rank} + 1")
  set(rank_${floor} ${rank})
  list(APPEND known ${floor})
endforeach()

file(GLOB folders LIST_DIRECTORIES true RELATIVE "${SOURCE_DIR}/src" "${SOURCE_DIR}/src/*")
set(errors "")
foreach(folder IN LISTS folders)
  if(NOT IS_DIRECTORY "${SOURCE_DIR}/src/${folder}")
    continue()
  endif()
  if(NOT DEFINED rank_${folder})
    string(APPEND errors "\n  src/${folder}: a folder that the Floors line of ARCHITECTURE.md does not name")
    continue()
  endif()
  file(GLOB_RECURSE files RELATIVE "${SOURCE_DIR}" "${SOURCE_DIR}/src/${folder}/*.h" "${SOURCE_DIR}/src/${folder}/*.cpp")
  foreach(f IN LISTS files)
    file(STRINGS "${SOURCE_DIR}/${f}" includes REGEX "^[ \t]*#[ \t]*include[ \t]*\"[a-z_]+/")
    foreach(line IN LISTS includes)
      string(REGEX REPLACE "^[ \t]*#[ \t]*include[ \t]*\"([a-z_]+)/.*" "\\1" target "${line}")
      if(DEFINED rank_${target} AND rank_${target} GREATER rank_${folder})
        string(APPEND errors "\n  ${f}: ${line}  (${folder} is below ${target})")
      endif()
    endforeach()
  endforeach()
endforeach()

if(errors)
  message(FATAL_ERROR "Includes that run upward:${errors}\nFloors, lowest first: ${known}")
endif()
message(STATUS "Includes point downward: ${known}")
