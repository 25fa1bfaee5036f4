# GENOSTAT_SANITIZE applies to every target of the build, so that instrumented and uninstrumented
# code never share an object.
if(GENOSTAT_SANITIZE)
  if(GENOSTAT_SANITIZE STREQUAL "thread")
    set(_genostat_san_flags -fsanitize=thread)
  else()
    set(_genostat_san_flags -fsanitize=${GENOSTAT_SANITIZE} -fno-sanitize-recover=all)
    if(CMAKE_CXX_COMPILER_ID MATCHES "Clang" AND GENOSTAT_SANITIZE MATCHES "undefined")
      # Debian's rapidjson 1.1.0 adds an offset to its still-null stack pointer before the stack's
      # first allocation (internal/stack.h, Stack::Reserve), on every parse and write; clang's
      # pointer-overflow check would stop every JSON user there.
      list(APPEND _genostat_san_flags -fno-sanitize=pointer-overflow)
    endif()
  endif()
  add_compile_options(${_genostat_san_flags} -fno-omit-frame-pointer -g)
  add_link_options(${_genostat_san_flags})
endif()

# libFuzzer targets (clang only, in a build tree of their own): all code gets coverage
# instrumentation, and each fuzzer links the libFuzzer driver.
if(GENOSTAT_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

function(genostat_fuzzer name)
  if(NOT GENOSTAT_FUZZ)
    return()
  endif()
  add_executable(${name} ${ARGN})
  target_link_options(${name} PRIVATE -fsanitize=fuzzer)
endfunction()
