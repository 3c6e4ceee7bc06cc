# Read by cpack: a package is not made without the programs that find out what it depends on. Without dpkg-shlibdeps
# cpack would only warn, and make a package that can be installed where the programs do not run.
foreach(tool file:file dpkg-shlibdeps:dpkg-dev)
  string(REGEX MATCH "^(.*):(.*)$" matched "${tool}")
  set(command "${CMAKE_MATCH_1}")
  set(package "${CMAKE_MATCH_2}")
  unset(TARNVALE_PACKAGE_TOOL CACHE)
  find_program(TARNVALE_PACKAGE_TOOL "${command}")
  if(NOT TARNVALE_PACKAGE_TOOL)
    message(FATAL_ERROR "The Debian package cannot be made without ${command}: apt-get install ${package}")
  endif()
endforeach()
