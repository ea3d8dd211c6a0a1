// The translations between the engine's enumerations and Direct3D's. Every
// expected Direct3D value is written as the number Direct3D documents, not as
// the header's named constant, so a wrong constant in the header fails as
// surely as a wrong row. Values outside each enumeration show the fallbacks.
// The capability rules read the caps of a live render system object, as the
// state setters do; the capability bits are numbers here for the same reason.
#include "D3D9Mappings.h"
#include "D3D9RenderSystem.h"

#include "engine/Log.h"

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <memory>
#include <set>
#include <vector>

using namespace kv;
using namespace kv::D3D9Mappings;

namespace
{

const unsigned kForceDword = 0x7FFFFFFF;

// An engine value and the documented number it must become.
struct Pair
{
    int engine;
    unsigned d3d;
};

template <typename Map>
void ExpectMapped(const char* what, std::initializer_list<Pair> rows, Map map)
{
    for (const Pair& r : rows)
        EXPECT_EQ(r.d3d, static_cast<unsigned>(map(r.engine))) << what << " of engine value " << r.engine;
}

// An engine value and its numbers without and with the inversion.
struct Twin
{
    int engine;
    unsigned plain, inverted;
};

const struct FormatRow
{
    PixelFormat engine;
    unsigned number, d3d;
} kFormats[] = {
    {PF_L8, 1, 50},
    {PF_L16, 2, 81},
    {PF_A8, 3, 28},
    {PF_A4L4, 4, 52},
    {PF_A8L8, 5, 51},
    {PF_R5G6B5, 6, 23},
    {PF_A4R4G4B4, 8, 26},
    {PF_A1R5G5B5, 9, 25},
    {PF_R8G8B8, 10, 20},
    {PF_A8R8G8B8, 12, 21},
    {PF_A8B8G8R8, 13, 32},
    {PF_A2R10G10B10, 15, 35},
    {PF_A2B10G10R10, 16, 31},
    {PF_DXT1, 17, 0x31545844},
    {PF_DXT2, 18, 0x32545844},
    {PF_DXT3, 19, 0x33545844},
    {PF_DXT4, 20, 0x34545844},
    {PF_DXT5, 21, 0x35545844},
    {PF_FLOAT16_RGBA, 23, 113},
    {PF_FLOAT32_RGBA, 25, 116},
    {PF_X8R8G8B8, 26, 22},
    {PF_X8B8G8R8, 27, 33},
    {PF_D24X8, 29, 77},
    {PF_A16B16G16R16, 30, 36},
    {PF_R3G3B2, 31, 27},
    {PF_FLOAT16_R, 32, 111},
    {PF_FLOAT32_R, 33, 114},
    {PF_G16R16, 34, 34},
    {PF_FLOAT16_GR, 35, 112},
    {PF_FLOAT32_GR, 36, 115},
    {PF_ATI2, 72, 0x32495441},
    {PF_D24S8, 110, 75},
    {PF_NULL, 111, 0x4C4C554E},
    {PF_INTZ, 112, 0x5A544E49},
    {PF_D16, 113, 80},
};

bool IsTableFormat(unsigned engine)
{
    for (const FormatRow& r : kFormats)
        if (r.number == engine)
            return true;
    return false;
}

TEST(PixelFormats, ThirtyFiveRowsMapBothWays)
{
    ASSERT_EQ(35u, sizeof(kFormats) / sizeof(kFormats[0]));
    std::set<unsigned> d3dSeen;
    for (const FormatRow& r : kFormats)
    {
        EXPECT_EQ(r.number, static_cast<unsigned>(r.engine)) << "engine header value";
        EXPECT_EQ(r.d3d, static_cast<unsigned>(toD3DFormat(r.engine))) << "engine format " << r.number;
        EXPECT_EQ(r.number, static_cast<unsigned>(fromD3DFormat(static_cast<D3DFORMAT>(r.d3d)))) << r.d3d;
        EXPECT_TRUE(d3dSeen.insert(r.d3d).second) << "two engine formats share " << r.d3d;
    }
}

TEST(PixelFormats, EveryOtherValueIsUnknownBothWays)
{
    EXPECT_EQ(D3DFMT_UNKNOWN, toD3DFormat(PF_UNKNOWN));
    EXPECT_EQ(PF_UNKNOWN, fromD3DFormat(D3DFMT_UNKNOWN));
    for (unsigned v = 0; v < 400; ++v)
        EXPECT_TRUE(IsTableFormat(v) || toD3DFormat(static_cast<PixelFormat>(v)) == D3DFMT_UNKNOWN) << v;
    EXPECT_EQ(D3DFMT_UNKNOWN, toD3DFormat(static_cast<PixelFormat>(0xFFFFFFFFu)));

    // Direct3D formats the engine has no name for.
    const D3DFORMAT others[] = {D3DFMT_X1R5G5B5,
                                D3DFMT_A8R3G3B2,
                                D3DFMT_X4R4G4B4,
                                D3DFMT_A8P8,
                                D3DFMT_P8,
                                D3DFMT_V8U8,
                                D3DFMT_L6V5U5,
                                D3DFMT_X8L8V8U8,
                                D3DFMT_Q8W8V8U8,
                                D3DFMT_V16U16,
                                D3DFMT_A2W10V10U10,
                                D3DFMT_UYVY,
                                D3DFMT_YUY2,
                                D3DFMT_R8G8_B8G8,
                                D3DFMT_G8R8_G8B8,
                                D3DFMT_MULTI2_ARGB8,
                                D3DFMT_D16_LOCKABLE,
                                D3DFMT_D32,
                                D3DFMT_D15S1,
                                D3DFMT_D24X4S4,
                                D3DFMT_D32F_LOCKABLE,
                                D3DFMT_D24FS8,
                                D3DFMT_VERTEXDATA,
                                D3DFMT_INDEX16,
                                D3DFMT_INDEX32,
                                D3DFMT_Q16W16V16U16,
                                D3DFMT_CxV8U8,
                                static_cast<D3DFORMAT>(MAKEFOURCC('A', 'T', 'I', '1')),
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
    auto closest = [](int v) { return closestSupportedFormat(static_cast<PixelFormat>(v)); };
    // Partners, then strays that fall back to PF_A8R8G8B8 (12).
    ExpectMapped("closest format", {{7, 6}, {11, 10}, {22, 23}, {24, 25}, {37, 30}, {109, 8}}, closest);
    ExpectMapped("closest format",
                 {{0, 12},
                  {14, 12},
                  {28, 12},
                  {38, 12},
                  {71, 12},
                  {73, 12},
                  {108, 12},
                  {114, 12},
                  {200, 12},
                  {0x7FFFFFFF, 12},
                  {-1, 12}},
                 closest);
    for (unsigned v = 0; v < 400; ++v)
        EXPECT_NE(D3DFMT_UNKNOWN, toD3DFormat(closestSupportedFormat(static_cast<PixelFormat>(v)))) << v;
}

TEST(VertexDeclarations, TypesInTheirOwnOrderAndUnknownReported)
{
    ClearLog();
    auto type = [](int v) { return toD3DDeclType(static_cast<VertexElementType>(v)); };
    ExpectMapped(
        "declaration type",
        {{0, 0}, {1, 1}, {2, 2}, {3, 3}, {4, 4}, {5, 6}, {6, 7}, {7, 5}, {8, 8}, {9, 9}, {10, 10}, {11, 15}, {12, 16}},
        type);
    EXPECT_EQ(0u, GetLogLineCount()) << "known types are not reported";

    for (int v : {13, -1, 1000})
    {
        ClearLog();
        EXPECT_EQ(2u, static_cast<unsigned>(type(v))) << "unknown types become FLOAT3";
        std::vector<LogLine> errors;
        for (const LogLine& l : GetLogLines())
            if (l.level == LOG_ERROR)
                errors.push_back(l);
        ASSERT_EQ(1u, errors.size());
        EXPECT_EQ("Unknow VertexElementType:" + std::to_string(v), errors[0].text);
        EXPECT_EQ("D3D9RenderSystem/D3D9Mappings", errors[0].file);
    }
}

TEST(VertexDeclarations, SemanticsAgreeBothWaysAndFallBackToPosition)
{
    ClearLog();
    const std::initializer_list<Pair> rows = {{0, 0}, {1, 3}, {2, 7}, {3, 6}, {4, 5}, {5, 10}, {6, 1}, {7, 2}};
    ExpectMapped("semantic", rows, [](int v) { return toD3DDeclUsage(static_cast<VertexSemantic>(v)); });
    for (const Pair& r : rows)
        EXPECT_EQ(r.engine, static_cast<int>(fromD3DDeclUsage(static_cast<D3DDECLUSAGE>(r.d3d)))) << r.d3d;
    for (int v : {8, -1, 99})
        EXPECT_EQ(D3DDECLUSAGE_POSITION, toD3DDeclUsage(static_cast<VertexSemantic>(v))) << v;
    // Point size, tessellation factor, transformed position, fog, depth, sample, and strays.
    for (unsigned u : {4u, 8u, 9u, 11u, 12u, 13u, 14u, 0xFFu})
        EXPECT_EQ(VES_POSITION, fromD3DDeclUsage(static_cast<D3DDECLUSAGE>(u))) << u;
    EXPECT_EQ(0u, GetLogLineCount()) << "semantics fall back silently";
}

TEST(States, BlendCompareFillAndIndexFormats)
{
    ExpectMapped("blend factor",
                 {{0, 2},
                  {1, 1},
                  {2, 9},
                  {3, 3},
                  {4, 10},
                  {5, 4},
                  {6, 7},
                  {7, 5},
                  {8, 8},
                  {9, 6},
                  {10, 14},
                  {11, 15},
                  {12, 11},
                  {13, kForceDword},
                  {-1, kForceDword},
                  {100, kForceDword}},
                 [](int v) { return toD3DBlend(static_cast<BlendFactor>(v)); });
    ExpectMapped("blend operation", {{0, 1}, {1, 2}, {2, 3}, {3, 4}, {4, 5}, {5, kForceDword}, {-1, kForceDword}},
                 [](int v) { return toD3DBlendOp(static_cast<BlendOperation>(v)); });
    ExpectMapped("compare function", {{0, 1}, {1, 8}, {2, 2}, {3, 4}, {4, 3}, {5, 6}, {6, 7}, {7, 5}, {8, 0}, {-1, 0}},
                 [](int v) { return toD3DCmpFunc(static_cast<CompareFunction>(v)); });
    // Points, wireframe, solid, and the two wire viewing modes.
    ExpectMapped("fill mode",
                 {{1, 1},
                  {2, 2},
                  {3, 3},
                  {4, 2},
                  {5, 2},
                  {6, kForceDword},
                  {7, kForceDword},
                  {0, kForceDword},
                  {8, kForceDword},
                  {-1, kForceDword}},
                 [](int v) { return toD3DFillMode(static_cast<FillMode>(v)); });
    // 32-bit indices for one type only; everything else is 16-bit.
    ExpectMapped("index format", {{1, 102}, {0, 101}, {2, 101}, {32, 101}, {-1, 101}},
                 [](int v) { return toD3DIndexFormat(static_cast<IndexType>(v)); });
}

TEST(States, StencilAndCullingSwapWhenInverted)
{
    const Twin stencil[] = {{0, 1, 1}, {1, 2, 2}, {2, 3, 3}, {3, 4, 5}, {4, 5, 4},
                            {5, 7, 8}, {6, 8, 7}, {7, 6, 6}, {8, 0, 0}, {-1, 0, 0}};
    for (const Twin& r : stencil)
    {
        const StencilOperation op = static_cast<StencilOperation>(r.engine);
        EXPECT_EQ(r.plain, static_cast<unsigned>(toD3DStencilOp(op, false))) << "stencil " << r.engine;
        EXPECT_EQ(r.inverted, static_cast<unsigned>(toD3DStencilOp(op, true))) << "inverted stencil " << r.engine;
    }
    const Twin cull[] = {{1, 1, 1}, {2, 2, 3}, {3, 3, 2}, {0, 0, 0}, {4, 0, 0}, {-1, 0, 0}};
    for (const Twin& r : cull)
    {
        const CullingMode mode = static_cast<CullingMode>(r.engine);
        EXPECT_EQ(r.plain, static_cast<unsigned>(toD3DCull(mode, false))) << "cull " << r.engine;
        EXPECT_EQ(r.inverted, static_cast<unsigned>(toD3DCull(mode, true))) << "inverted cull " << r.engine;
    }
}

TEST(Buffers, UsageNeedsDynamicAndDiscardableForDynamic)
{
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
    const std::set<unsigned> dynamicDiscardable = {10, 11, 14, 15};
    const std::set<unsigned> writeOnly = {4, 5, 6, 7, 12, 13, 14, 15};
    for (unsigned u = 0; u < 16; ++u)
    {
        const CHardwareBuffer::Usage usage = static_cast<CHardwareBuffer::Usage>(u);
        auto flags = [usage](int o) { return toD3DLockFlags(static_cast<CHardwareBuffer::LockOptions>(o), usage); };
        const bool dd = dynamicDiscardable.count(u) != 0;
        EXPECT_EQ(0u, toD3DLockFlags(CHardwareBuffer::LOCK_NORMAL, usage)) << u;
        EXPECT_EQ(dd ? 0x2000u : 0u, flags(1)) << "discard, usage " << u;
        EXPECT_EQ(writeOnly.count(u) ? 0u : 0x10u, flags(2)) << "read-only, usage " << u;
        EXPECT_EQ(dd ? 0x1000u : 0u, flags(3)) << "no-overwrite, usage " << u;
        for (int v : {4, -1, 0x2000})
            EXPECT_EQ(0u, flags(v)) << u << " " << v;
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

TEST_F(CapabilityRules, AnisotropyOnlyWhereTheDeviceOffersItForThatFilter)
{
    // Minifying, magnifying, mip filter sampler states.
    ExpectMapped("sampler state", {{0, 6}, {1, 5}, {2, 7}, {3, 6}, {-1, 6}},
                 [](int v) { return toD3DSamplerFilterState(static_cast<FilterType>(v)); });

    const DWORD mag = 0x04000000, min = 0x400; // the anisotropic filter caps bits
    // Options other than anisotropic ignore type and caps alike: none 0, point 1, linear 2.
    for (DWORD caps : {DWORD(0), mag, min, mag | min, ~(mag | min), DWORD(0xFFFFFFFF)})
        for (int t : {0, 1, 2, 3, -1})
        {
            AllCapsExcept(&D3DCAPS9::TextureFilterCaps, caps);
            ExpectMapped("filter option", {{0, 0}, {1, 1}, {2, 2}, {4, 0}, {5, 0}, {-1, 0}}, [&](int o) {
                return toD3DTextureFilter(static_cast<FilterType>(t), static_cast<FilterOptions>(o), Caps());
            });
        }

    // Anisotropic (3) where the filter type's bit is set, otherwise linear (2).
    const struct
    {
        int type;
        DWORD caps;
        unsigned expected;
    } aniso[] = {
        {1, 0, 2}, {1, mag, 3},       {1, min, 2},        {1, mag | min, 3},  {1, ~(mag | min), 2},
        {0, 0, 2}, {0, mag, 2},       {0, min, 3},        {0, mag | min, 3},  {0, ~(mag | min), 2},
        {2, 0, 2}, {2, mag | min, 2}, {2, 0xFFFFFFFF, 2}, {3, 0xFFFFFFFF, 2}, {-1, 0xFFFFFFFF, 2},
    };
    for (const auto& r : aniso)
    {
        AllCapsExcept(&D3DCAPS9::TextureFilterCaps, r.caps);
        EXPECT_EQ(r.expected,
                  static_cast<unsigned>(toD3DTextureFilter(static_cast<FilterType>(r.type), FO_ANISOTROPIC, Caps())))
            << "type " << r.type << " caps " << std::hex << r.caps;
    }
}

TEST_F(CapabilityRules, BorderFallsBackToClamp)
{
    const DWORD border = 8; // the border addressing caps bit
    // Wrap 1, mirror 2, clamp 3; border 4 only with the bit, else clamp.
    for (DWORD caps : {DWORD(0), border, ~border, DWORD(0xFFFFFFFF)})
    {
        AllCapsExcept(&D3DCAPS9::TextureAddressCaps, caps);
        const unsigned borderOrClamp = (caps & border) ? 4 : 3;
        ExpectMapped("address mode", {{0, 1}, {1, 2}, {2, 3}, {3, borderOrClamp}, {4, kForceDword}, {-1, kForceDword}},
                     [&](int v) { return toD3DTextureAddress(static_cast<TextureAddressMode>(v), Caps()); });
    }
}

TEST_F(CapabilityRules, SphereMapOnlyWithTheVertexProcessingCap)
{
    const DWORD sphereCap = 0x100;
    const DWORD sphere = 0x40000, normal = 0x10000, reflection = 0x30000, position = 0x20000;
    const struct
    {
        int engine;
        DWORD with, without;
    } rows[] = {
        {1, sphere, normal},
        {2, sphere, reflection},
        {3, reflection, reflection},
        {4, normal, normal},
        {5, position, position},
        {0, 0, 0},
        {6, 0, 0},
        {-1, 0, 0},
    };
    for (const auto& r : rows)
    {
        const TexCoordGeneration g = static_cast<TexCoordGeneration>(r.engine);
        AllCapsExcept(&D3DCAPS9::VertexProcessingCaps, sphereCap);
        EXPECT_EQ(r.with, toD3DTexCoordIndex(g, Caps())) << r.engine;
        AllCapsExcept(&D3DCAPS9::VertexProcessingCaps, ~sphereCap);
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
    const D3DMATRIX d = toD3DMatrix(m);
    const Matrix4 back = fromD3DMatrix(d);
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
        {
            EXPECT_EQ(m.m[j][i], d.m[i][j]) << i << "," << j;
            EXPECT_EQ(m.m[i][j], back.m[i][j]) << i << "," << j;
        }
    // The engine keeps a translation in the last column; Direct3D's row
    // vectors want it in the last row.
    const D3DMATRIX dm = toD3DMatrix(Matrix4(1, 0, 0, 5, 0, 1, 0, 6, 0, 0, 1, 7, 0, 0, 0, 1));
    EXPECT_EQ(5.0f, dm._41);
    EXPECT_EQ(6.0f, dm._42);
    EXPECT_EQ(7.0f, dm._43);
    EXPECT_EQ(0.0f, dm._14);
}

} // namespace
