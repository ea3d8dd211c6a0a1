#include "D3D9ShaderConstants.h"

namespace kv
{

float g_VSConstantShadow[kVertexConstantRegisters][4];
int g_VSDirtyRegisters[kVertexConstantRegisters];
int g_nVSDirtyCount = 0;

float g_PSConstantShadow[kPixelConstantRegisters][4];
int g_PSDirtyRegisters[kPixelConstantRegisters];
int g_nPSDirtyCount = 0;

} // namespace kv
