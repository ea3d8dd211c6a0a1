#pragma once
// The process-wide shadows of the shader constant registers, with the lists of
// registers written since the last flush. One set per stage, not per program.
namespace kv
{

const int kVertexConstantRegisters = 256;
const int kPixelConstantRegisters = 224;

extern float g_VSConstantShadow[kVertexConstantRegisters][4];
extern int g_VSDirtyRegisters[kVertexConstantRegisters];
extern int g_nVSDirtyCount;

extern float g_PSConstantShadow[kPixelConstantRegisters][4];
extern int g_PSDirtyRegisters[kPixelConstantRegisters];
extern int g_nPSDirtyCount;

} // namespace kv
