# What an installation has beside programs, library and headers: data, documents, completion, manual pages, korvane.pc.
# The tree works wherever it lies.

install(DIRECTORY data/scenes data/base DESTINATION ${CMAKE_INSTALL_DATADIR}/korvane)
install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR} FILES_MATCHING PATTERN "*.md" PATTERN "*.schema.json" PATTERN decisions EXCLUDE)
install(FILES README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
if(WIN32)
  return()
endif()

install(FILES data/completions/korvane.bash RENAME korvane
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(FILES data/completions/_korvane DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
install(FILES data/completions/korvane.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)

file(RELATIVE_PATH to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
file(RELATIVE_PATH libraries ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH headers ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/korvane.pc @ONLY CONTENT
[[prefix=${pcfiledir}/@to_prefix@
libdir=${prefix}/@libraries@
includedir=${prefix}/@headers@

Name: korvane
Description: tuning of quadrupole time-of-flight mass spectrometers
Version: @PROJECT_VERSION@
Libs: -L${libdir} -lkorvane
Cflags: -I${includedir}
]])
install(FILES ${PROJECT_BINARY_DIR}/korvane.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The manual, a page a command, is made of what the program tells of itself. It is no part of a sanitizer's build, whose
# program is slow to tell.
if(KORVANE_SANITIZE)
  return()
endif()
find_program(KORVANE_HELP2MAN help2man)
if(NOT KORVANE_HELP2MAN)
  message(STATUS "There will be no manual pages; scripts/bootstrap.sh installs help2man")
  return()
endif()
set(manual ${PROJECT_BINARY_DIR}/man)
add_custom_command(OUTPUT ${manual}/korvane.1 DEPENDS korvane_program cmake/manual_pages.sh VERBATIM
  COMMAND ${PROJECT_SOURCE_DIR}/cmake/manual_pages.sh $<TARGET_FILE:korvane_program> ${manual})
add_custom_target(korvane_manual ALL DEPENDS ${manual}/korvane.1)
install(DIRECTORY ${manual}/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
