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

# Eigen (linear algebra) and Boost.Math (distributions) for the reference host's statistics; both
# header-only, reached the same way as rapidjson in a cross build.
if(CMAKE_CROSSCOMPILING)
  find_path(EIGEN_HOST_DIR Eigen/Dense PATHS /usr/include/eigen3 NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH REQUIRED)
  find_path(BOOST_HOST_DIR boost/math/distributions/students_t.hpp PATHS /usr/include NO_DEFAULT_PATH
            NO_CMAKE_FIND_ROOT_PATH REQUIRED)
  set(NUMERICS_INCLUDE_DIR ${CMAKE_BINARY_DIR}/cross-include-numerics)
  file(MAKE_DIRECTORY ${NUMERICS_INCLUDE_DIR})
  file(CREATE_LINK ${EIGEN_HOST_DIR}/Eigen ${NUMERICS_INCLUDE_DIR}/Eigen SYMBOLIC)
  file(CREATE_LINK ${BOOST_HOST_DIR}/boost ${NUMERICS_INCLUDE_DIR}/boost SYMBOLIC)
  set(NUMERICS_INCLUDE_DIRS ${NUMERICS_INCLUDE_DIR})
else()
  find_path(EIGEN_INCLUDE_DIR Eigen/Dense PATH_SUFFIXES eigen3 REQUIRED)
  find_path(BOOST_MATH_INCLUDE_DIR boost/math/distributions/students_t.hpp REQUIRED)
  set(NUMERICS_INCLUDE_DIRS ${EIGEN_INCLUDE_DIR} ${BOOST_MATH_INCLUDE_DIR})
endif()
add_library(genostat_numerics INTERFACE)
target_include_directories(genostat_numerics SYSTEM INTERFACE ${NUMERICS_INCLUDE_DIRS})

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
