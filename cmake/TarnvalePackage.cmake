# The Debian package: cpack --config build/release/CPackConfig.cmake. scripts/check_package makes and tries it.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/package")
set(CPACK_PACKAGE_NAME "${PROJECT_NAME}")
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGE_VENDOR "tarnvale developers")
set(CPACK_PACKAGE_CONTACT "tarnvale developers <developers@tarnvale.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "builds, checks and compacts ISAM indexes over data files")
set(CPACK_PACKAGE_DESCRIPTION
"From a file of records and a list of column ranges, tarnvale makes an index:
a B-tree of the records' keys with the position of each record. Records have
a fixed or variable length and are text or binary; the data may be far larger
than memory.
.
tarnvale-check proves an index against its data file, tarnvale-read lists it
and looks keys up in it.")
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_PROJECT_CONFIG_FILE "${CMAKE_CURRENT_LIST_DIR}/PackageTools.cmake") # read by cpack, before it begins

# CMakeLists.txt alone says which version this is; a release that the changelogs do not tell of is not configured.
function(tarnvale_check_changelog file heading)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/${file}")
  file(READ "${PROJECT_SOURCE_DIR}/${file}" text)
  if(NOT text MATCHES "${heading}")
    message(FATAL_ERROR "${file} does not tell of ${PROJECT_VERSION} of ${TARNVALE_RELEASE_DATE}, the version in "
      "CMakeLists.txt: nothing in it matches ${heading}")
  endif()
endfunction()
string(REPLACE "." "\\." versionPattern "${PROJECT_VERSION}")
tarnvale_check_changelog(CHANGELOG.md "\n## ${versionPattern} \\(${TARNVALE_RELEASE_DATE}\\)\n")
string(CONCAT newestEntry "^tarnvale \\(${versionPattern}-${CPACK_DEBIAN_PACKAGE_RELEASE}\\)[^\n]*\n\n"
  "( [^\n]*\n)*\n -- [^\n]*, ${TARNVALE_RELEASE_DATE} ")
tarnvale_check_changelog(packaging/debian/changelog "${newestEntry}")

# Changelog and copyright are files of the package alone, and so not of cmake --install.
set(packedChangelog "${PROJECT_BINARY_DIR}/changelog.Debian.gz")
tarnvale_packed_file("${PROJECT_SOURCE_DIR}/packaging/debian/changelog" "${packedChangelog}")
add_custom_target(package_changelog ALL DEPENDS "${packedChangelog}")
install(FILES "${packedChangelog}" packaging/debian/copyright DESTINATION "${CMAKE_INSTALL_DOCDIR}"
  COMPONENT package EXCLUDE_FROM_ALL)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
set(CPACK_COMPONENTS_ALL Unspecified package)

include(CPack)
