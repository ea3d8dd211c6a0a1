// A program with no control code in it: it asks Direct3D 9 for its adapters and
// ends. Run with KV_D3D9RECORDER_REPORT set, it leaves the recorder's report.
#include <d3d9.h>

int main()
{
    IDirect3D9* d3d = Direct3DCreate9(D3D_SDK_VERSION);
    if (!d3d)
        return 1;
    const UINT adapters = d3d->GetAdapterCount();
    d3d->Release();
    return adapters > 0 ? 0 : 2;
}
