#pragma once
// Whether the geometry kernels take their SSE2 road. Every x86_64 processor has SSE2, so
// the 64-bit builds rely on it; the 32-bit build keeps the plain code, which runs on any
// x86. KV_GEOMETRY_PLAIN forces the plain code everywhere, so a test build can check it.
// Both roads do the same float operations in the same order and give the same bits.
#if !defined(KV_GEOMETRY_PLAIN) && defined(__SSE2__) && (defined(__x86_64__) || defined(_M_X64))
#define KV_GEOMETRY_SSE2 1
#include <emmintrin.h>
#else
#define KV_GEOMETRY_SSE2 0
#endif
