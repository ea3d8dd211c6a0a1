/* Places of the draw path's methods in IDirect3DDevice9's table, taken from the
   C form of the public header so the benchmark needs no counted-out numbers. In
   the order of bench_draw_path's stand-ins. */
#include <d3d9.h>
#include <stddef.h>

#define KV_SLOT(method) (offsetof(IDirect3DDevice9Vtbl, method) / sizeof(void*))

const unsigned kvDrawPathSlots[] = {KV_SLOT(SetVertexDeclaration), KV_SLOT(SetStreamSource),
                                    KV_SLOT(SetStreamSourceFreq), KV_SLOT(SetIndices), KV_SLOT(DrawIndexedPrimitive)};
const unsigned kvDrawPathSlotCount = sizeof(kvDrawPathSlots) / sizeof(kvDrawPathSlots[0]);
