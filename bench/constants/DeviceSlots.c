/* Places of the two constant methods in IDirect3DDevice9's table, taken from
   the C form of the public header so the benchmark needs no counted-out numbers. */
#include <d3d9.h>
#include <stddef.h>

const unsigned kvSetVertexShaderConstantFSlot =
    offsetof(IDirect3DDevice9Vtbl, SetVertexShaderConstantF) / sizeof(void*);
const unsigned kvSetPixelShaderConstantFSlot = offsetof(IDirect3DDevice9Vtbl, SetPixelShaderConstantF) / sizeof(void*);
