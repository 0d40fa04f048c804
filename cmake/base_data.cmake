# Compiles the files of data/base into the library, so that a base folder can be written anywhere.
file(GLOB_RECURSE base_files CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}/data/base ${PROJECT_SOURCE_DIR}/data/base/*)
set(base_source ${CMAKE_BINARY_DIR}/base_data.cpp)
set(base_paths ${base_files})
list(TRANSFORM base_paths PREPEND ${PROJECT_SOURCE_DIR}/data/base/)
add_custom_command(OUTPUT ${base_source}
  COMMAND ${CMAKE_COMMAND} -DROOT=${PROJECT_SOURCE_DIR}/data/base "-DFILES=${base_files}" -DOUTPUT=${base_source}
          -P ${PROJECT_SOURCE_DIR}/cmake/embed_files.cmake
  DEPENDS ${base_paths} ${PROJECT_SOURCE_DIR}/cmake/embed_files.cmake VERBATIM)
target_sources(korvane_assembly PRIVATE ${base_source})
