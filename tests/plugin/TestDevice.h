#pragma once
// A plain Direct3D 9 device on a small hidden window, made straight from the
// runtime so the render system can be tested on a device before it builds one.
#include <d3d9.h>

struct TestDevice
{
    HWND hWnd = nullptr;
    IDirect3D9* d3d = nullptr;
    IDirect3DDevice9* device = nullptr;

    // False (with the reason in error) when no device could be made.
    bool Create(unsigned width = 64, unsigned height = 64);
    void Destroy();
    HRESULT result = S_OK;
    const char* error = "";
};
