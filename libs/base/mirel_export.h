// MIREL_EXPORT marks what libmirel.so exports. The library is built with hidden default
// visibility, so a declaration without it stays private to the library.
#pragma once

#define MIREL_EXPORT __attribute__((visibility("default")))
