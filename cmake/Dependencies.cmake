# Every third-party library, once, as an imported target. A layer links only what it owns.

find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(OpenSSL REQUIRED COMPONENTS Crypto)
find_package(fmt REQUIRED)
find_package(nlohmann_json 3.11 REQUIRED)

pkg_check_modules(RAPIDJSON REQUIRED IMPORTED_TARGET RapidJSON)
pkg_check_modules(DEFLATE REQUIRED IMPORTED_TARGET libdeflate)
pkg_check_modules(TURBOJPEG REQUIRED IMPORTED_TARGET libturbojpeg)
pkg_check_modules(WEBP REQUIRED IMPORTED_TARGET libwebp libwebpdemux)
pkg_check_modules(VIPS REQUIRED IMPORTED_TARGET vips)
pkg_check_modules(PANGOCAIRO REQUIRED IMPORTED_TARGET pangocairo)
pkg_check_modules(GDKPIXBUF REQUIRED IMPORTED_TARGET gdk-pixbuf-2.0)
pkg_check_modules(QRENCODE REQUIRED IMPORTED_TARGET libqrencode)
pkg_check_modules(FFMPEG REQUIRED IMPORTED_TARGET libavformat libavcodec libavutil libswscale)
pkg_check_modules(XCB REQUIRED IMPORTED_TARGET
  xau xcb xcb-composite xcb-damage xcb-ewmh xcb-icccm xcb-randr xcb-render xcb-res xcb-shape xcb-shm
  xcb-xfixes)
pkg_check_modules(PIXMAN REQUIRED IMPORTED_TARGET pixman-1)
pkg_check_modules(SDBUSCPP REQUIRED IMPORTED_TARGET sdbus-c++)

# libyuv ships no pkg-config file.
find_library(YUV_LIBRARY yuv REQUIRED)
find_path(YUV_INCLUDE_DIR libyuv.h REQUIRED)
mark_as_advanced(YUV_LIBRARY YUV_INCLUDE_DIR)
add_library(lenslark_yuv INTERFACE)
target_link_libraries(lenslark_yuv INTERFACE ${YUV_LIBRARY})
target_include_directories(lenslark_yuv SYSTEM INTERFACE ${YUV_INCLUDE_DIR})

# Asio is headers only.
find_path(ASIO_INCLUDE_DIR asio.hpp REQUIRED)
mark_as_advanced(ASIO_INCLUDE_DIR)
add_library(lenslark_asio INTERFACE)
target_include_directories(lenslark_asio SYSTEM INTERFACE ${ASIO_INCLUDE_DIR})
target_compile_definitions(lenslark_asio INTERFACE ASIO_STANDALONE ASIO_NO_DEPRECATED)
target_link_libraries(lenslark_asio INTERFACE Threads::Threads)
if(LENSLARK_SANITIZE MATCHES "thread")
  # The thread sanitizer does not understand stand-alone fences. Its locks order the work as well.
  target_compile_definitions(lenslark_asio INTERFACE ASIO_DISABLE_FENCED_BLOCK)
endif()
