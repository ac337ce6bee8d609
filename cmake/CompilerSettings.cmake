# Language level, warnings, hardening and sanitizers for every target of the project.

set(CMAKE_C_STANDARD 11)
set(CMAKE_CXX_STANDARD 23)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})

set(CMAKE_C_FLAGS_RELEASE "-O2 -DNDEBUG")
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
set(CMAKE_C_FLAGS_DEBUG "-O1 -g1 -fno-omit-frame-pointer")
set(CMAKE_CXX_FLAGS_DEBUG "-O1 -g1 -fno-omit-frame-pointer")

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  # Designated initialisers may leave fields at their defaults: that is what they are for.
  add_compile_options(-Wno-missing-designated-field-initializers -Wno-unknown-warning-option)
else()
  add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wno-missing-field-initializers>)
endif()
if(LENSLARK_WERROR)
  add_compile_options(-Werror)
endif()

if(LENSLARK_SANITIZE)
  add_compile_options(-fsanitize=${LENSLARK_SANITIZE} -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=${LENSLARK_SANITIZE})
  if(LENSLARK_SANITIZE MATCHES undefined)
    # That check opens a pipe to see whether memory is readable, and takes it for a bad object when
    # there is no descriptor left, which some tests see to.
    add_compile_options(-fno-sanitize=vptr)
  endif()
  if(LENSLARK_SANITIZE MATCHES thread AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Asio's queues hold fences, which the thread sanitizer passes over; their mutexes do the work.
    add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wno-tsan>)
  endif()
elseif(CMAKE_BUILD_TYPE STREQUAL "Release")
  add_compile_options(-fstack-protector-strong -fstack-clash-protection
                      -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
  add_link_options(-Wl,-z,relro -Wl,-z,now -Wl,--as-needed)
endif()

find_program(CCACHE ccache)
mark_as_advanced(CCACHE)
if(CCACHE)
  set(CMAKE_C_COMPILER_LAUNCHER ${CCACHE})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
endif()
