/* Places of two methods in IDirect3DDevice9's table, taken from the C form of
   the public header so the benchmark needs no counted-out numbers. */
#include <d3d9.h>
#include <stddef.h>

const unsigned kvSetRenderStateSlot = offsetof(IDirect3DDevice9Vtbl, SetRenderState) / sizeof(void*);
const unsigned kvSetSamplerStateSlot = offsetof(IDirect3DDevice9Vtbl, SetSamplerState) / sizeof(void*);
