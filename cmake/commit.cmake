# Which commit was built: KORVANE_COMMIT, else what git says of the sources.
if(NOT KORVANE_COMMIT)
  execute_process(COMMAND git -C ${PROJECT_SOURCE_DIR} rev-parse --short=12 HEAD OUTPUT_VARIABLE KORVANE_COMMIT
                  OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  # A build to hand on is to know its commit; while one works on the sources, linking anew for each would only cost time.
  if(CMAKE_BUILD_TYPE STREQUAL Release AND EXISTS ${PROJECT_SOURCE_DIR}/.git/logs/HEAD)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/.git/logs/HEAD)
  endif()
endif()
set_source_files_properties(src/assembly/build_information.cpp PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON
  COMPILE_DEFINITIONS "KORVANE_COMMIT=\"${KORVANE_COMMIT}\";KORVANE_VERSION=\"${PROJECT_VERSION}\"")
