#include "TestDevice.h"

bool TestDevice::Create(unsigned width, unsigned height)
{
    hWnd = CreateWindowExA(0, "STATIC", "plugin test", WS_OVERLAPPEDWINDOW, 0, 0, static_cast<int>(width),
                           static_cast<int>(height), nullptr, nullptr, GetModuleHandleA(nullptr), nullptr);
    if (!hWnd)
    {
        error = "CreateWindowExA failed";
        return false;
    }
    d3d = Direct3DCreate9(D3D_SDK_VERSION);
    if (!d3d)
    {
        error = "Direct3DCreate9 failed";
        return false;
    }
    D3DPRESENT_PARAMETERS pp = {};
    pp.BackBufferWidth = width;
    pp.BackBufferHeight = height;
    pp.BackBufferFormat = D3DFMT_X8R8G8B8;
    pp.BackBufferCount = 1;
    pp.SwapEffect = D3DSWAPEFFECT_DISCARD;
    pp.hDeviceWindow = hWnd;
    pp.Windowed = TRUE;
    pp.EnableAutoDepthStencil = TRUE;
    pp.AutoDepthStencilFormat = D3DFMT_D24S8;
    pp.PresentationInterval = D3DPRESENT_INTERVAL_IMMEDIATE;
    result = d3d->CreateDevice(D3DADAPTER_DEFAULT, D3DDEVTYPE_HAL, hWnd, D3DCREATE_SOFTWARE_VERTEXPROCESSING, &pp,
                               &device);
    if (FAILED(result) || !device)
    {
        error = "CreateDevice failed";
        device = nullptr;
        return false;
    }
    return true;
}

void TestDevice::Destroy()
{
    if (device)
        device->Release();
    device = nullptr;
    if (d3d)
        d3d->Release();
    d3d = nullptr;
    if (hWnd)
        DestroyWindow(hWnd);
    hWnd = nullptr;
}
