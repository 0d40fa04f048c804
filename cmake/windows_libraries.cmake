# The libraries of a cross build for Windows. Header-only ones are those of the build machine, reached through a folder of
# links so that none of its other headers is found; Expat and pugixml are compiled from the sources of the system's packages.
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

set(KORVANE_SOURCES ${CMAKE_BINARY_DIR}/sources CACHE PATH "Sources of Debian packages, fetched when they are not there")
execute_process(COMMAND ${PROJECT_SOURCE_DIR}/scripts/fetch_sources.sh ${KORVANE_SOURCES} pugixml=libpugixml-dev
                        expat=libexpat1-dev sqlite3=libsqlite3-dev COMMAND_ERROR_IS_FATAL ANY)
add_library(pugixml STATIC ${KORVANE_SOURCES}/pugixml/src/pugixml.cpp)
target_include_directories(pugixml SYSTEM PUBLIC ${KORVANE_SOURCES}/pugixml/src)
add_library(pugixml::pugixml ALIAS pugixml)

enable_language(C)
set(expat ${KORVANE_SOURCES}/expat/expat/lib)
file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/expat/expat_config.h CONTENT "")
add_library(expat STATIC ${expat}/xmlparse.c ${expat}/xmlrole.c ${expat}/xmltok.c)
target_include_directories(expat SYSTEM PRIVATE ${CMAKE_BINARY_DIR}/expat PUBLIC ${expat})
# What its own configuration step finds out, as for Debian's library.
target_compile_definitions(expat PUBLIC XML_STATIC
                           PRIVATE BYTEORDER=1234 HAVE_MEMMOVE XML_CONTEXT_BYTES=1024 XML_DTD XML_NS)
add_library(EXPAT::EXPAT ALIAS expat)

# SQLite's own makefile puts its sources together as one, which needs no configuration.
set(sqlite ${KORVANE_SOURCES}/sqlite3/one)
if(NOT EXISTS ${sqlite}/sqlite3.c)
  file(MAKE_DIRECTORY ${sqlite})
  execute_process(COMMAND ${CMAKE_COMMAND} -E env --unset=CC ../configure --disable-tcl WORKING_DIRECTORY ${sqlite}
                  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND make sqlite3.c WORKING_DIRECTORY ${sqlite} OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
endif()
add_library(sqlite3 STATIC ${sqlite}/sqlite3.c)
target_include_directories(sqlite3 SYSTEM PUBLIC ${sqlite})
target_compile_definitions(sqlite3 PRIVATE SQLITE_OMIT_LOAD_EXTENSION)
add_library(SQLite::SQLite3 ALIAS sqlite3)

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
