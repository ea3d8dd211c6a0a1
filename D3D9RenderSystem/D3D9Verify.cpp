#include "D3D9Prerequisites.h"

#include <dxerr9.h>

namespace kv
{

const char* DXGetErrorString(HRESULT hr)
{
    const char* text = DXGetErrorString9A(hr);
    return text ? text : "";
}

const char* DXGetErrorDescription(HRESULT hr)
{
    const char* text = DXGetErrorDescription9A(hr);
    return text ? text : "";
}

void D3D9LogFailure(const char* file, int line, HRESULT hr, const char* what)
{
    if (what)
        LogErrorImpl(file, line, "D3D9Verify:%d, %s, %s, %s", static_cast<int>(hr), DXGetErrorString(hr),
                     DXGetErrorDescription(hr), what);
    else
        LogErrorImpl(file, line, "D3D9Verify:%d, %s, %s", static_cast<int>(hr), DXGetErrorString(hr),
                     DXGetErrorDescription(hr));
}

} // namespace kv
