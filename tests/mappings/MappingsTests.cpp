// The translations between the engine's enumerations and Direct3D's, row by
// row. Each row carries the engine's number, the public header's named
// constant and the number the engine's documentation gives for it, so a
// mismatch between the header and the documented number shows on its own.
// The capability rules read the caps of a live render system object, as the
// state setters do.
#include "D3D9Mappings.h"
#include "D3D9RenderSystem.h"

#include "engine/Log.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <set>
#include <vector>

using namespace kv;
using namespace kv::D3D9Mappings;

namespace
{

const unsigned kForceDword = 0x7FFFFFFF;

// An engine value, its Direct3D partner by name, and that partner's documented number.
struct Row
{
    int engine;
    unsigned d3d;
    unsigned documented;
};

void ExpectHeaderAgrees(const std::vector<Row>& rows)
{
    for (const Row& r : rows)
        EXPECT_EQ(r.documented, r.d3d) << "header constant for engine value " << r.engine;
}

std::vector<LogLine> Errors()
{
    std::vector<LogLine> out;
    for (const LogLine& l : GetLogLines())
        if (l.level == LOG_ERROR)
            out.push_back(l);
    return out;
}

struct FormatRow
{
    PixelFormat engine;
    unsigned number;
    unsigned d3d;
    unsigned documented;
};

const FormatRow kFormats[] = {
    {PF_L8, 1, D3DFMT_L8, 50},
    {PF_L16, 2, D3DFMT_L16, 81},
    {PF_A8, 3, D3DFMT_A8, 28},
    {PF_A4L4, 4, D3DFMT_A4L4, 52},
    {PF_A8L8, 5, D3DFMT_A8L8, 51},
    {PF_R5G6B5, 6, D3DFMT_R5G6B5, 23},
    {PF_A4R4G4B4, 8, D3DFMT_A4R4G4B4, 26},
    {PF_A1R5G5B5, 9, D3DFMT_A1R5G5B5, 25},
    {PF_R8G8B8, 10, D3DFMT_R8G8B8, 20},
    {PF_A8R8G8B8, 12, D3DFMT_A8R8G8B8, 21},
    {PF_A8B8G8R8, 13, D3DFMT_A8B8G8R8, 32},
    {PF_A2R10G10B10, 15, D3DFMT_A2R10G10B10, 35},
    {PF_A2B10G10R10, 16, D3DFMT_A2B10G10R10, 31},
    {PF_DXT1, 17, D3DFMT_DXT1, 0x31545844},
    {PF_DXT2, 18, D3DFMT_DXT2, 0x32545844},
    {PF_DXT3, 19, D3DFMT_DXT3, 0x33545844},
    {PF_DXT4, 20, D3DFMT_DXT4, 0x34545844},
    {PF_DXT5, 21, D3DFMT_DXT5, 0x35545844},
    {PF_FLOAT16_RGBA, 23, D3DFMT_A16B16G16R16F, 113},
    {PF_FLOAT32_RGBA, 25, D3DFMT_A32B32G32R32F, 116},
    {PF_X8R8G8B8, 26, D3DFMT_X8R8G8B8, 22},
    {PF_X8B8G8R8, 27, D3DFMT_X8B8G8R8, 33},
    {PF_D24X8, 29, D3DFMT_D24X8, 77},
    {PF_A16B16G16R16, 30, D3DFMT_A16B16G16R16, 36},
    {PF_R3G3B2, 31, D3DFMT_R3G3B2, 27},
    {PF_FLOAT16_R, 32, D3DFMT_R16F, 111},
    {PF_FLOAT32_R, 33, D3DFMT_R32F, 114},
    {PF_G16R16, 34, D3DFMT_G16R16, 34},
    {PF_FLOAT16_GR, 35, D3DFMT_G16R16F, 112},
    {PF_FLOAT32_GR, 36, D3DFMT_G32R32F, 115},
    {PF_ATI2, 72, MAKEFOURCC('A', 'T', 'I', '2'), 0x32495441},
    {PF_D24S8, 110, D3DFMT_D24S8, 75},
    {PF_NULL, 111, MAKEFOURCC('N', 'U', 'L', 'L'), 0x4C4C554E},
    {PF_INTZ, 112, MAKEFOURCC('I', 'N', 'T', 'Z'), 0x5A544E49},
    {PF_D16, 113, D3DFMT_D16, 80},
};

bool IsTableFormat(unsigned engine)
{
    for (const FormatRow& r : kFormats)
        if (r.number == engine)
            return true;
    return false;
}

TEST(PixelFormats, ThirtyFiveRowsMapBothWaysAndRoundTrip)
{
    ASSERT_EQ(35u, sizeof(kFormats) / sizeof(kFormats[0]));
    std::set<unsigned> d3dSeen;
    for (const FormatRow& r : kFormats)
    {
        EXPECT_EQ(r.number, static_cast<unsigned>(r.engine)) << "engine header value";
        EXPECT_EQ(r.documented, r.d3d) << "header constant for engine format " << r.number;
        EXPECT_EQ(r.d3d, static_cast<unsigned>(toD3DFormat(static_cast<PixelFormat>(r.number)))) << r.number;
        EXPECT_EQ(r.number, static_cast<unsigned>(fromD3DFormat(static_cast<D3DFORMAT>(r.d3d)))) << r.d3d;
        EXPECT_EQ(r.number, static_cast<unsigned>(fromD3DFormat(toD3DFormat(r.engine))));
        EXPECT_TRUE(d3dSeen.insert(r.d3d).second) << "two engine formats share " << r.d3d;
    }
}

TEST(PixelFormats, EveryOtherValueIsUnknownBothWays)
{
    EXPECT_EQ(D3DFMT_UNKNOWN, toD3DFormat(PF_UNKNOWN));
    EXPECT_EQ(PF_UNKNOWN, fromD3DFormat(D3DFMT_UNKNOWN));
    for (unsigned v = 0; v < 400; ++v)
    {
        if (!IsTableFormat(v))
        {
            EXPECT_EQ(D3DFMT_UNKNOWN, toD3DFormat(static_cast<PixelFormat>(v))) << v;
        }
    }
    EXPECT_EQ(D3DFMT_UNKNOWN, toD3DFormat(static_cast<PixelFormat>(0xFFFFFFFFu)));

    // Direct3D formats the engine has no name for.
    const D3DFORMAT others[] = {D3DFMT_X1R5G5B5, D3DFMT_A8R3G3B2, D3DFMT_X4R4G4B4, D3DFMT_A8P8, D3DFMT_P8,
                                D3DFMT_V8U8, D3DFMT_L6V5U5, D3DFMT_X8L8V8U8, D3DFMT_Q8W8V8U8, D3DFMT_V16U16,
                                D3DFMT_A2W10V10U10, D3DFMT_UYVY, D3DFMT_YUY2, D3DFMT_R8G8_B8G8,
                                D3DFMT_G8R8_G8B8, D3DFMT_MULTI2_ARGB8, D3DFMT_D16_LOCKABLE, D3DFMT_D32,
                                D3DFMT_D15S1, D3DFMT_D24X4S4, D3DFMT_D32F_LOCKABLE, D3DFMT_D24FS8,
                                D3DFMT_VERTEXDATA, D3DFMT_INDEX16, D3DFMT_INDEX32, D3DFMT_Q16W16V16U16,
                                D3DFMT_CxV8U8, static_cast<D3DFORMAT>(MAKEFOURCC('A', 'T', 'I', '1')),
                                static_cast<D3DFORMAT>(MAKEFOURCC('D', 'F', '2', '4')),
                                static_cast<D3DFORMAT>(0x7FFFFFFF)};
    for (D3DFORMAT f : others)
        EXPECT_EQ(PF_UNKNOWN, fromD3DFormat(f)) << f;
    EXPECT_EQ(24u, static_cast<unsigned>(D3DFMT_X1R5G5B5));
    // Engine numbers that happen to equal Direct3D numbers are not confused:
    // 26 is PF_X8R8G8B8 to the engine but D3DFMT_A4R4G4B4 to Direct3D.
    EXPECT_EQ(PF_A4R4G4B4, fromD3DFormat(static_cast<D3DFORMAT>(26)));
}

TEST(PixelFormats, ClosestSupportedNeverAnswersAnUnknownFormat)
{
    for (const FormatRow& r : kFormats)
        EXPECT_EQ(r.engine, closestSupportedFormat(r.engine));

    const struct
    {
        unsigned in, out;
    } partners[] = {{7, 6}, {11, 10}, {22, 23}, {24, 25}, {37, 30}, {109, 8}};
    for (const auto& p : partners)
        EXPECT_EQ(p.out, static_cast<unsigned>(closestSupportedFormat(static_cast<PixelFormat>(p.in)))) << p.in;

    const unsigned strays[] = {0, 14, 28, 38, 71, 73, 108, 114, 200, 0x7FFFFFFF, 0xFFFFFFFF};
    for (unsigned v : strays)
        EXPECT_EQ(12u, static_cast<unsigned>(closestSupportedFormat(static_cast<PixelFormat>(v)))) << v;

    for (unsigned v = 0; v < 400; ++v)
        EXPECT_NE(D3DFMT_UNKNOWN, toD3DFormat(closestSupportedFormat(static_cast<PixelFormat>(v)))) << v;
}

TEST(VertexDeclarations, TypesInTheirOwnOrderAndUnknownReported)
{
    const std::vector<Row> rows = {
        {0, D3DDECLTYPE_FLOAT1, 0},     {1, D3DDECLTYPE_FLOAT2, 1},      {2, D3DDECLTYPE_FLOAT3, 2},
        {3, D3DDECLTYPE_FLOAT4, 3},     {4, D3DDECLTYPE_D3DCOLOR, 4},    {5, D3DDECLTYPE_SHORT2, 6},
        {6, D3DDECLTYPE_SHORT4, 7},     {7, D3DDECLTYPE_UBYTE4, 5},      {8, D3DDECLTYPE_UBYTE4N, 8},
        {9, D3DDECLTYPE_SHORT2N, 9},    {10, D3DDECLTYPE_SHORT4N, 10},   {11, D3DDECLTYPE_FLOAT16_2, 15},
        {12, D3DDECLTYPE_FLOAT16_4, 16},
    };
    ExpectHeaderAgrees(rows);
    ClearLog();
    for (const Row& r : rows)
        EXPECT_EQ(r.d3d, static_cast<unsigned>(toD3DDeclType(static_cast<VertexElementType>(r.engine)))) << r.engine;
    EXPECT_EQ(0u, GetLogLineCount()) << "known types are not reported";

    for (int v : {13, -1, 1000})
    {
        ClearLog();
        EXPECT_EQ(D3DDECLTYPE_FLOAT3, toD3DDeclType(static_cast<VertexElementType>(v)));
        std::vector<LogLine> errors = Errors();
        ASSERT_EQ(1u, errors.size());
        EXPECT_EQ("Unknow VertexElementType:" + std::to_string(v), errors[0].text);
        EXPECT_EQ("D3D9RenderSystem/D3D9Mappings", errors[0].file);
    }
}

TEST(VertexDeclarations, SemanticsAgreeBothWaysAndFallBackToPosition)
{
    const std::vector<Row> rows = {
        {0, D3DDECLUSAGE_POSITION, 0}, {1, D3DDECLUSAGE_NORMAL, 3},       {2, D3DDECLUSAGE_BINORMAL, 7},
        {3, D3DDECLUSAGE_TANGENT, 6},  {4, D3DDECLUSAGE_TEXCOORD, 5},     {5, D3DDECLUSAGE_COLOR, 10},
        {6, D3DDECLUSAGE_BLENDWEIGHT, 1}, {7, D3DDECLUSAGE_BLENDINDICES, 2},
    };
    ExpectHeaderAgrees(rows);
    ClearLog();
    for (const Row& r : rows)
    {
        EXPECT_EQ(r.d3d, static_cast<unsigned>(toD3DDeclUsage(static_cast<VertexSemantic>(r.engine)))) << r.engine;
        EXPECT_EQ(r.engine, static_cast<int>(fromD3DDeclUsage(static_cast<D3DDECLUSAGE>(r.d3d)))) << r.d3d;
    }
    for (int v : {8, -1, 99})
        EXPECT_EQ(D3DDECLUSAGE_POSITION, toD3DDeclUsage(static_cast<VertexSemantic>(v))) << v;
    const unsigned strange[] = {D3DDECLUSAGE_PSIZE,  D3DDECLUSAGE_TESSFACTOR, D3DDECLUSAGE_POSITIONT,
                                D3DDECLUSAGE_FOG,    D3DDECLUSAGE_DEPTH,      D3DDECLUSAGE_SAMPLE,
                                14,                  0xFF};
    for (unsigned u : strange)
        EXPECT_EQ(VES_POSITION, fromD3DDeclUsage(static_cast<D3DDECLUSAGE>(u))) << u;
    EXPECT_EQ(0u, GetLogLineCount()) << "semantics fall back silently";
}

TEST(Blending, FactorsAndOperations)
{
    const std::vector<Row> factors = {
        {0, D3DBLEND_ONE, 2},           {1, D3DBLEND_ZERO, 1},          {2, D3DBLEND_DESTCOLOR, 9},
        {3, D3DBLEND_SRCCOLOR, 3},      {4, D3DBLEND_INVDESTCOLOR, 10}, {5, D3DBLEND_INVSRCCOLOR, 4},
        {6, D3DBLEND_DESTALPHA, 7},     {7, D3DBLEND_SRCALPHA, 5},      {8, D3DBLEND_INVDESTALPHA, 8},
        {9, D3DBLEND_INVSRCALPHA, 6},   {10, D3DBLEND_BLENDFACTOR, 14}, {11, D3DBLEND_INVBLENDFACTOR, 15},
        {12, D3DBLEND_SRCALPHASAT, 11},
    };
    ExpectHeaderAgrees(factors);
    for (const Row& r : factors)
        EXPECT_EQ(r.d3d, static_cast<unsigned>(toD3DBlend(static_cast<BlendFactor>(r.engine)))) << r.engine;
    EXPECT_EQ(kForceDword, static_cast<unsigned>(D3DBLEND_FORCE_DWORD));
    for (int v : {13, -1, 100})
        EXPECT_EQ(kForceDword, static_cast<unsigned>(toD3DBlend(static_cast<BlendFactor>(v)))) << v;

    const std::vector<Row> ops = {
        {0, D3DBLENDOP_ADD, 1}, {1, D3DBLENDOP_SUBTRACT, 2}, {2, D3DBLENDOP_REVSUBTRACT, 3},
        {3, D3DBLENDOP_MIN, 4}, {4, D3DBLENDOP_MAX, 5},
    };
    ExpectHeaderAgrees(ops);
    for (const Row& r : ops)
        EXPECT_EQ(r.d3d, static_cast<unsigned>(toD3DBlendOp(static_cast<BlendOperation>(r.engine)))) << r.engine;
    for (int v : {5, -1})
        EXPECT_EQ(kForceDword, static_cast<unsigned>(toD3DBlendOp(static_cast<BlendOperation>(v)))) << v;
}

TEST(DepthAndStencil, CompareFunctionsInEngineOrder)
{
    const std::vector<Row> rows = {
        {0, D3DCMP_NEVER, 1},     {1, D3DCMP_ALWAYS, 8},       {2, D3DCMP_LESS, 2},
        {3, D3DCMP_LESSEQUAL, 4}, {4, D3DCMP_EQUAL, 3},        {5, D3DCMP_NOTEQUAL, 6},
        {6, D3DCMP_GREATEREQUAL, 7}, {7, D3DCMP_GREATER, 5},
    };
    ExpectHeaderAgrees(rows);
    for (const Row& r : rows)
        EXPECT_EQ(r.d3d, static_cast<unsigned>(toD3DCmpFunc(static_cast<CompareFunction>(r.engine)))) << r.engine;
    for (int v : {8, -1})
        EXPECT_EQ(0u, static_cast<unsigned>(toD3DCmpFunc(static_cast<CompareFunction>(v)))) << v;
}

TEST(DepthAndStencil, StencilOperationsSwapCountingWhenInverted)
{
    struct StencilRow
    {
        int engine;
        unsigned plain, inverted, plainDocumented, invertedDocumented;
    };
    const StencilRow rows[] = {
        {0, D3DSTENCILOP_KEEP, D3DSTENCILOP_KEEP, 1, 1},
        {1, D3DSTENCILOP_ZERO, D3DSTENCILOP_ZERO, 2, 2},
        {2, D3DSTENCILOP_REPLACE, D3DSTENCILOP_REPLACE, 3, 3},
        {3, D3DSTENCILOP_INCRSAT, D3DSTENCILOP_DECRSAT, 4, 5},
        {4, D3DSTENCILOP_DECRSAT, D3DSTENCILOP_INCRSAT, 5, 4},
        {5, D3DSTENCILOP_INCR, D3DSTENCILOP_DECR, 7, 8},
        {6, D3DSTENCILOP_DECR, D3DSTENCILOP_INCR, 8, 7},
        {7, D3DSTENCILOP_INVERT, D3DSTENCILOP_INVERT, 6, 6},
    };
    for (const StencilRow& r : rows)
    {
        EXPECT_EQ(r.plainDocumented, r.plain);
        EXPECT_EQ(r.invertedDocumented, r.inverted);
        StencilOperation op = static_cast<StencilOperation>(r.engine);
        EXPECT_EQ(r.plain, static_cast<unsigned>(toD3DStencilOp(op, false))) << r.engine;
        EXPECT_EQ(r.inverted, static_cast<unsigned>(toD3DStencilOp(op, true))) << r.engine;
    }
    for (int v : {8, -1})
        for (bool invert : {false, true})
            EXPECT_EQ(0u, static_cast<unsigned>(toD3DStencilOp(static_cast<StencilOperation>(v), invert))) << v;
}

TEST(Rasteriser, CullingFollowsTheWinding)
{
    EXPECT_EQ(1u, static_cast<unsigned>(D3DCULL_NONE));
    EXPECT_EQ(2u, static_cast<unsigned>(D3DCULL_CW));
    EXPECT_EQ(3u, static_cast<unsigned>(D3DCULL_CCW));
    for (bool invert : {false, true})
        EXPECT_EQ(D3DCULL_NONE, toD3DCull(static_cast<CullingMode>(1), invert));
    EXPECT_EQ(D3DCULL_CW, toD3DCull(static_cast<CullingMode>(2), false));
    EXPECT_EQ(D3DCULL_CCW, toD3DCull(static_cast<CullingMode>(2), true));
    EXPECT_EQ(D3DCULL_CCW, toD3DCull(static_cast<CullingMode>(3), false));
    EXPECT_EQ(D3DCULL_CW, toD3DCull(static_cast<CullingMode>(3), true));
    for (int v : {0, 4, -1})
        for (bool invert : {false, true})
            EXPECT_EQ(0u, static_cast<unsigned>(toD3DCull(static_cast<CullingMode>(v), invert))) << v;
}

TEST(Rasteriser, FillModesWithTheWireViewingModes)
{
    EXPECT_EQ(1u, static_cast<unsigned>(D3DFILL_POINT));
    EXPECT_EQ(2u, static_cast<unsigned>(D3DFILL_WIREFRAME));
    EXPECT_EQ(3u, static_cast<unsigned>(D3DFILL_SOLID));
    const struct
    {
        int engine;
        unsigned d3d;
    } rows[] = {{1, D3DFILL_POINT}, {2, D3DFILL_WIREFRAME}, {3, D3DFILL_SOLID}, {4, D3DFILL_WIREFRAME},
                {5, D3DFILL_WIREFRAME}, {6, kForceDword}, {7, kForceDword}, {0, kForceDword},
                {8, kForceDword}, {-1, kForceDword}};
    for (const auto& r : rows)
        EXPECT_EQ(r.d3d, static_cast<unsigned>(toD3DFillMode(static_cast<FillMode>(r.engine)))) << r.engine;
}

TEST(Buffers, IndexFormatIs32BitOnlyForOne)
{
    EXPECT_EQ(101u, static_cast<unsigned>(D3DFMT_INDEX16));
    EXPECT_EQ(102u, static_cast<unsigned>(D3DFMT_INDEX32));
    EXPECT_EQ(D3DFMT_INDEX32, toD3DIndexFormat(static_cast<IndexType>(1)));
    for (int v : {0, 2, 32, -1})
        EXPECT_EQ(D3DFMT_INDEX16, toD3DIndexFormat(static_cast<IndexType>(v))) << v;
}

TEST(Buffers, UsageNeedsDynamicAndDiscardableForDynamic)
{
    EXPECT_EQ(8u, static_cast<unsigned>(D3DUSAGE_WRITEONLY));
    EXPECT_EQ(0x200u, static_cast<unsigned>(D3DUSAGE_DYNAMIC));
    // Every combination of static 1, dynamic 2, write-only 4, discardable 8.
    const unsigned expected[16] = {0, 0, 0, 0, 8, 8, 8, 8, 0, 0, 0x200, 0x200, 8, 8, 0x208, 0x208};
    for (unsigned u = 0; u < 16; ++u)
    {
        EXPECT_EQ(expected[u], toD3DUsage(static_cast<CHardwareBuffer::Usage>(u))) << u;
        EXPECT_EQ(expected[u], toD3DUsage(static_cast<CHardwareBuffer::Usage>(u | 0x20))) << (u | 0x20);
    }
}

TEST(Buffers, LockFlagsRespectTheUsage)
{
    EXPECT_EQ(0x2000u, static_cast<unsigned>(D3DLOCK_DISCARD));
    EXPECT_EQ(0x10u, static_cast<unsigned>(D3DLOCK_READONLY));
    EXPECT_EQ(0x1000u, static_cast<unsigned>(D3DLOCK_NOOVERWRITE));
    const std::set<unsigned> dynamicDiscardable = {10, 11, 14, 15};
    const std::set<unsigned> writeOnly = {4, 5, 6, 7, 12, 13, 14, 15};
    for (unsigned u = 0; u < 16; ++u)
    {
        CHardwareBuffer::Usage usage = static_cast<CHardwareBuffer::Usage>(u);
        const bool dd = dynamicDiscardable.count(u) != 0;
        EXPECT_EQ(0u, toD3DLockFlags(CHardwareBuffer::LOCK_NORMAL, usage)) << u;
        EXPECT_EQ(dd ? 0x2000u : 0u, toD3DLockFlags(static_cast<CHardwareBuffer::LockOptions>(1), usage)) << u;
        EXPECT_EQ(writeOnly.count(u) ? 0u : 0x10u, toD3DLockFlags(static_cast<CHardwareBuffer::LockOptions>(2), usage))
            << u;
        EXPECT_EQ(dd ? 0x1000u : 0u, toD3DLockFlags(static_cast<CHardwareBuffer::LockOptions>(3), usage)) << u;
        for (int v : {4, -1, 0x2000})
            EXPECT_EQ(0u, toD3DLockFlags(static_cast<CHardwareBuffer::LockOptions>(v), usage)) << u << " " << v;
    }
}

// The capability rules read the caps the way the state setters do: from the
// render system's m_d3dcaps. No device is needed for that.
struct CapabilityRules : public ::testing::Test
{
    std::unique_ptr<CD3D9RenderSystem> rs;

