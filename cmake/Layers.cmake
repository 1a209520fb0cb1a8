# The program's layers: one static library per folder of src/, each linked
# only to the layers below it (the order and what each may use: README,
# "Architecture").
#
# Both directions of a dependency are checked by the build itself:
# - includes: a layer compiles against a tree of its own under
#   build/layers/<layer>, which holds links to its own folder and the
#   folders below it and nothing else, so an #include that points up finds
#   no file;
# - calls: each layer is linked on its own, whole, into a small probe
#   program (zt_layer_probe_<layer>) together with the layers below it, so a
#   call into a layer above is an undefined reference.

set(ZT_LAYER_ROOT ${CMAKE_BINARY_DIR}/layers)

# The include tree of one layer: links to the folders of src/ it may see.
# "platform" stands for the service interfaces alone, without win32/.
function(zt_layer_include_tree layer)
  set(root ${ZT_LAYER_ROOT}/${layer})
  file(REMOVE_RECURSE ${root})
  file(MAKE_DIRECTORY ${root})
  foreach(folder IN LISTS ARGN)
    if(folder STREQUAL "platform")
      file(MAKE_DIRECTORY ${root}/platform)
      file(GLOB headers CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/src/platform/*.h)
      foreach(header IN LISTS headers)
        get_filename_component(name ${header} NAME)
        file(CREATE_LINK ${header} ${root}/platform/${name} SYMBOLIC)
      endforeach()
    else()
      file(CREATE_LINK ${CMAKE_SOURCE_DIR}/src/${folder} ${root}/${folder} SYMBOLIC)
    endif()
  endforeach()
endfunction()

# zt_layer(NAME FOLDER folder SEES folder... LINKS target...)
# A static library zt_<NAME> of src/<folder>/*.cpp that sees its own folder
# and the folders named, links the targets named, and has a link probe.
function(zt_layer name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "FOLDER" "SEES;LINKS;EXCLUDE")
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/src/${arg_FOLDER}/*.cpp)
  if(arg_FOLDER STREQUAL "platform")
    list(FILTER sources EXCLUDE REGEX "/src/platform/win32/")
  endif()
  foreach(pattern IN LISTS arg_EXCLUDE)
    list(FILTER sources EXCLUDE REGEX "${pattern}")
  endforeach()
  zt_layer_include_tree(${name} ${arg_SEES} ${arg_FOLDER})
  string(REPLACE ";" " " seen "${arg_SEES}")
  set_property(GLOBAL APPEND PROPERTY ZT_LAYER_MANIFEST "${arg_FOLDER} ${seen}")
  add_library(zt_${name} STATIC ${sources})
  target_include_directories(zt_${name} PRIVATE ${ZT_LAYER_ROOT}/${name})
  target_link_libraries(zt_${name} PUBLIC ${arg_LINKS})

  add_executable(zt_layer_probe_${name} ${CMAKE_SOURCE_DIR}/cmake/layer_probe.cpp)
  target_link_libraries(zt_layer_probe_${name} PRIVATE "$<LINK_LIBRARY:WHOLE_ARCHIVE,zt_${name}>")
  set_target_properties(zt_layer_probe_${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/layer-probes)
endfunction()

# The boundary types of the delivery client, seen by the platform services.
add_library(zt_delivery_types INTERFACE)
target_include_directories(zt_delivery_types INTERFACE ${CMAKE_SOURCE_DIR}/delivery-client/include)

zt_layer(core FOLDER core)
# The service interfaces: headers only, so no library of their own.
set_property(GLOBAL APPEND PROPERTY ZT_LAYER_MANIFEST "platform core")
add_library(zt_platform INTERFACE)
target_link_libraries(zt_platform INTERFACE zt_core zt_delivery_types)
# The Win32 set of the services, the default until a test installs fakes.
# The layers above link it, but see only the interfaces.
zt_layer(platform_win32 FOLDER platform/win32 SEES core platform
  LINKS zt_platform mirelclient_ordinals advapi32 version)
zt_layer(registry FOLDER registry SEES core platform LINKS zt_platform_win32)
zt_layer(update FOLDER update SEES core platform registry LINKS zt_registry)
zt_layer(fetch FOLDER fetch SEES core platform registry update LINKS zt_update)
zt_layer(diagnostics FOLDER diagnostics SEES core platform registry update fetch
  LINKS zt_fetch zt_fmt jsoncpp_static)
zt_layer(agent FOLDER agent SEES core platform registry update fetch diagnostics LINKS zt_diagnostics)
# The program's entry (wmain.cpp, process_globals.cpp) is the executable's.
zt_layer(app FOLDER app SEES core platform registry update fetch diagnostics agent LINKS zt_agent
  EXCLUDE "/src/app/(wmain|process_globals)\\.cpp$")

# Which folder sees which, for the test that checks the includes of headers.
get_property(zt_manifest GLOBAL PROPERTY ZT_LAYER_MANIFEST)
string(REPLACE ";" "\n" zt_manifest "${zt_manifest}")
file(WRITE ${ZT_LAYER_ROOT}/manifest.txt "${zt_manifest}\n")

# The whole program for tests and benchmarks, which may look at any layer.
add_library(zt_everything INTERFACE)
target_include_directories(zt_everything INTERFACE ${CMAKE_SOURCE_DIR}/src)
target_link_libraries(zt_everything INTERFACE zt_app)
