// Vector instructions of the hot loops. SSE2 is part of every x86-64; AVX2 code is compiled per
// function (target attribute) and only run after the processor was asked (bestSimd()).
#pragma once

#if defined(__SSE2__) && defined(__x86_64__)
#define GENOSTAT_SSE2 1
#include <emmintrin.h>
#if defined(__GNUC__) || defined(__clang__)
#define GENOSTAT_AVX2 1
#include <immintrin.h>
#endif
#endif
