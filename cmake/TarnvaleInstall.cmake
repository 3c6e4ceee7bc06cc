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

# Each program has a page and a completion; they come with it.
foreach(program tarnvale tarnvale-check tarnvale-read)
  if(TARGET ${program})
    set(packedPage "${PROJECT_BINARY_DIR}/${program}.1.gz")
    tarnvale_packed_file("${PROJECT_SOURCE_DIR}/docs/man/${program}.1" "${packedPage}")
    list(APPEND packedPages "${packedPage}")
    list(APPEND completions "packaging/completions/${program}")
  endif()
endforeach()
set(packedChanges "${PROJECT_BINARY_DIR}/changelog.gz") # the name under which Debian looks for it
tarnvale_packed_file("${PROJECT_SOURCE_DIR}/CHANGELOG.md" "${packedChanges}")
add_custom_target(packed_documents ALL DEPENDS ${packedPages} "${packedChanges}")

install(FILES ${packedPages} DESTINATION "${CMAKE_INSTALL_MANDIR}/man1")
install(FILES ${completions} DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions")
install(FILES README.md "${packedChanges}" DESTINATION "${CMAKE_INSTALL_DOCDIR}")
install(DIRECTORY docs DESTINATION "${CMAKE_INSTALL_DOCDIR}"
  FILES_MATCHING PATTERN "*.md" PATTERN "*.svg" PATTERN man EXCLUDE)

add_custom_target(uninstall
  COMMAND "${CMAKE_COMMAND}" "-DMANIFEST=${PROJECT_BINARY_DIR}/install_manifest.txt"
    "-DOWN_FOLDER=${CMAKE_INSTALL_DOCDIR}" -P "${CMAKE_CURRENT_LIST_DIR}/Uninstall.cmake"
  VERBATIM)
