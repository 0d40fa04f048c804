# A room is one folder of src/, built as an object library; libkorvane is made of all of them, and so is the archive that
# tests link, which sees what the library does not export. tests/architecture checks which room may include which.

add_library(korvane_options INTERFACE)
target_include_directories(korvane_options INTERFACE ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/src)
target_compile_options(korvane_options INTERFACE -Wall -Wextra -Wpedantic)
# Sources that a unity build puts together see one another's private names.
set(unity $<BOOL:$<TARGET_PROPERTY:UNITY_BUILD>>)
target_compile_options(korvane_options INTERFACE
  $<$<NOT:${unity}>:-Wshadow> $<$<AND:${unity},$<CXX_COMPILER_ID:GNU>>:-Wno-subobject-linkage>)
# GCC 12 sees overlapping copies in std::string's own code, and an empty optional's content in use.
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(korvane_options INTERFACE -Wno-restrict -Wno-maybe-uninitialized)
endif()
# The same seed gives the same bytes everywhere, which fused multiply-add would spoil.
target_compile_options(korvane_options INTERFACE -ffp-contract=off)
if(KORVANE_SANITIZE)
  target_compile_options(korvane_options INTERFACE -fsanitize=${KORVANE_SANITIZE} -fno-omit-frame-pointer
                                                   -fno-sanitize-recover=all)
  target_link_options(korvane_options INTERFACE -fsanitize=${KORVANE_SANITIZE})
endif()

# Unity builds, which the presets for testing use, put a room's sources together. Private names then meet: these sources,
# which give one another meaning than a neighbour, stay alone.
foreach(source automation/com/entry_points)  # of the server; other programs that use the room have none or their own
  set_source_files_properties(${PROJECT_SOURCE_DIR}/src/${source}.cpp PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
endforeach()

set(KORVANE_OBJECTS "" CACHE INTERNAL "")
set(KORVANE_LIBRARIES "" CACHE INTERNAL "")
set(KORVANE_DATABASES "" CACHE INTERNAL "")

# korvane_room(folder libraries...)
function(korvane_room folder)
  string(REPLACE "/" "_" name ${folder})
  file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/${folder}/*.cpp)
  add_library(korvane_${name} OBJECT ${sources})
  target_link_libraries(korvane_${name} PRIVATE korvane_options ${ARGN})
  set(KORVANE_OBJECTS ${KORVANE_OBJECTS} $<TARGET_OBJECTS:korvane_${name}> CACHE INTERNAL "")
  set(KORVANE_LIBRARIES ${KORVANE_LIBRARIES} ${ARGN} CACHE INTERNAL "")
endfunction()

# korvane_database(name library): a module in the folder "korvane" beside the library, loaded by programs that use such a
# history. On Windows a part of the library.
function(korvane_database name library)
  set(source ${PROJECT_SOURCE_DIR}/src/tune/database/${name}.cpp)
  if(WIN32)
    target_sources(korvane_tune PRIVATE ${source})
    target_link_libraries(korvane_tune PRIVATE ${library})
    set(KORVANE_LIBRARIES ${KORVANE_LIBRARIES} ${library} CACHE INTERNAL "")
    return()
  endif()
  add_library(korvane_${name} MODULE ${source})
  target_link_libraries(korvane_${name} PRIVATE korvane_options ${library})
  set_target_properties(korvane_${name} PROPERTIES BUILD_RPATH "" UNITY_BUILD OFF
                        LIBRARY_OUTPUT_DIRECTORY ${CMAKE_LIBRARY_OUTPUT_DIRECTORY}/korvane)
  set(KORVANE_DATABASES ${KORVANE_DATABASES} korvane_${name} CACHE INTERNAL "")
  install(TARGETS korvane_${name} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/korvane)
endfunction()

# The shared library, its installation and its CMake package. On Windows programs take the library in, and the
# automation server is what others share.
function(korvane_library)
  if(WIN32)
    add_library(korvane STATIC)
  else()
    add_library(korvane SHARED)
  endif()
  add_library(korvane::korvane ALIAS korvane)
  target_sources(korvane PRIVATE ${KORVANE_OBJECTS})
  set_target_properties(korvane PROPERTIES LINKER_LANGUAGE CXX INSTALL_RPATH $ORIGIN)
  target_link_libraries(korvane PRIVATE $<BUILD_INTERFACE:korvane_options> ${KORVANE_LIBRARIES})
  if(WIN32)
    target_link_libraries(korvane INTERFACE korvane_options ${KORVANE_LIBRARIES})
    add_library(korvane_rooms ALIAS korvane)
    return()
  endif()
  add_dependencies(korvane ${KORVANE_DATABASES})
  add_library(korvane_rooms STATIC EXCLUDE_FROM_ALL ${KORVANE_OBJECTS})
  add_dependencies(korvane_rooms ${KORVANE_DATABASES})
  set_target_properties(korvane_rooms PROPERTIES LINKER_LANGUAGE CXX)
  target_link_libraries(korvane_rooms PUBLIC korvane_options ${KORVANE_LIBRARIES})
  # Of version 0 every minor one may break what was built with another.
  set(exports ${PROJECT_SOURCE_DIR}/cmake/korvane.map)
  set_target_properties(korvane PROPERTIES VERSION ${PROJECT_VERSION} LINK_DEPENDS ${exports}
                                           SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
  target_link_options(korvane PRIVATE LINKER:--version-script=${exports})
  target_compile_features(korvane INTERFACE cxx_std_20)
  target_include_directories(korvane INTERFACE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
                                               $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  install(TARGETS korvane EXPORT korvane LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/korvane DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(EXPORT korvane NAMESPACE korvane:: FILE korvaneConfig.cmake
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/korvane)
  include(CMakePackageConfigHelpers)
  write_basic_package_version_file(${CMAKE_BINARY_DIR}/korvaneConfigVersion.cmake COMPATIBILITY SameMinorVersion)
  install(FILES ${CMAKE_BINARY_DIR}/korvaneConfigVersion.cmake DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/korvane)
endfunction()
