#pragma once
// Constants, result codes, handles and description records of the compiled
// effect reader. The reader has no Direct3D dependency, so it carries its own
// copies of the few D3DX names it needs, with the public numbers; a translation
// unit that uses the reader does not include d3dx9effect.h as well.

#include <cstdint>

// Parameter classes as stored in a type definition.
enum D3DXPARAMETER_CLASS : uint32_t
{
    D3DXPC_SCALAR = 0,
    D3DXPC_VECTOR = 1,
    D3DXPC_MATRIX_ROWS = 2,
    D3DXPC_MATRIX_COLUMNS = 3,
    D3DXPC_OBJECT = 4,
    D3DXPC_STRUCT = 5,
};

// Parameter types as stored in a type definition.
enum D3DXPARAMETER_TYPE : uint32_t
{
    D3DXPT_VOID = 0,
    D3DXPT_BOOL = 1,
    D3DXPT_INT = 2,
    D3DXPT_FLOAT = 3,
    D3DXPT_STRING = 4,
    D3DXPT_TEXTURE = 5,
    D3DXPT_TEXTURE1D = 6,
    D3DXPT_TEXTURE2D = 7,
    D3DXPT_TEXTURE3D = 8,
    D3DXPT_TEXTURECUBE = 9,
    D3DXPT_SAMPLER = 10,
    D3DXPT_SAMPLER1D = 11,
    D3DXPT_SAMPLER2D = 12,
    D3DXPT_SAMPLER3D = 13,
    D3DXPT_SAMPLERCUBE = 14,
    D3DXPT_PIXELSHADER = 15,
    D3DXPT_VERTEXSHADER = 16,
    D3DXPT_PIXELFRAGMENT = 17,
    D3DXPT_VERTEXFRAGMENT = 18,
    D3DXPT_UNSUPPORTED = 19,
};

// What a stored state holds.
enum EffectStateType : uint32_t
{
    STATE_CONSTANT = 0,
    STATE_PARAMETER = 1,
    STATE_DATA = 2,
    STATE_PRESHADER = 3,
};

// 32-bit result codes of the reader and the queries.
const uint32_t EFFECT_OK = 0;
const uint32_t EFFECT_E_OUTOFMEMORY = 0x8007000E;
const uint32_t EFFECT_E_FAIL = 0x80004005;
const uint32_t EFFECT_E_NOTIMPL = 0x80004001;
const uint32_t EFFECT_E_INVALIDCALL = 0x8876086C;
const uint32_t EFFECT_E_NOTFOUND = 0x88760B59;

// First word of every compiled effect.
const uint32_t EFFECT_FILE_MAGIC = 0xFEFF0901;

// Flags of MyHeapAlloc: zero-fill the block.
const uint32_t EFFECT_HEAP_ZERO_MEMORY = 8;

// Opaque handle of a parameter, annotation, technique or pass; null for none.
typedef const void* EffectHandle;

struct D3DXEFFECT_DESC
{
    const char* Creator;
    uint32_t Parameters;
    uint32_t Techniques;
    uint32_t Functions;
};

struct D3DXPARAMETER_DESC
{
    const char* Name;
    const char* Semantic;
    uint32_t Class;
    uint32_t Type;
    uint32_t Rows;
    uint32_t Columns;
    uint32_t Elements;
    uint32_t Annotations;
    uint32_t StructMembers;
    uint32_t Flags;
    uint32_t Bytes;
};

struct D3DXTECHNIQUE_DESC
{
    const char* Name;
    uint32_t Passes;
    uint32_t Annotations;
};

struct D3DXPASS_DESC
{
    const char* Name;
    uint32_t Annotations;
    const uint32_t* pVertexShaderFunction;
    const uint32_t* pPixelShaderFunction;
};
