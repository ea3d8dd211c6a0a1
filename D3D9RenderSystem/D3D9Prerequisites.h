#pragma once
// What every source of the plug-in needs: Direct3D 9, the engine's log, and the
// plug-in's error macros. Errors name their source as a path from
// "D3D9RenderSystem/" without extension; the build gives each source its own
// KV_SOURCE_PATH.
#include <d3d9.h>

#include "engine/Log.h"

#ifndef KV_SOURCE_PATH
#define KV_SOURCE_PATH __FILE__
#endif

#define LogError(...) ::kv::LogErrorImpl(KV_SOURCE_PATH, __LINE__, __VA_ARGS__)

namespace kv
{

// The DirectX SDK's name and description of a result code.
const char* DXGetErrorString(HRESULT hr);
const char* DXGetErrorDescription(HRESULT hr);

// A Direct3D call whose failure the program survives: a negative result is
// logged as "D3D9Verify:%d, %s, %s" (result, name, description), with ", %s"
// and the failed action when one is given. Answers whether the call succeeded;
// callers carry on either way.
// The success test is inline: every device call of a frame passes through it.
void D3D9LogFailure(const char* file, int line, HRESULT hr, const char* what);
inline bool D3D9VerifyImpl(const char* file, int line, HRESULT hr, const char* what = nullptr)
{
    if (hr >= 0)
        return true;
    D3D9LogFailure(file, line, hr, what);
    return false;
}

} // namespace kv

#define D3D9Verify(...) ::kv::D3D9VerifyImpl(KV_SOURCE_PATH, __LINE__, __VA_ARGS__)
