# Installs the library into an empty prefix, takes the C++ example out of the README, and builds and runs it against the
# installed package, as a user of the library would.
set(work ${BUILD}/consumer)
file(REMOVE_RECURSE ${work})
function(step)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${ARGN}\n${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

file(READ ${SOURCE}/README.md readme)
if(NOT readme MATCHES "```cpp\n([^`]*)```")
  message(FATAL_ERROR "README.md has no C++ example")
endif()
file(WRITE ${work}/example.cpp "${CMAKE_MATCH_1}")

step(${CMAKE_COMMAND} --install ${BUILD} --prefix ${work}/prefix)
step(${CMAKE_COMMAND} -S ${SOURCE}/tests/consumer -B ${work}/build -DCMAKE_PREFIX_PATH=${work}/prefix
     -DCONSUMER_SOURCE=${work}/example.cpp "-DCMAKE_CXX_FLAGS=${FLAGS}")
step(${CMAKE_COMMAND} --build ${work}/build)
step(${CMAKE_COMMAND} -E env KORVANE_BASE= XDG_DATA_HOME=${work}/home ${work}/build/consumer)
if(NOT output MATCHES "158.96")
  message(FATAL_ERROR "the example did not print the first calibrant:\n${output}")
endif()
