#include "D3D9RenderSystem/EffectHeap.h"

#include "D3D9RenderSystem/EffectLog.h"
#include "D3D9RenderSystem/EffectTypes.h"

#include <cstdlib>
#include <cstring>

namespace
{
long long g_failAfter = -1;
}

void SetEffectHeapFailAfter(long long count)
{
    g_failAfter = count;
}

void* MyHeapAlloc(uint32_t flags, size_t size)
{
    void* block = nullptr;
    if (g_failAfter != 0)
    {
        if (g_failAfter > 0)
            --g_failAfter;
        // malloc(0) may answer null; a block of one byte keeps null meaning failure.
        block = std::malloc(size ? size : 1);
    }
    if (!block)
    {
        EffectLogError("EffectHeap", __LINE__, "MyHeapAlloc out of memory!");
        return nullptr;
    }
    if (flags == EFFECT_HEAP_ZERO_MEMORY)
        std::memset(block, 0, size ? size : 1);
    return block;
}

void MyHeapFree(uint32_t /*flags*/, void* pointer)
{
    std::free(pointer);
}
