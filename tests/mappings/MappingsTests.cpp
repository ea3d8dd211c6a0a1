// The translations between the engine's enumerations and Direct3D's. Every expected Direct3D value is written as
// the number Direct3D documents, not as the header's named constant, so a wrong constant in the header fails as surely
// as a wrong row. Each row lists the answers for a run of engine values, one past the last known value and -1
// included, which shows the fallbacks. The capability rules take caps of every bit set but the one under test; the
// capability bits are numbers here for the same reason.
#include "D3D9Mappings.h"

#include "engine/Log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <set>
#include <tuple>
#include <vector>

using namespace kv;
using namespace kv::D3D9Mappings;

namespace
{

typedef std::vector<unsigned> Numbers;
const unsigned kForceDword = 0x7FFFFFFF;

// The answers for the engine values first to last.
Numbers Answers(const std::function<unsigned(int)>& map, int first, int last)
{
    Numbers out;
    for (int v = first; v <= last; ++v)
        out.push_back(map(v));
    return out;
}

template <class E, class R>
std::function<unsigned(int)> Of(R (*map)(E))
{
    return [map](int v) { return static_cast<unsigned>(map(static_cast<E>(v))); };
}

D3DCAPS9 AllCapsBut(DWORD D3DCAPS9::*field, DWORD value)
{
    D3DCAPS9 caps;
    std::memset(&caps, 0xFF, sizeof(caps));
    caps.*field = value;
    return caps;
}

// Triples: the engine format, its number, the Direct3D format.
const unsigned kFormats[] = {
    PF_L8,           1,   50,         PF_L16,          2,   81,         PF_A8,           3,   28,
    PF_A4L4,         4,   52,         PF_A8L8,         5,   51,         PF_R5G6B5,       6,   23,
    PF_A4R4G4B4,     8,   26,         PF_A1R5G5B5,     9,   25,         PF_R8G8B8,       10,  20,
    PF_A8R8G8B8,     12,  21,         PF_A8B8G8R8,     13,  32,         PF_A2R10G10B10,  15,  35,
    PF_A2B10G10R10,  16,  31,         PF_DXT1,         17,  0x31545844, PF_DXT2,         18,  0x32545844,
    PF_DXT3,         19,  0x33545844, PF_DXT4,         20,  0x34545844, PF_DXT5,         21,  0x35545844,
    PF_FLOAT16_RGBA, 23,  113,        PF_FLOAT32_RGBA, 25,  116,        PF_X8R8G8B8,     26,  22,
    PF_X8B8G8R8,     27,  33,         PF_D24X8,        29,  77,         PF_A16B16G16R16, 30,  36,
    PF_R3G3B2,       31,  27,         PF_FLOAT16_R,    32,  111,        PF_FLOAT32_R,    33,  114,
    PF_G16R16,       34,  34,         PF_FLOAT16_GR,   35,  112,        PF_FLOAT32_GR,   36,  115,
    PF_ATI2,         72,  0x32495441, PF_D24S8,        110, 75,         PF_NULL,         111, 0x4C4C554E,
    PF_INTZ,         112, 0x5A544E49, PF_D16,          113, 80};

TEST(PixelFormats, ThirtyFiveRowsMapBothWaysAndEveryOtherValueIsUnknown)
{
    std::set<unsigned> engineSeen, d3dSeen;
    for (size_t i = 0; i < sizeof(kFormats) / sizeof(kFormats[0]); i += 3)
    {
        const PixelFormat engine = static_cast<PixelFormat>(kFormats[i]);
        const unsigned number = kFormats[i + 1], d3d = kFormats[i + 2];
        EXPECT_EQ(number, kFormats[i]) << "engine header value";
        EXPECT_EQ(d3d, static_cast<unsigned>(toD3DFormat(engine))) << "engine format " << number;
        EXPECT_EQ(number, static_cast<unsigned>(fromD3DFormat(static_cast<D3DFORMAT>(d3d)))) << d3d;
        EXPECT_EQ(engine, closestSupportedFormat(engine));
        EXPECT_TRUE(engineSeen.insert(number).second && d3dSeen.insert(d3d).second) << number;
    }
    for (unsigned v = 0; v < 400; ++v)
    {
        const PixelFormat f = static_cast<PixelFormat>(v);
        EXPECT_TRUE(engineSeen.count(v) || toD3DFormat(f) == D3DFMT_UNKNOWN) << v;
        EXPECT_TRUE(d3dSeen.count(v) || fromD3DFormat(static_cast<D3DFORMAT>(v)) == PF_UNKNOWN) << v;
        EXPECT_NE(D3DFMT_UNKNOWN, toD3DFormat(closestSupportedFormat(f))) << v;
    }
    // FOURCC formats the engine has no name for; 26 is PF_X8R8G8B8 to the engine
    // but D3DFMT_A4R4G4B4 to Direct3D.
    for (unsigned f : {unsigned(MAKEFOURCC('A', 'T', 'I', '1')), unsigned(MAKEFOURCC('D', 'F', '2', '4')), kForceDword})
        EXPECT_EQ(PF_UNKNOWN, fromD3DFormat(static_cast<D3DFORMAT>(f))) << f;
    EXPECT_EQ(D3DFMT_UNKNOWN, toD3DFormat(static_cast<PixelFormat>(0xFFFFFFFFu)));
    EXPECT_EQ(PF_A4R4G4B4, fromD3DFormat(static_cast<D3DFORMAT>(26)));
    // Partners, then strays that fall back to PF_A8R8G8B8 (12).
    Numbers closest;
    for (unsigned v : {7u, 11u, 22u, 24u, 37u, 109u, 0u, 14u, 114u, 200u, 0x7FFFFFFFu, 0xFFFFFFFFu})
        closest.push_back(closestSupportedFormat(static_cast<PixelFormat>(v)));
    EXPECT_EQ((Numbers{6, 10, 23, 25, 30, 8, 12, 12, 12, 12, 12, 12}), closest);
}

TEST(Enumerations, StatesDeclarationsBuffersAndMatrices)
{
    ClearLog();
    EXPECT_EQ((Numbers{kForceDword, 2, 1, 9, 3, 10, 4, 7, 5, 8, 6, 14, 15, 11, kForceDword}),
              Answers(Of(&toD3DBlend), -1, 13));
    EXPECT_EQ((Numbers{kForceDword, 1, 2, 3, 4, 5, kForceDword}), Answers(Of(&toD3DBlendOp), -1, 5));
    EXPECT_EQ((Numbers{0, 1, 8, 2, 4, 3, 6, 7, 5, 0}), Answers(Of(&toD3DCmpFunc), -1, 8));
    // Points, wireframe, solid, the two wire viewing modes, the two that the setters handle.
    EXPECT_EQ((Numbers{kForceDword, kForceDword, 1, 2, 3, 2, 2, kForceDword, kForceDword, kForceDword}),
              Answers(Of(&toD3DFillMode), -1, 8));
    // 32-bit indices for one type only; everything else is 16-bit.
    EXPECT_EQ((Numbers{101, 101, 102, 101}), Answers(Of(&toD3DIndexFormat), -1, 2));
    EXPECT_EQ((Numbers{6, 6, 5, 7, 6}), Answers(Of(&toD3DSamplerFilterState), -1, 3));
    for (const bool invert : {false, true})
    {
        auto stencil = [invert](int v) { return unsigned(toD3DStencilOp(static_cast<StencilOperation>(v), invert)); };
        auto cull = [invert](int v) { return unsigned(toD3DCull(static_cast<CullingMode>(v), invert)); };
        EXPECT_EQ((invert ? Numbers{0, 1, 2, 3, 5, 4, 8, 7, 6, 0} : Numbers{0, 1, 2, 3, 4, 5, 7, 8, 6, 0}),
                  Answers(stencil, -1, 8));
        EXPECT_EQ((invert ? Numbers{0, 0, 1, 3, 2, 0} : Numbers{0, 0, 1, 2, 3, 0}), Answers(cull, -1, 4));
    }
    EXPECT_EQ(0u, GetLogLineCount());

    // Declaration types in their own order; an unknown one is reported and stands as FLOAT3.
    EXPECT_EQ((Numbers{0, 1, 2, 3, 4, 6, 7, 5, 8, 9, 10, 15, 16}), Answers(Of(&toD3DDeclType), 0, 12));
    EXPECT_EQ(0u, GetLogLineCount()) << "known types are not reported";
    for (int v : {13, -1, 1000})
        EXPECT_EQ(2u, static_cast<unsigned>(toD3DDeclType(static_cast<VertexElementType>(v)))) << v;
    EXPECT_EQ((std::vector<std::string>{"Unknow VertexElementType:13", "Unknow VertexElementType:-1",
                                        "Unknow VertexElementType:1000"}),
              GetLogTexts(LOG_ERROR));
    // Semantics agree both ways and fall back to the position, silently.
    ClearLog();
    const Numbers usages{0, 3, 7, 6, 5, 10, 1, 2};
    EXPECT_EQ((Numbers{0, 0, 3, 7, 6, 5, 10, 1, 2, 0}), Answers(Of(&toD3DDeclUsage), -1, 8));
    for (unsigned u = 0; u < 16; ++u)
    {
        const auto found = std::find(usages.begin(), usages.end(), u);
        EXPECT_EQ(found == usages.end() ? 0 : found - usages.begin(), fromD3DDeclUsage(static_cast<D3DDECLUSAGE>(u)))
            << u;
    }
    EXPECT_EQ(0u, GetLogLineCount()) << "semantics fall back silently";

    // Every combination of static 1, dynamic 2, write-only 4, discardable 8; the
    // render-target bit 0x20 changes nothing. Dynamic needs dynamic and discardable.
    const std::set<unsigned> dynamicDiscardable = {10, 11, 14, 15}, writeOnly = {4, 5, 6, 7, 12, 13, 14, 15};
    for (unsigned u = 0; u < 16; ++u)
    {
        const bool dd = dynamicDiscardable.count(u) != 0;
        const CHardwareBuffer::Usage usage = static_cast<CHardwareBuffer::Usage>(u);
        EXPECT_EQ((writeOnly.count(u) ? 8u : 0u) + (dd ? 0x200u : 0u), toD3DUsage(usage)) << u;
        EXPECT_EQ(toD3DUsage(usage), toD3DUsage(static_cast<CHardwareBuffer::Usage>(u | 0x20))) << u;
        auto flags = [usage](int o) { return toD3DLockFlags(static_cast<CHardwareBuffer::LockOptions>(o), usage); };
        // Normal, discard, read-only, no-overwrite, and strays.
        EXPECT_EQ((Numbers{0, 0, dd ? 0x2000u : 0u, writeOnly.count(u) ? 0u : 0x10u, dd ? 0x1000u : 0u, 0}),
                  Answers(flags, -1, 4))
            << u;
    }

    // Matrices transpose both ways.
    Matrix4 m;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            m.m[i][j] = static_cast<float>(10 * i + j + 1);
    const D3DMATRIX d = toD3DMatrix(m);
    const Matrix4 back = fromD3DMatrix(d);
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            EXPECT_TRUE(m.m[j][i] == d.m[i][j] && m.m[i][j] == back.m[i][j]) << i << "," << j;
    // The engine keeps a translation in the last column; Direct3D's row vectors
    // want it in the last row.
    const D3DMATRIX t = toD3DMatrix(Matrix4(1, 0, 0, 5, 0, 1, 0, 6, 0, 0, 1, 7, 0, 0, 0, 1));
    EXPECT_EQ((std::vector<float>{5, 6, 7, 0}), (std::vector<float>{t._41, t._42, t._43, t._14}));

    // Image files by the path's ending, whatever its case: a path that is the ending alone has it, a shorter one not.
    D3DXIMAGE_FILEFORMAT format = D3DXIFF_JPG;
    EXPECT_TRUE(toD3DXImageFileFormat(".PNG", &format) && format == D3DXIFF_PNG);
    EXPECT_FALSE(toD3DXImageFileFormat("png", &format));
}

TEST(CapabilityRules, AnisotropyBorderAndSphereMapsFollowTheCaps)
{
    const DWORD mag = 0x04000000, min = 0x400; // the anisotropic filter caps bits
    // Options other than anisotropic ignore type and caps alike: none 0, point 1, linear 2.
    for (DWORD caps : {DWORD(0), mag | min, ~(mag | min)})
        for (int type : {0, 1, 2, 3, -1})
        {
            const D3DCAPS9 c = AllCapsBut(&D3DCAPS9::TextureFilterCaps, caps);
            auto filter = [&](int o) {
                return unsigned(toD3DTextureFilter(static_cast<FilterType>(type), static_cast<FilterOptions>(o), c));
            };
            EXPECT_EQ((Numbers{0, 0, 1, 2}), Answers(filter, -1, 2));
            EXPECT_EQ(0u, filter(4));
        }
    // Anisotropic (3) where the filter type's bit is set, otherwise linear (2); never for mips.
    const std::tuple<int, DWORD, unsigned> aniso[] = {
        {1, 0, 2},   {1, mag, 3},          {1, min, 2},       {1, ~(mag | min), 2}, {0, mag, 2},
        {0, min, 3}, {0, ~(mag | min), 2}, {2, mag | min, 2}, {3, 0xFFFFFFFF, 2},   {-1, 0xFFFFFFFF, 2}};
    for (const auto& [type, caps, expected] : aniso)
        EXPECT_EQ(expected, unsigned(toD3DTextureFilter(static_cast<FilterType>(type), FO_ANISOTROPIC,
                                                        AllCapsBut(&D3DCAPS9::TextureFilterCaps, caps))))
            << "type " << type << " caps " << std::hex << caps;

    // Wrap 1, mirror 2, clamp 3; border 4 only with the bit (8), else clamp.
    for (DWORD caps : {DWORD(0), DWORD(8), ~DWORD(8)})
    {
        const D3DCAPS9 c = AllCapsBut(&D3DCAPS9::TextureAddressCaps, caps);
        auto address = [&](int v) { return unsigned(toD3DTextureAddress(static_cast<TextureAddressMode>(v), c)); };
        EXPECT_EQ((Numbers{kForceDword, 1, 2, 3, (caps & 8) ? 4u : 3u, kForceDword}), Answers(address, -1, 4));
    }

    // Sphere maps stand in for the environment maps only with the sphere-map bit (0x100).
    const D3DCAPS9 with = AllCapsBut(&D3DCAPS9::VertexProcessingCaps, 0x100);
    const D3DCAPS9 without = AllCapsBut(&D3DCAPS9::VertexProcessingCaps, ~DWORD(0x100));
    auto index = [](const D3DCAPS9& c) {
        return [&c](int v) { return unsigned(toD3DTexCoordIndex(static_cast<TexCoordGeneration>(v), c)); };
    };
    EXPECT_EQ((Numbers{0, 0, 0x40000, 0x40000, 0x30000, 0x10000, 0x20000, 0}), Answers(index(with), -1, 6));
    EXPECT_EQ((Numbers{0, 0, 0x10000, 0x30000, 0x30000, 0x10000, 0x20000, 0}), Answers(index(without), -1, 6));
}

} // namespace
