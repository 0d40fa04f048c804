# The libraries of a cross build for Windows. Header-only ones are those of the build machine, reached through a folder of
# links so that none of its other headers is found; pugixml is compiled from the source of the system's package.
set(headers ${CMAKE_BINARY_DIR}/headers)
file(MAKE_DIRECTORY ${headers})
foreach(library fmt CLI nlohmann)
  file(CREATE_LINK /usr/include/${library} ${headers}/${library} SYMBOLIC)
endforeach()

file(CREATE_LINK /usr/include/eigen3/Eigen ${headers}/Eigen SYMBOLIC)

function(korvane_header_library target)
  add_library(${target} INTERFACE IMPORTED)
  target_include_directories(${target} SYSTEM INTERFACE ${headers})
endfunction()
# Header-only {fmt} would be compiled anew in every source.
add_library(fmt STATIC ${PROJECT_SOURCE_DIR}/cmake/fmt.cpp)
target_include_directories(fmt SYSTEM PUBLIC ${headers})
add_library(fmt::fmt ALIAS fmt)
korvane_header_library(CLI11::CLI11)
korvane_header_library(Eigen3::Eigen)
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

if(KORVANE_TESTS)
  set(BUILD_GMOCK ON)
  set(INSTALL_GTEST OFF)
  add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
  foreach(part gtest gtest_main gmock)
    if(NOT TARGET GTest::${part})
      add_library(GTest::${part} ALIAS ${part})
    endif()
  endforeach()
endif()
