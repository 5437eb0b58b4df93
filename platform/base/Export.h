// Symbol visibility for the shared library. The library is built with hidden visibility; every
// class and function meant for host programs is marked N7_EXPORT.
#pragma once

#define N7_EXPORT __attribute__((visibility("default")))
