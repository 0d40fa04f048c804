# korvane_embed(room folder header type function [hashed] [file]): compiles the files of data/<folder>, or one of them,
# into a library room, as what the function that the header declares returns; see embed_files.cmake.
function(korvane_embed room folder header type function)
  set(root ${PROJECT_SOURCE_DIR}/data/${folder})
  file(GLOB_RECURSE files CONFIGURE_DEPENDS RELATIVE ${root} ${root}/${ARGV6}*)
  set(source ${CMAKE_BINARY_DIR}/${folder}_data.cpp)
  set(paths ${files})
  list(TRANSFORM paths PREPEND ${root}/)
  add_custom_command(OUTPUT ${source}
    COMMAND ${CMAKE_COMMAND} -DROOT=${root} "-DFILES=${files}" -DOUTPUT=${source} -DHEADER=${header} -DTYPE=${type}
            -DFUNCTION=${function} "-DHASHED=${ARGV5}" -P ${PROJECT_SOURCE_DIR}/cmake/embed_files.cmake
    DEPENDS ${paths} ${PROJECT_SOURCE_DIR}/cmake/embed_files.cmake VERBATIM)
  target_sources(korvane_${room} PRIVATE ${source})
endfunction()

korvane_embed(assembly base assembly/base_data.h BaseDataFile base_data_files)  # so that `init` works anywhere
korvane_embed(tune report tune/report_data.h ReportFile report_files style.css)
korvane_embed(instrument_simulator scenes instrument/simulator/scene.h simulation::SceneFile simulation::scene_files ""
              default.json)
