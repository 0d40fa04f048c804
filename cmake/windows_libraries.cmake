# The libraries of a cross build for Windows. Header-only ones are those of the build machine, reached through a folder of
# links so that none of its other headers is found; pugixml is compiled from the source of the system's package.
set(headers ${CMAKE_BINARY_DIR}/headers)
file(MAKE_DIRECTORY ${headers})
foreach(library fmt CLI nlohmann)
  file(CREATE_LINK /usr/include/${library} ${headers}/${library} SYMBOLIC)
endforeach()

function(korvane_header_library target)
  add_library(${target} INTERFACE IMPORTED)
  target_include_directories(${target} SYSTEM INTERFACE ${headers})
endfunction()
korvane_header_library(fmt::fmt)
target_compile_definitions(fmt::fmt INTERFACE FMT_HEADER_ONLY)
korvane_header_library(CLI11::CLI11)
korvane_header_library(nlohmann_json::nlohmann_json)

set(ZLIB_USE_STATIC_LIBS ON)
find_package(ZLIB REQUIRED)

set(KORVANE_PUGIXML ${CMAKE_BINARY_DIR}/pugixml CACHE PATH "Source of pugixml, fetched when it is not there")
if(NOT EXISTS ${KORVANE_PUGIXML}/src/pugixml.cpp)
  execute_process(COMMAND ${PROJECT_SOURCE_DIR}/scripts/fetch_pugixml.sh ${KORVANE_PUGIXML} COMMAND_ERROR_IS_FATAL ANY)
endif()
add_library(pugixml STATIC ${KORVANE_PUGIXML}/src/pugixml.cpp)
target_include_directories(pugixml SYSTEM PUBLIC ${KORVANE_PUGIXML}/src)
add_library(pugixml::pugixml ALIAS pugixml)
