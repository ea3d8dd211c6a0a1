// The engine calls the render system through CRenderSystem's table only, so
// the position of every virtual operation is part of the contract with the
// engine. The destructor holds slot 1; this compiler gives it two entries
// (complete and deleting), so the operation of slot n sits at entry n.
#include "engine/RenderSystem.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

using namespace kv;

namespace
{

// A pointer to a virtual member holds one plus the byte offset of its entry.
template <class M>
long EntryOf(M member)
{
    struct Representation
    {
        uintptr_t ptr;
        ptrdiff_t adjust;
    } rep;
    static_assert(sizeof(member) == sizeof(rep), "unexpected member pointer layout");
    std::memcpy(&rep, &member, sizeof(rep));
    if ((rep.ptr & 1) == 0)
        return -1; // not virtual
    return static_cast<long>((rep.ptr - 1) / sizeof(void*));
}

struct Slot
{
    int slot;
    long entry;
    const char* name;
};

#define SLOT(n, name) Slot{n, EntryOf(&CRenderSystem::name), #name}

TEST(RenderSystemTable, EveryOperationHoldsItsSlot)
{
    const Slot slots[] = {
        SLOT(2, Init),
        SLOT(3, Reset),
        SLOT(4, Destroy),
        SLOT(5, IsDeviceAvailable),
        SLOT(6, ApplyTextureAnisotropy),
        SLOT(7, OnFrameUpdate),
        SLOT(8, _beginFrame),
        SLOT(9, _endFrame),
        SLOT(10, SyncFence),
        SLOT(11, _setViewport),
        SLOT(12, _setViewportRect),
        SLOT(13, _getViewport),
        SLOT(14, _setRenderTarget),
        SLOT(15, _getRenderTarget),
        SLOT(16, _createDepthBufferFor),
        SLOT(17, ClearFrameBuffer),
        SLOT(18, _disableTextureUnits),
        SLOT(19, SetVertexBuffers),
        SLOT(20, SetVertexBuffer),
        SLOT(21, SetIndexBuffer),
        SLOT(22, DrawPrimitive),
        SLOT(23, DrawPrimitiveUP),
        SLOT(24, DrawIndexedPrimitiveUP),
        SLOT(25, DrawReserved3),
        SLOT(26, DrawReserved5),
        SLOT(27, DrawReserved2),
        SLOT(28, SetTexture),
        SLOT(29, SetScissorRect),
        SLOT(30, SetScissorTestEnabled),
        SLOT(31, GetScissorTestEnabled),
        SLOT(32, GetScissorRect),
        SLOT(33, SetMultiSampleAntiAlias),
        SLOT(34, SetFillMode),
        SLOT(35, GetFillMode),
        SLOT(36, SetStencilEnabled),
        SLOT(37, GetStencilEnabled),
        SLOT(38, SetStencilState),
        SLOT(39, SetDepthBias),
        SLOT(40, GetDepthBias),
        SLOT(41, SetAnisotropy),
        SLOT(42, GetAnisotropy),
        SLOT(43, SetSRGBWriteEnabled),
        SLOT(44, SetDepthCheckEnabled),
        SLOT(45, GetDepthCheckEnabled),
        SLOT(46, SetDepthWriteEnabled),
        SLOT(47, GetDepthWriteEnabled),
        SLOT(48, _isDepthBufferCleared),
        SLOT(49, SetDepthFunction),
        SLOT(50, SetCullingMode),
        SLOT(51, GetCullingMode),
        SLOT(52, SetColourWriteEnabled),
        SLOT(53, SetSceneBlending),
        SLOT(54, SetSeparateSceneBlending),
        SLOT(55, SetBlendFactor),
        SLOT(56, StateReserved3),
        SLOT(57, SetPointSpritesEnabled),
        SLOT(58, GetPointSpritesEnabled),
        SLOT(59, SetClipPlane),
        SLOT(60, EnableClipPlane),
        SLOT(61, SetInvertVertexWinding),
        SLOT(62, CreateVertexDeclaration),
        SLOT(63, CreateHardwareVertexBuffer),
        SLOT(64, CreateHardwareIndexBuffer),
        SLOT(65, CreateReservedBuffer),
        SLOT(66, CreateVertexData),
        SLOT(67, CreateIndexData),
        SLOT(68, CreateGpuProgram),
        SLOT(69, CreateTextureManual),
        SLOT(70, CreateTextureFromMemory),
        SLOT(71, CreateTexture),
        SLOT(72, CreateReservedTexture),
        SLOT(73, ReservedCall12),
        SLOT(74, ReservedCall2),
        SLOT(75, CreateRenderWindow),
        SLOT(76, CreateMultiRenderTarget),
        SLOT(77, CreateHardwareOcclusionQuery),
        SLOT(78, ScreenShotToMemory),
        SLOT(79, ScreenShot),
        SLOT(80, BeginGetRenderTargetData),
        SLOT(81, EndGetRenderTargetData),
        SLOT(82, GetDriverList),
        SLOT(83, BeginEvent),
        SLOT(84, EndEvent),
        SLOT(85, SetMarker),
        SLOT(86, CheckTextureFormat),
        SLOT(87, ReservedQuery1),
        SLOT(88, ReservedCall3),
        SLOT(89, ReservedCall1A),
        SLOT(90, ReservedQuery0),
        SLOT(91, ReservedCall1B),
        SLOT(92, CreateTimerQuery),
        SLOT(93, DestroyTimerQuery),
        SLOT(94, BeginTimerQueryFrame),
        SLOT(95, EndTimerQueryFrame),
        SLOT(96, GetD3D9Device),
        SLOT(97, ReservedHookA),
        SLOT(98, ReservedHookB),
        SLOT(99, _setTextureUnitFilter),
        SLOT(100, _setTextureUnitFiltering),
        SLOT(101, _setTextureLayerAnisotropy),
        SLOT(102, _setTextureAddressingModeUV),
        SLOT(103, _setTextureAddressingModeW),
        SLOT(104, _setTextureBorderColour),
        SLOT(105, _setTextureMipmapBias),
    };
    ASSERT_EQ(104u, sizeof(slots) / sizeof(slots[0]));
    for (const Slot& s : slots)
        EXPECT_EQ(s.slot, s.entry) << s.name;
}

} // namespace
