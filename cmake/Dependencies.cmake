# Third-party code, all from Debian's own packages; nothing is vendored.

# fmt: header-only from libfmt-dev. An include directory of our own holds a
# link to /usr/include/fmt, so /usr/include never shadows the mingw headers.
set(ZT_FMT_DIR ${CMAKE_BINARY_DIR}/_deps/fmt-include)
if(NOT EXISTS /usr/include/fmt/format.h)
  message(FATAL_ERROR "fmt headers missing: apt-get install libfmt-dev")
endif()
file(MAKE_DIRECTORY ${ZT_FMT_DIR})
file(CREATE_LINK /usr/include/fmt ${ZT_FMT_DIR}/fmt SYMBOLIC)
add_library(zt_fmt INTERFACE)
target_include_directories(zt_fmt SYSTEM INTERFACE ${ZT_FMT_DIR})
target_compile_definitions(zt_fmt INTERFACE FMT_HEADER_ONLY)

# jsoncpp: Debian's source package at the version below (the one place that
# names it), built here for mingw as a static library. The source is unpacked
# once per machine outside the build tree; the build tree holds a link to it
# under a name with the version, so a new version is fetched by the next
# configure.
set(ZT_JSONCPP_VERSION 1.9.5-4)
set(ZT_JSONCPP_SRC ${CMAKE_BINARY_DIR}/_deps/jsoncpp-${ZT_JSONCPP_VERSION})
if(NOT EXISTS ${ZT_JSONCPP_SRC}/CMakeLists.txt)
  execute_process(COMMAND ${CMAKE_SOURCE_DIR}/scripts/fetch-jsoncpp.sh ${ZT_JSONCPP_VERSION} ${ZT_JSONCPP_SRC}
                  RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "could not unpack jsoncpp's Debian source package ${ZT_JSONCPP_VERSION}")
  endif()
endif()
set(JSONCPP_WITH_TESTS OFF CACHE BOOL "" FORCE)
set(JSONCPP_WITH_POST_BUILD_UNITTEST OFF CACHE BOOL "" FORCE)
set(JSONCPP_WITH_PKGCONFIG_SUPPORT OFF CACHE BOOL "" FORCE)
set(JSONCPP_WITH_CMAKE_PACKAGE OFF CACHE BOOL "" FORCE)
set(JSONCPP_WITH_EXAMPLE OFF CACHE BOOL "" FORCE)
set(BUILD_SHARED_LIBS OFF CACHE BOOL "" FORCE)
set(BUILD_STATIC_LIBS ON CACHE BOOL "" FORCE)
set(BUILD_OBJECT_LIBS OFF CACHE BOOL "" FORCE)
add_subdirectory(${ZT_JSONCPP_SRC} ${CMAKE_BINARY_DIR}/_deps/jsoncpp-build EXCLUDE_FROM_ALL)

# GoogleTest from the googletest package's sources.
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/_deps/googletest EXCLUDE_FROM_ALL)
