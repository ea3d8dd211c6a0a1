#pragma once
// The effect reader's allocator. Flags EFFECT_HEAP_ZERO_MEMORY (8) zero-fill the
// block; any other flags leave it unfilled. A failure logs
// "MyHeapAlloc out of memory!" and answers null.

#include <cstddef>
#include <cstdint>

void* MyHeapAlloc(uint32_t flags, size_t size);
// Ignores its flags; null is allowed.
void MyHeapFree(uint32_t flags, void* pointer);

// For tests of the out-of-memory paths: the allocation that comes after `count`
// more successful ones fails, and so does every one after it; a negative count
// turns failing off again.
void SetEffectHeapFailAfter(long long count);
