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

# libarchive: Debian's source package at the version below (the one place
# that names it), of which only what reads a plain tar is built here for
# mingw, as the static library zt_libarchive. Its own CMake project is not
# used: its 450 configure checks cost about 50 s per fresh build tree, and its
# library compiles every format, filter and writer (128 files, 90 s here).
# The files below are the reader, the tar format and what they call; no
# compression, crypto, XML, iconv, ACL or xattr code is compiled (the tar
# reader keeps pax ACL and xattr records in the entry only), and there are no
# programs, tests, shared library or install rules to switch off. A new
# version needs this list checked: a missing function fails the client's link.
set(ZT_LIBARCHIVE_VERSION 3.6.2-1+deb12u4)
set(ZT_LIBARCHIVE_SRC ${CMAKE_BINARY_DIR}/_deps/libarchive-${ZT_LIBARCHIVE_VERSION})
if(NOT EXISTS ${ZT_LIBARCHIVE_SRC}/libarchive/archive.h)
  execute_process(COMMAND ${CMAKE_SOURCE_DIR}/scripts/fetch-libarchive.sh ${ZT_LIBARCHIVE_VERSION} ${ZT_LIBARCHIVE_SRC}
                  RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "could not unpack libarchive's Debian source package ${ZT_LIBARCHIVE_VERSION}")
  endif()
endif()
set(ZT_LIBARCHIVE_FILES
  archive_acl.c archive_check_magic.c archive_entry.c archive_entry_sparse.c
  archive_entry_xattr.c archive_options.c archive_read.c
  archive_read_set_options.c archive_read_support_format_tar.c
  archive_string.c archive_string_sprintf.c archive_util.c archive_virtual.c
  archive_windows.c)
list(TRANSFORM ZT_LIBARCHIVE_FILES PREPEND ${ZT_LIBARCHIVE_SRC}/libarchive/)
# The answers libarchive's own configure gives for this toolchain
# (x86_64-w64-mingw32, GCC 12), for the macros that the files above and the
# system headers they include read; those it leaves undefined stay undefined.
# Each file preprocesses to the same text with this header as with that
# configure's config.h (compare `gcc -E -P` of both after a version change).
# archive_platform.h takes such a hand-made configuration through
# PLATFORM_CONFIG_H.
if(NOT MINGW)
  message(FATAL_ERROR "zt_libarchive's configuration is mingw-w64's; use cmake/mingw-w64-x86_64.cmake")
endif()
set(ZT_LIBARCHIVE_HAVE
  DECL_INT32_MAX DECL_INT32_MIN DECL_INT64_MAX DECL_INT64_MIN DECL_INTMAX_MAX
  DECL_INTMAX_MIN DECL_SIZE_MAX DECL_SSIZE_MAX DECL_UINT32_MAX DECL_UINT64_MAX
  DECL_UINTMAX_MAX EILSEQ ERRNO_H FCNTL_H INTTYPES_H LIMITS_H MBRTOWC MKSTEMP
  STDINT_H STDLIB_H STRING_H SYS_CDEFS_H SYS_STAT_H SYS_TYPES_H SYS_UTIME_H
  UNISTD_H WCHAR_H WCRTOMB WCSCPY WCSLEN WCTOMB WINCRYPT_H WMEMCMP WMEMCPY
  WMEMMOVE)
list(TRANSFORM ZT_LIBARCHIVE_HAVE REPLACE "(.+)" "#define HAVE_\\1 1")
list(JOIN ZT_LIBARCHIVE_HAVE "\n" ZT_LIBARCHIVE_HAVE)
set(ZT_LIBARCHIVE_CONFIG_DIR ${CMAKE_BINARY_DIR}/_deps/libarchive-config)
file(CONFIGURE OUTPUT ${ZT_LIBARCHIVE_CONFIG_DIR}/zt_libarchive_config.h CONTENT [[
/* Made by cmake/Dependencies.cmake for libarchive @ZT_LIBARCHIVE_VERSION@. */
#ifndef ZT_LIBARCHIVE_CONFIG_H
#define ZT_LIBARCHIVE_CONFIG_H
@ZT_LIBARCHIVE_HAVE@
#define ICONV_CONST
#define SIZEOF_INT 4
#define SIZEOF_LONG 4
#define uid_t short
#define gid_t short
#define _GNU_SOURCE 1
#define _FILE_OFFSET_BITS 64
#define NTDDI_VERSION 0x0A000000
#define _WIN32_WINNT 0x0A00
#define WINVER 0x0A00
#endif
]] @ONLY)
# Only the public headers for the client, so that libarchive's private ones
# never shadow anything.
set(ZT_LIBARCHIVE_INCLUDE ${CMAKE_BINARY_DIR}/_deps/libarchive-include)
file(MAKE_DIRECTORY ${ZT_LIBARCHIVE_INCLUDE})
foreach(header archive.h archive_entry.h)
  file(CREATE_LINK ${ZT_LIBARCHIVE_SRC}/libarchive/${header} ${ZT_LIBARCHIVE_INCLUDE}/${header} SYMBOLIC)
endforeach()
add_library(zt_libarchive STATIC EXCLUDE_FROM_ALL ${ZT_LIBARCHIVE_FILES})
target_include_directories(zt_libarchive PRIVATE ${ZT_LIBARCHIVE_CONFIG_DIR} ${ZT_LIBARCHIVE_SRC}/libarchive)
target_include_directories(zt_libarchive SYSTEM INTERFACE ${ZT_LIBARCHIVE_INCLUDE})
# libarchive's own flags for mingw; warnings are shown, never errors.
target_compile_definitions(zt_libarchive PRIVATE PLATFORM_CONFIG_H="zt_libarchive_config.h" __USE_MINGW_ANSI_STDIO
                           PUBLIC LIBARCHIVE_STATIC)
target_compile_options(zt_libarchive PRIVATE -Wall -Wformat -Wformat-security)

# GoogleTest from the googletest package's sources.
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/_deps/googletest EXCLUDE_FROM_ALL)
