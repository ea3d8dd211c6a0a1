// Vertex declarations: the engine's elements as the device holds them, the end
// mark, bad types, and the native object's life around device events.
#include "D3D9ResourceManager.h"
#include "DrawFixture.h"

using namespace kv;
using kvproxy::Method;

namespace
{

typedef DrawTest Declarations;

// What the device made, read back from the native declaration itself.
std::vector<D3DVERTEXELEMENT9> ElementsOf(IDirect3DVertexDeclaration9* declaration)
{
    UINT count = 0;
    if (!declaration || FAILED(declaration->GetDeclaration(nullptr, &count)))
        return {};
    std::vector<D3DVERTEXELEMENT9> elements(count);
    if (FAILED(declaration->GetDeclaration(elements.data(), &count)))
        return {};
    return elements;
}

bool IsEndMark(const D3DVERTEXELEMENT9& e)
{
    return e.Stream == 0xFF && e.Offset == 0 && e.Type == D3DDECLTYPE_UNUSED && e.Method == 0 && e.Usage == 0 &&
           e.UsageIndex == 0;
}

} // namespace

TEST_F(Declarations, ElementsReachTheDeviceTranslated)
{
    const VertexElement elements[] = {
        VertexElement(0, 0, VET_FLOAT3, VES_POSITION),
        VertexElement(0, 12, VET_FLOAT3, VES_NORMAL),
        VertexElement(0, 24, VET_COLOUR, VES_COLOUR),
        VertexElement(0, 28, VET_FLOAT2, VES_TEXTURE_COORDINATES, 3),
        VertexElement(1, 0, VET_UBYTE4, VES_BLEND_INDICES),
        VertexElement(1, 4, VET_SHORT2N, VES_TEXTURE_COORDINATES, 1),
        VertexElement(1, 8, VET_HALF4, VES_TANGENT),
    };
    kvproxy::Mark mark = kvproxy::Here();
    ref_ptr<CVertexDeclaration> declaration = rs->CreateVertexDeclaration(elements, 7);
    ASSERT_TRUE(declaration);
    EXPECT_EQ(1u, kvproxy::CountSince(mark, Method::CreateVertexDeclaration));
    std::vector<D3DVERTEXELEMENT9> made = ElementsOf(Native(declaration.get()));
    ASSERT_EQ(8u, made.size());
    const D3DVERTEXELEMENT9 expected[] = {
        {0, 0, D3DDECLTYPE_FLOAT3, D3DDECLMETHOD_DEFAULT, D3DDECLUSAGE_POSITION, 0},
        {0, 12, D3DDECLTYPE_FLOAT3, D3DDECLMETHOD_DEFAULT, D3DDECLUSAGE_NORMAL, 0},
        {0, 24, D3DDECLTYPE_D3DCOLOR, D3DDECLMETHOD_DEFAULT, D3DDECLUSAGE_COLOR, 0},
        {0, 28, D3DDECLTYPE_FLOAT2, D3DDECLMETHOD_DEFAULT, D3DDECLUSAGE_TEXCOORD, 3},
        {1, 0, D3DDECLTYPE_UBYTE4, D3DDECLMETHOD_DEFAULT, D3DDECLUSAGE_BLENDINDICES, 0},
        {1, 4, D3DDECLTYPE_SHORT2N, D3DDECLMETHOD_DEFAULT, D3DDECLUSAGE_TEXCOORD, 1},
        {1, 8, D3DDECLTYPE_FLOAT16_4, D3DDECLMETHOD_DEFAULT, D3DDECLUSAGE_TANGENT, 0},
    };
    for (int i = 0; i < 7; ++i)
    {
        SCOPED_TRACE(i);
        EXPECT_EQ(expected[i].Stream, made[i].Stream);
        EXPECT_EQ(expected[i].Offset, made[i].Offset);
        EXPECT_EQ(expected[i].Type, made[i].Type);
        EXPECT_EQ(expected[i].Method, made[i].Method);
        EXPECT_EQ(expected[i].Usage, made[i].Usage);
        EXPECT_EQ(expected[i].UsageIndex, made[i].UsageIndex);
    }
    EXPECT_TRUE(IsEndMark(made[7]));
    EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());
}

