# What the program and its modules compare before anything else: C++ objects cross the border
# between them, so that one compiler must have made both, from the same of these headers.
file(GLOB LENSLARK_BORDER_HEADERS CONFIGURE_DEPENDS
  ${PROJECT_SOURCE_DIR}/core/base/Error.h
  ${PROJECT_SOURCE_DIR}/core/graphics/*.h
  ${PROJECT_SOURCE_DIR}/core/codecs/*.h
  ${PROJECT_SOURCE_DIR}/core/platform/*.h
  ${PROJECT_SOURCE_DIR}/core/platform/linux/*Module*.h)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${LENSLARK_BORDER_HEADERS})
set(digests)
foreach(header ${LENSLARK_BORDER_HEADERS})
  file(SHA256 ${header} digest)
  string(APPEND digests ${digest})
endforeach()
string(SHA256 digest "${digests}")
string(SUBSTRING ${digest} 0 16 digest)
set(LENSLARK_BUILD_STAMP
  ${PROJECT_VERSION}-${CMAKE_CXX_COMPILER_ID}-${CMAKE_CXX_COMPILER_VERSION}-${digest})

# For a source that holds the stamp, in the directory of its target.
function(lenslark_stamped source)
  set_source_files_properties(${source} PROPERTIES
    COMPILE_DEFINITIONS "LENSLARK_BUILD_STAMP=\"${LENSLARK_BUILD_STAMP}\"")
endfunction()
