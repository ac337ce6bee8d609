# A layer is a directory below core/ and one static library: lenslark_layer(feeds SOURCES ... USES
# ... PRIVATE_USES ...). USES names the layers (or libraries) that its headers show, PRIVATE_USES
# what only its sources include.
function(lenslark_layer name)
  cmake_parse_arguments(ARG "" "" "SOURCES;USES;PRIVATE_USES" ${ARGN})
  add_library(lenslark_${name} STATIC ${ARG_SOURCES})
  add_library(lenslark::${name} ALIAS lenslark_${name})
  target_include_directories(lenslark_${name} PUBLIC ${PROJECT_SOURCE_DIR}/core)
  target_link_libraries(lenslark_${name} PUBLIC ${ARG_USES} PRIVATE ${ARG_PRIVATE_USES})
endfunction()

# A module holds one codec family and is loaded on first use, so that commands that show no
# picture never map its libraries.
function(lenslark_module name)
  cmake_parse_arguments(ARG "" "" "SOURCES;USES" ${ARGN})
  add_library(lenslark-${name} MODULE ${ARG_SOURCES})
  set_target_properties(lenslark-${name} PROPERTIES PREFIX "" CXX_VISIBILITY_PRESET hidden)
  target_include_directories(lenslark-${name} PRIVATE ${PROJECT_SOURCE_DIR}/core)
  target_link_libraries(lenslark-${name} PRIVATE ${ARG_USES})
  target_link_options(lenslark-${name} PRIVATE -Wl,--exclude-libs,ALL)
  install(TARGETS lenslark-${name} DESTINATION ${CMAKE_INSTALL_LIBDIR}/lenslark)
endfunction()