TEST_F(Declarations, WideFieldsKeepTheirLowBits)
{
    // Offset 0x10008 keeps 8; usage index 0x102 keeps 2.
    VertexElement elements[] = {VertexElement(0, 0, VET_FLOAT4, VES_POSITION),
                                VertexElement(0, 0x10008u, VET_FLOAT2, VES_TEXTURE_COORDINATES, 0x102)};
    ref_ptr<CVertexDeclaration> declaration = rs->CreateVertexDeclaration(elements, 2);
    std::vector<D3DVERTEXELEMENT9> made = ElementsOf(Native(declaration.get()));
    ASSERT_EQ(3u, made.size());
    EXPECT_EQ(8, made[1].Offset);
    EXPECT_EQ(2, made[1].UsageIndex);
    EXPECT_EQ(D3DDECLUSAGE_TEXCOORD, made[1].Usage);
}

TEST_F(Declarations, EmptyDeclarationIsTheEndMarkAlone)
{
    for (int count : {0, -3})
    {
        ref_ptr<CVertexDeclaration> declaration = rs->CreateVertexDeclaration(nullptr, count);
        std::vector<D3DVERTEXELEMENT9> made = ElementsOf(Native(declaration.get()));
        ASSERT_EQ(1u, made.size()) << count;
        EXPECT_TRUE(IsEndMark(made[0]));
    }
}

TEST_F(Declarations, UnknownTypeStandsAsFloat3AndTheOthersKeepTheirs)
{
    VertexElement elements[] = {VertexElement(0, 0, static_cast<VertexElementType>(13), VES_POSITION),
                                VertexElement(0, 12, VET_FLOAT2, VES_TEXTURE_COORDINATES),
                                VertexElement(0, 20, VET_COLOUR, static_cast<VertexSemantic>(40), 1)};
    ref_ptr<CVertexDeclaration> declaration = rs->CreateVertexDeclaration(elements, 3);
    EXPECT_EQ(std::vector<std::string>{"Unknow VertexElementType:13"}, Errors());
    std::vector<D3DVERTEXELEMENT9> made = ElementsOf(Native(declaration.get()));
    ASSERT_EQ(4u, made.size());
    EXPECT_EQ(D3DDECLTYPE_FLOAT3, made[0].Type);
    EXPECT_EQ(D3DDECLTYPE_FLOAT2, made[1].Type);
    EXPECT_EQ(D3DDECLTYPE_D3DCOLOR, made[2].Type);
    EXPECT_EQ(D3DDECLUSAGE_POSITION, made[2].Usage); // an unknown semantic is a position
}

TEST_F(Declarations, NativeDeclarationOutlivesResetsAndGoesWithTheDevice)
{
    ref_ptr<CVertexDeclaration> declaration = ColourDeclaration();
    IDirect3DVertexDeclaration9* native = Native(declaration.get());
    ASSERT_NE(nullptr, native);
    kvproxy::Mark mark = kvproxy::Here();
    d3d->GetResourceManager()->notifyOnDeviceLost();
    d3d->GetResourceManager()->notifyOnDeviceReset();
    EXPECT_EQ(native, Native(declaration.get()));
    EXPECT_EQ(0u, kvproxy::CountSince(mark, Method::CreateVertexDeclaration));
    d3d->GetResourceManager()->notifyOnDeviceDestroy();
    EXPECT_EQ(nullptr, Native(declaration.get()));
}

TEST_F(Declarations, EachCallMakesANewDeclaration)
{
    kvproxy::Mark mark = kvproxy::Here();
    ref_ptr<CVertexDeclaration> a = ColourDeclaration();
    ref_ptr<CVertexDeclaration> b = ColourDeclaration();
    EXPECT_NE(a.get(), b.get());
    EXPECT_EQ(2u, kvproxy::CountSince(mark, Method::CreateVertexDeclaration));
}

TEST_F(Declarations, RefusedCreationLeavesALiveObjectWithoutNativePart)
{
    kvproxy::FailMethod(Method::CreateVertexDeclaration, E_OUTOFMEMORY, 1);
    ref_ptr<CVertexDeclaration> declaration = ColourDeclaration();
    ASSERT_TRUE(declaration);
    EXPECT_EQ(nullptr, Native(declaration.get()));
    EXPECT_EQ(std::vector<std::string>{VerifyLine(E_OUTOFMEMORY, "CreateVertexDeclaration")}, Errors());
    EXPECT_EQ(2, declaration->GetElementCount()); // the engine's copy stays
}
