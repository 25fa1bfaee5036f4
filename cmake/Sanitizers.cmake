# GENOSTAT_SANITIZE applies to every target of the build, so that instrumented and uninstrumented
# code never share an object.
if(GENOSTAT_SANITIZE)
  if(GENOSTAT_SANITIZE STREQUAL "thread")
    set(_genostat_san_flags -fsanitize=thread)
  else()
    set(_genostat_san_flags -fsanitize=${GENOSTAT_SANITIZE} -fno-sanitize-recover=all)
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
