# Third-party libraries, all from Debian's archive (scripts/setup-deps.sh installs them).
find_package(Threads REQUIRED)

if(CMAKE_CROSSCOMPILING)
  # rapidjson is header-only and the same for every target, but Debian installs it only under the
  # build machine's /usr/include, which a cross build must not search (glibc's headers live there).
  # A folder holding just a link to it gives the cross compiler rapidjson and nothing else.
  find_path(RAPIDJSON_HOST_DIR rapidjson/document.h PATHS /usr/include NO_DEFAULT_PATH
            NO_CMAKE_FIND_ROOT_PATH REQUIRED)
  set(RAPIDJSON_INCLUDE_DIR ${CMAKE_BINARY_DIR}/cross-include)
  file(MAKE_DIRECTORY ${RAPIDJSON_INCLUDE_DIR})
  file(CREATE_LINK ${RAPIDJSON_HOST_DIR}/rapidjson ${RAPIDJSON_INCLUDE_DIR}/rapidjson SYMBOLIC)
else()
  find_path(RAPIDJSON_INCLUDE_DIR rapidjson/document.h REQUIRED)
endif()
add_library(genostat_rapidjson INTERFACE)
target_include_directories(genostat_rapidjson SYSTEM INTERFACE ${RAPIDJSON_INCLUDE_DIR})

if(BUILD_TESTING)
  if(CMAKE_CROSSCOMPILING)
    # No prebuilt GoogleTest for the target: build Debian's sources with the cross compiler.
    set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
    set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
    add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
  else()
    find_package(GTest REQUIRED)
  endif()
  include(GoogleTest)
endif()

find_package(Python3 3.8 REQUIRED COMPONENTS Interpreter)
