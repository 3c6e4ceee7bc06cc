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
  # Between the checks of the sanitizers g++ no longer sees what the C++ library has initialised.
  target_compile_options(tarnvale_compile INTERFACE ${sanitizers}
    $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  target_link_options(tarnvale_compile INTERFACE ${sanitizers})
endif()

# The fuzzer sees by this which way an input went.
if(TARNVALE_FUZZ)
  target_compile_options(tarnvale_compile INTERFACE -fsanitize=fuzzer-no-link)
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

# What a distribution asks of the programs that it ships, in releases only: code at random addresses (PIE), no writable
# table of routines (full RELRO), and checks of the stack and of lengths given to the C library. The sanitizers of other
# builds look closer, and _FORTIFY_SOURCE does nothing without optimisation. A compiler may define the macro by itself,
# so it is taken away first. With it g++ warns of C library results that are thrown away with a cast to void, which here
# says that nothing can be done about a failure; the other builds go on warning of results that are merely forgotten.
if(CMAKE_BUILD_TYPE STREQUAL "Release" AND NOT TARNVALE_SANITIZE)
  target_compile_options(tarnvale_compile INTERFACE
    -fPIE -fstack-protector-strong -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2
    $<$<CXX_COMPILER_ID:GNU>:-Wno-unused-result>)
  target_link_options(tarnvale_compile INTERFACE -pie -Wl,-z,relro -Wl,-z,now)
endif()
