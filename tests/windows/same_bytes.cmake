# Runs the same commands with the same seed by the program of the building system (NATIVE) and by the one for Windows
# (PROGRAM, under EMULATOR), each in its folder below WORK, and compares everything printed and every file written, byte
# for byte. Taken out before: carriage returns, because lines end as is usual on each system; times; the folder's name.
cmake_minimum_required(VERSION 3.25)
if(NOT EXISTS ${NATIVE})
  message(FATAL_ERROR "${NATIVE} is not there: build it first (cmake --build --preset release --target korvane_program)")
endif()
set(base "--base base --seed 11")
set(runs
  "init base"
  "measure ${base}"
  "measure --json ${base}"
  "verify ${base}"
  "peak 566.8885 --json ${base}"
  "adjust FragmentTune --mz 566.8885 --target 50000 --max 250 --apply --no-progress ${base}"
  "adjust QuadAMU --mz 566.8885 --target 50000 --fast --no-progress ${base}"
  "measure ${base}"
  "masslist show ${base}"
  "params list ${base}"
  "setpoint list --json ${base}"
  "record recording.mzML ${base}"
  "measure --replay recording.mzML ${base}")

function(comparable text folder result)
  string(REPLACE "\r" "" text "${text}")
  string(REPLACE "\\\\" "/" text "${text}")  # in JSON
  string(REPLACE "\\" "/" text "${text}")
  string(REGEX REPLACE "(Z:)?${folder}" "FOLDER" text "${text}")
  string(REGEX REPLACE "[0-9]+/[0-9]+/[0-9][0-9][0-9][0-9] [0-9]+:[0-9][0-9]:[0-9][0-9] [AP]M" "TIME" text "${text}")
  string(REGEX REPLACE "20[0-9][0-9]-[0-9][0-9]-[0-9][0-9]T[0-9][0-9]:[0-9][0-9]:[0-9][0-9]" "TIME" text "${text}")
  string(REGEX REPLACE "_20[0-9]+_[0-9]+\\.txt" "_TIME.txt" text "${text}")
  set(${result} "${text}" PARENT_SCOPE)
endfunction()

set(sides NATIVE WINDOWS)
set(NATIVE_COMMAND ${NATIVE})
set(WINDOWS_COMMAND ${EMULATOR} ${PROGRAM})
foreach(side ${sides})
  set(folder ${WORK}/${side})
  file(REMOVE_RECURSE ${folder})
  file(MAKE_DIRECTORY ${folder})
  set(${side}_text "")
  foreach(run ${runs})
    separate_arguments(arguments UNIX_COMMAND "${run}")
    execute_process(COMMAND ${${side}_COMMAND} ${arguments} WORKING_DIRECTORY ${folder} RESULT_VARIABLE code
                    OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT code MATCHES "^[01]$")  # 1: a target that is never reached
      message(FATAL_ERROR "korvane ${run}, ${side}: exit code ${code}\n${err}")
    endif()
    comparable("${out}" ${folder} out)
    string(APPEND ${side}_text "== korvane ${run}: ${code}\n${out}")
  endforeach()
  # Names with a time sort in the order of writing; runs within one second share a file.
  file(GLOB logs ${folder}/base/Logfiles/TuneLog_*)
  string(APPEND ${side}_text "== tune logs\n")
  foreach(log ${logs})
    file(READ ${log} text)
    comparable("${text}" ${folder} text)
    string(APPEND ${side}_text "${text}")
  endforeach()
  foreach(name base/TuneParams.xml base/TunePreferences.xml base/instrument.json recording.mzML)
    file(READ ${folder}/${name} text)
    comparable("${text}" ${folder} text)
    string(APPEND ${side}_text "== ${name}\n${text}")
  endforeach()
  file(WRITE ${WORK}/${side}.txt "${${side}_text}")
endforeach()

string(LENGTH "${NATIVE_text}" length)
string(REGEX MATCHALL "AUTOTUNE LOG" log_lines "${NATIVE_text}")
list(LENGTH log_lines log_lines)
if(log_lines LESS 100)
  message(FATAL_ERROR "only ${log_lines} lines of tune logs were compared")
endif()
if(NOT NATIVE_text STREQUAL WINDOWS_text)
  execute_process(COMMAND diff ${WORK}/NATIVE.txt ${WORK}/WINDOWS.txt)
  message(FATAL_ERROR "the systems differ")
endif()
message("${length} bytes are the same, ${log_lines} lines of tune logs among them")
