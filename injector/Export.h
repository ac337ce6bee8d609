// Export.h - marks the calls that are interposed. Everything else stays inside the library.
#pragma once

#define LENSLARK_EXPORT __attribute__((visibility("default")))
