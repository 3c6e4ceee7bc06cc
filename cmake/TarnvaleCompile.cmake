# How every target of the project is compiled: the interface target tarnvale_compile carries warnings, the version,
# sanitizers and hardening.
include(CheckIPOSupported)

add_library(tarnvale_compile INTERFACE)

target_compile_options(tarnvale_compile INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast -Wnon-virtual-dtor -Wcast-align
  -Wformat=2 -Wimplicit-fallthrough
  $<$<CXX_COMPILER_ID:GNU>:-Wuseless-cast>
  $<$<BOOL:${TARNVALE_WERROR}>:-Werror>)

# The version is written in CMakeLists.txt alone. The texts are ready to stand beside other string literals.
target_compile_definitions(tarnvale_compile INTERFACE
  "TARNVALE_VERSION=\"${PROJECT_VERSION}\"" "TARNVALE_RELEASE_DATE=\"${TARNVALE_RELEASE_DATE}\"")

# Debug builds check the bounds of spans, views and containers.
target_compile_definitions(tarnvale_compile INTERFACE $<$<CONFIG:Debug>:_GLIBCXX_ASSERTIONS>)

if(TARNVALE_SANITIZE)
  set(sanitizers -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_compile_options(tarnvale_compile INTERFACE ${sanitizers})
  target_link_options(tarnvale_compile INTERFACE ${sanitizers})
endif()

# The hot loops call small routines of other files, so a release is optimised across all of them. The objects of g++
# hold finished machine code as well: the tests link that, which is faster and spares them g++'s false warnings.
if(CMAKE_BUILD_TYPE STREQUAL "Release")
  check_ipo_supported(RESULT ipoSupported OUTPUT ipoReason LANGUAGES CXX)
  if(ipoSupported)
    set(CMAKE_INTERPROCEDURAL_OPTIMIZATION ON)
    target_compile_options(tarnvale_compile INTERFACE $<$<CXX_COMPILER_ID:GNU>:-ffat-lto-objects>)
  else()
    message(STATUS "This compiler cannot optimise across files here")
    message(VERBOSE "${ipoReason}")
  endif()
endif()
