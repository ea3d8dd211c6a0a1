// A program with no control code in it: it asks Direct3D 9 for its adapters and
// ends. Run with KV_D3D9RECORDER_REPORT set, it leaves the recorder's report.
// With the argument "buffers" it also makes a device and twenty vertex buffers,
// and ends with 100 plus the number of buffers it was refused.
#include <d3d9.h>

#include <cstring>

namespace
{

int MakeBuffers(IDirect3D9* d3d)
{
    HWND window = CreateWindowA("STATIC", "probe", WS_OVERLAPPEDWINDOW, 0, 0, 64, 64, nullptr, nullptr,
                                GetModuleHandleA(nullptr), nullptr);
    D3DPRESENT_PARAMETERS pp;
    std::memset(&pp, 0, sizeof pp);
    pp.BackBufferWidth = pp.BackBufferHeight = 64;
    pp.BackBufferFormat = D3DFMT_X8R8G8B8;
    pp.SwapEffect = D3DSWAPEFFECT_DISCARD;
    pp.hDeviceWindow = window;
    pp.Windowed = TRUE;
    IDirect3DDevice9* device = nullptr;
    if (FAILED(d3d->CreateDevice(0, D3DDEVTYPE_HAL, window, D3DCREATE_HARDWARE_VERTEXPROCESSING, &pp, &device)))
        return 3;
    int refused = 0;
    for (int i = 0; i < 20; ++i)
    {
        IDirect3DVertexBuffer9* buffer = nullptr;
        if (FAILED(device->CreateVertexBuffer(64, 0, 0, D3DPOOL_MANAGED, &buffer, nullptr)))
            ++refused;
        else
            buffer->Release();
    }
    device->Release();
    DestroyWindow(window);
    return 100 + refused;
}

} // namespace

int main(int argc, char** argv)
{
    IDirect3D9* d3d = Direct3DCreate9(D3D_SDK_VERSION);
    if (!d3d)
        return 1;
    const UINT adapters = d3d->GetAdapterCount();
    const int code = argc > 1 && std::strcmp(argv[1], "buffers") == 0 ? MakeBuffers(d3d) : adapters > 0 ? 0 : 2;
    d3d->Release();
    return code;
}