    void SetUp() override
    {
        rs.reset(new CD3D9RenderSystem);
        ASSERT_EQ(rs.get(), GetD3D9RenderSystem());
    }
    void TearDown() override
    {
        if (rs)
            std::memset(&rs->m_d3dcaps, 0, sizeof(rs->m_d3dcaps));
        rs.reset();
    }

    const D3DCAPS9& Caps() { return GetD3D9RenderSystem()->m_d3dcaps; }
    // Every capability word set, so only the field under test can say no.
    void AllCapsExcept(DWORD D3DCAPS9::*field, DWORD value)
    {
        std::memset(&rs->m_d3dcaps, 0xFF, sizeof(rs->m_d3dcaps));
        rs->m_d3dcaps.*field = value;
    }
};

TEST_F(CapabilityRules, SamplerStateOfEachFilterType)
{
    EXPECT_EQ(6u, static_cast<unsigned>(D3DSAMP_MINFILTER));
    EXPECT_EQ(5u, static_cast<unsigned>(D3DSAMP_MAGFILTER));
    EXPECT_EQ(7u, static_cast<unsigned>(D3DSAMP_MIPFILTER));
    EXPECT_EQ(D3DSAMP_MINFILTER, toD3DSamplerFilterState(static_cast<FilterType>(0)));
    EXPECT_EQ(D3DSAMP_MAGFILTER, toD3DSamplerFilterState(static_cast<FilterType>(1)));
    EXPECT_EQ(D3DSAMP_MIPFILTER, toD3DSamplerFilterState(static_cast<FilterType>(2)));
    for (int v : {3, -1})
        EXPECT_EQ(D3DSAMP_MINFILTER, toD3DSamplerFilterState(static_cast<FilterType>(v))) << v;
}

TEST_F(CapabilityRules, AnisotropyOnlyWhereTheDeviceOffersItForThatFilter)
{
    EXPECT_EQ(0x04000000u, static_cast<unsigned>(D3DPTFILTERCAPS_MAGFANISOTROPIC));
    EXPECT_EQ(0x400u, static_cast<unsigned>(D3DPTFILTERCAPS_MINFANISOTROPIC));
    EXPECT_EQ(0u, static_cast<unsigned>(D3DTEXF_NONE));
    EXPECT_EQ(1u, static_cast<unsigned>(D3DTEXF_POINT));
    EXPECT_EQ(2u, static_cast<unsigned>(D3DTEXF_LINEAR));
    EXPECT_EQ(3u, static_cast<unsigned>(D3DTEXF_ANISOTROPIC));

    const DWORD mag = D3DPTFILTERCAPS_MAGFANISOTROPIC, min = D3DPTFILTERCAPS_MINFANISOTROPIC;
    const DWORD capSets[] = {0, mag, min, mag | min, ~(mag | min), 0xFFFFFFFF};
    const int types[] = {0, 1, 2, 3, -1};

    // Options other than anisotropic ignore type and caps alike.
    for (DWORD caps : capSets)
        for (int t : types)
        {
            AllCapsExcept(&D3DCAPS9::TextureFilterCaps, caps);
            FilterType type = static_cast<FilterType>(t);
            EXPECT_EQ(D3DTEXF_NONE, toD3DTextureFilter(type, static_cast<FilterOptions>(0), Caps()));
            EXPECT_EQ(D3DTEXF_POINT, toD3DTextureFilter(type, static_cast<FilterOptions>(1), Caps()));
            EXPECT_EQ(D3DTEXF_LINEAR, toD3DTextureFilter(type, static_cast<FilterOptions>(2), Caps()));
            for (int o : {4, 5, -1})
                EXPECT_EQ(D3DTEXF_NONE, toD3DTextureFilter(type, static_cast<FilterOptions>(o), Caps())) << o;
        }

    const struct
    {
        int type;
        DWORD caps;
        D3DTEXTUREFILTERTYPE expected;
    } aniso[] = {
        {1, 0, D3DTEXF_LINEAR},           {1, mag, D3DTEXF_ANISOTROPIC},      {1, min, D3DTEXF_LINEAR},
        {1, mag | min, D3DTEXF_ANISOTROPIC}, {1, ~(mag | min), D3DTEXF_LINEAR}, {0, 0, D3DTEXF_LINEAR},
        {0, mag, D3DTEXF_LINEAR},         {0, min, D3DTEXF_ANISOTROPIC},      {0, mag | min, D3DTEXF_ANISOTROPIC},
        {0, ~(mag | min), D3DTEXF_LINEAR}, {2, 0, D3DTEXF_LINEAR},            {2, mag | min, D3DTEXF_LINEAR},
        {2, 0xFFFFFFFF, D3DTEXF_LINEAR},  {3, 0xFFFFFFFF, D3DTEXF_LINEAR},    {-1, 0xFFFFFFFF, D3DTEXF_LINEAR},
    };
    for (const auto& r : aniso)
    {
        AllCapsExcept(&D3DCAPS9::TextureFilterCaps, r.caps);
        EXPECT_EQ(r.expected, toD3DTextureFilter(static_cast<FilterType>(r.type), FO_ANISOTROPIC, Caps()))
            << "type " << r.type << " caps " << std::hex << r.caps;
    }
}

TEST_F(CapabilityRules, BorderFallsBackToClamp)
{
    EXPECT_EQ(8u, static_cast<unsigned>(D3DPTADDRESSCAPS_BORDER));
    const std::vector<Row> rows = {
        {0, D3DTADDRESS_WRAP, 1}, {1, D3DTADDRESS_MIRROR, 2}, {2, D3DTADDRESS_CLAMP, 3}};
    ExpectHeaderAgrees(rows);
    EXPECT_EQ(4u, static_cast<unsigned>(D3DTADDRESS_BORDER));

    const struct
    {
        DWORD caps;
        D3DTEXTUREADDRESS border;
    } capSets[] = {{0, D3DTADDRESS_CLAMP},
                   {D3DPTADDRESSCAPS_BORDER, D3DTADDRESS_BORDER},
                   {~static_cast<DWORD>(D3DPTADDRESSCAPS_BORDER), D3DTADDRESS_CLAMP},
                   {0xFFFFFFFF, D3DTADDRESS_BORDER}};
    for (const auto& c : capSets)
    {
        AllCapsExcept(&D3DCAPS9::TextureAddressCaps, c.caps);
        for (const Row& r : rows)
            EXPECT_EQ(r.d3d, static_cast<unsigned>(toD3DTextureAddress(static_cast<TextureAddressMode>(r.engine), Caps())));
        EXPECT_EQ(c.border, toD3DTextureAddress(static_cast<TextureAddressMode>(3), Caps())) << std::hex << c.caps;
        for (int v : {4, -1})
            EXPECT_EQ(kForceDword, static_cast<unsigned>(toD3DTextureAddress(static_cast<TextureAddressMode>(v), Caps())));
    }
}

TEST_F(CapabilityRules, SphereMapOnlyWithTheVertexProcessingCap)
{
    EXPECT_EQ(0x100u, static_cast<unsigned>(D3DVTXPCAPS_TEXGEN_SPHEREMAP));
    EXPECT_EQ(0x40000u, static_cast<unsigned>(D3DTSS_TCI_SPHEREMAP));
    EXPECT_EQ(0x10000u, static_cast<unsigned>(D3DTSS_TCI_CAMERASPACENORMAL));
    EXPECT_EQ(0x30000u, static_cast<unsigned>(D3DTSS_TCI_CAMERASPACEREFLECTIONVECTOR));
    EXPECT_EQ(0x20000u, static_cast<unsigned>(D3DTSS_TCI_CAMERASPACEPOSITION));

    const struct
    {
        int engine;
        DWORD with, without;
    } rows[] = {
        {1, D3DTSS_TCI_SPHEREMAP, D3DTSS_TCI_CAMERASPACENORMAL},
        {2, D3DTSS_TCI_SPHEREMAP, D3DTSS_TCI_CAMERASPACEREFLECTIONVECTOR},
        {3, D3DTSS_TCI_CAMERASPACEREFLECTIONVECTOR, D3DTSS_TCI_CAMERASPACEREFLECTIONVECTOR},
        {4, D3DTSS_TCI_CAMERASPACENORMAL, D3DTSS_TCI_CAMERASPACENORMAL},
        {5, D3DTSS_TCI_CAMERASPACEPOSITION, D3DTSS_TCI_CAMERASPACEPOSITION},
        {0, 0, 0},
        {6, 0, 0},
        {-1, 0, 0},
    };
    const DWORD sphere = D3DVTXPCAPS_TEXGEN_SPHEREMAP;
    for (const auto& r : rows)
    {
        TexCoordGeneration g = static_cast<TexCoordGeneration>(r.engine);
        AllCapsExcept(&D3DCAPS9::VertexProcessingCaps, sphere);
        EXPECT_EQ(r.with, toD3DTexCoordIndex(g, Caps())) << r.engine;
        AllCapsExcept(&D3DCAPS9::VertexProcessingCaps, ~sphere);
        EXPECT_EQ(r.without, toD3DTexCoordIndex(g, Caps())) << r.engine;
        AllCapsExcept(&D3DCAPS9::VertexProcessingCaps, 0);
        EXPECT_EQ(r.without, toD3DTexCoordIndex(g, Caps())) << r.engine;
    }
}

TEST(Matrices, BothDirectionsTranspose)
{
    Matrix4 m;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            m.m[i][j] = static_cast<float>(10 * i + j + 1);
    D3DMATRIX d = toD3DMatrix(m);
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            EXPECT_EQ(static_cast<float>(10 * j + i + 1), d.m[i][j]) << i << "," << j;

    // The engine keeps a translation in the last column; Direct3D's row
    // vectors want it in the last row.
    Matrix4 move(1, 0, 0, 5, 0, 1, 0, 6, 0, 0, 1, 7, 0, 0, 0, 1);
    D3DMATRIX dm = toD3DMatrix(move);
    EXPECT_EQ(5.0f, dm._41);
    EXPECT_EQ(6.0f, dm._42);
    EXPECT_EQ(7.0f, dm._43);
    EXPECT_EQ(0.0f, dm._14);

    Matrix4 back = fromD3DMatrix(d);
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            EXPECT_EQ(m.m[i][j], back.m[i][j]) << i << "," << j;
    Matrix4 fromRows = fromD3DMatrix(dm);
    EXPECT_EQ(5.0f, fromRows.m[0][3]);
    EXPECT_EQ(7.0f, fromRows.m[2][3]);
    EXPECT_EQ(0.0f, fromRows.m[3][0]);
}

} // namespace
