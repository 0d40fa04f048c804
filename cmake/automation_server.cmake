# Korvane.dll: the automation server, with its type library inside, which is made from the member tables.
set(com ${PROJECT_SOURCE_DIR}/src/automation/com)
set(typelib ${CMAKE_CURRENT_BINARY_DIR}/typelib)
file(MAKE_DIRECTORY ${typelib})
set(KORVANE_TYPE_LIBRARY_FOLDER ${typelib})

# A tool of the build, so it is compiled for the machine that builds. It reads the member tables and calls no member: what
# they point to need not be there.
find_program(KORVANE_BUILD_CXX NAMES g++ c++ clang++ NO_CMAKE_FIND_ROOT_PATH REQUIRED)
file(GLOB tool_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/typelib/*.cpp)
foreach(source tables late_binding value)
  list(APPEND tool_sources ${PROJECT_SOURCE_DIR}/src/automation/${source}.cpp)
endforeach()
file(GLOB table_headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/automation/*.h ${PROJECT_SOURCE_DIR}/include/korvane/*.h
                                          ${PROJECT_SOURCE_DIR}/cmake/typelib/*.h)
set(tool_objects "")
foreach(source ${tool_sources})
  get_filename_component(name ${source} NAME_WE)
  list(APPEND tool_objects ${typelib}/${name}.o)
  add_custom_command(OUTPUT ${typelib}/${name}.o
    COMMAND ${CMAKE_CXX_COMPILER_LAUNCHER} ${KORVANE_BUILD_CXX} -std=c++20 -DFMT_HEADER_ONLY -I${PROJECT_SOURCE_DIR}/src
            -I${PROJECT_SOURCE_DIR}/include -c ${source} -o ${typelib}/${name}.o
    DEPENDS ${source} ${table_headers} VERBATIM)
endforeach()
add_custom_command(OUTPUT ${typelib}/typelib
  COMMAND ${KORVANE_BUILD_CXX} -static -Wl,--unresolved-symbols=ignore-all ${tool_objects} -o ${typelib}/typelib
  DEPENDS ${tool_objects} VERBATIM)

# The standard type library comes with Wine.
find_program(KORVANE_WIDL NAMES ${KORVANE_MINGW}-widl NO_CMAKE_FIND_ROOT_PATH REQUIRED)
file(GLOB standard_library /usr/lib/*/wine/*-windows/stdole2.tlb)
if(NOT standard_library)
  message(FATAL_ERROR "stdole2.tlb was not found; scripts/bootstrap.sh windows installs it")
endif()
list(GET standard_library 0 standard_library)
get_filename_component(standard_library_folder ${standard_library} DIRECTORY)
math(EXPR bits "8 * ${CMAKE_SIZEOF_VOID_P}")
add_custom_command(OUTPUT ${typelib}/korvane.tlb
  COMMAND ${typelib}/typelib idl plain.idl
  COMMAND ${KORVANE_WIDL} -m${bits} -t -L ${standard_library_folder} -o plain.tlb plain.idl
  COMMAND ${typelib}/typelib patch plain.tlb korvane.tlb
  DEPENDS ${typelib}/typelib
  WORKING_DIRECTORY ${typelib} VERBATIM)

# Beside the server's entry points the library exports the C interface: what the headers declare.
file(READ ${com}/korvane.def exports)
foreach(header korvane_c korvane_c_layer)
  file(READ ${PROJECT_SOURCE_DIR}/include/korvane/${header}.h declarations)
  string(REGEX MATCHALL "KORVANE_C_API [a-z0-9_ *]*[ *]korvane_[a-z_]+\\(" declarations "${declarations}")
  foreach(declaration ${declarations})
    string(REGEX REPLACE ".*[ *](korvane_[a-z_]+)\\($" "    \\1\n" name "${declaration}")
    string(APPEND exports ${name})
  endforeach()
endforeach()
file(CONFIGURE OUTPUT ${typelib}/korvane.def CONTENT "${exports}" @ONLY)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/korvane/korvane_c.h)
add_library(korvane_server MODULE ${typelib}/korvane.def ${com}/korvane.rc)
target_include_directories(korvane_server PRIVATE ${typelib})
set_source_files_properties(${com}/korvane.rc PROPERTIES OBJECT_DEPENDS ${typelib}/korvane.tlb)
set_target_properties(korvane_server PROPERTIES OUTPUT_NAME Korvane PREFIX "" LINKER_LANGUAGE CXX
                                                LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
target_link_libraries(korvane_server PRIVATE korvane)
# The definition file has the undecorated names, which 32-bit entry points do not have by themselves.
target_link_options(korvane_server PRIVATE -Wl,--enable-stdcall-fixup $<$<CONFIG:Release>:-s>)
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  # Nor do they then bring their object out of the archive.
  target_link_options(korvane_server PRIVATE -Wl,-u,_DllGetClassObject@12)
endif()
install(TARGETS korvane_server LIBRARY DESTINATION ${CMAKE_INSTALL_BINDIR})
