# What is installed besides the programs: manual pages, completion and documents. The target uninstall removes what the
# last cmake --install put in place.
include(GNUInstallDirs)
find_program(GZIP_PROGRAM gzip REQUIRED)

# Packs a file of the sources for the installation; -n keeps name and time out, so that equal files are packed equally.
function(tarnvale_packed_file source packed)
  add_custom_command(OUTPUT "${packed}"
    COMMAND "${GZIP_PROGRAM}" -9nc "${source}" > "${packed}"
    DEPENDS "${source}" VERBATIM)
endfunction()

foreach(page tarnvale.1 tarnvale-check.1)
  set(packedPage "${PROJECT_BINARY_DIR}/${page}.gz")
  tarnvale_packed_file("${PROJECT_SOURCE_DIR}/docs/man/${page}" "${packedPage}")
  list(APPEND packedPages "${packedPage}")
endforeach()
add_custom_target(manual_pages ALL DEPENDS ${packedPages})

install(FILES ${packedPages} DESTINATION "${CMAKE_INSTALL_MANDIR}/man1")
install(FILES packaging/completions/tarnvale packaging/completions/tarnvale-check
  DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions")
install(FILES README.md DESTINATION "${CMAKE_INSTALL_DOCDIR}")
install(DIRECTORY docs DESTINATION "${CMAKE_INSTALL_DOCDIR}"
  FILES_MATCHING PATTERN "*.md" PATTERN "*.svg" PATTERN man EXCLUDE)

add_custom_target(uninstall
  COMMAND "${CMAKE_COMMAND}" "-DMANIFEST=${PROJECT_BINARY_DIR}/install_manifest.txt"
    "-DOWN_FOLDER=${CMAKE_INSTALL_DOCDIR}" -P "${CMAKE_CURRENT_LIST_DIR}/Uninstall.cmake"
  VERBATIM)
