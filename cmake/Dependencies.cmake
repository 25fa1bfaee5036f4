# Third-party libraries, all from Debian's archive (scripts/setup-deps.sh installs them).
find_package(Threads REQUIRED)

find_path(RAPIDJSON_INCLUDE_DIR rapidjson/document.h REQUIRED)
add_library(genostat_rapidjson INTERFACE)
target_include_directories(genostat_rapidjson SYSTEM INTERFACE ${RAPIDJSON_INCLUDE_DIR})

if(BUILD_TESTING)
  find_package(GTest REQUIRED)
  include(GoogleTest)
endif()

find_package(Python3 3.8 REQUIRED COMPONENTS Interpreter)
