// A render system started by Init on a real window of Wine's Direct3D 9, loaded
// through the recording d3d9.dll, with helpers that build the engine's vertex
// and index data the way the engine does: through the render system's factories.
#pragma once

#include "D3D9HardwareIndexBuffer.h"
#include "D3D9HardwareVertexBuffer.h"
#include "D3D9RenderSystem.h"
#include "D3D9VertexDeclaration.h"

#include "engine/Globals.h"
#include "engine/IndexData.h"
#include "engine/Log.h"
#include "engine/Timer.h"
#include "engine/VertexData.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "ProxyExpect.h"

// A vertex of the coloured layout: position in clip space and a colour.
struct ColourVertex
{
    float x, y, z;
    uint32_t colour;
};

class DrawTest : public ::testing::Test
{
protected:
    static constexpr unsigned kWidth = 64;
    static constexpr unsigned kHeight = 64;

    void SetUp() override;
    void TearDown() override;

    // Position (float3) and colour at offset 12, on stream 0.
    ref_ptr<kv::CVertexDeclaration> ColourDeclaration();
    ref_ptr<kv::CHardwareVertexBuffer> VertexBuffer(const std::vector<ColourVertex>& vertices,
                                                        unsigned usage = kv::CHardwareBuffer::USAGE_STATIC);
    ref_ptr<kv::CHardwareIndexBuffer> IndexBuffer16(const std::vector<uint16_t>& indices,
                                                        unsigned usage = kv::CHardwareBuffer::USAGE_STATIC);
    ref_ptr<kv::CVertexData> VertexData(kv::CVertexDeclaration* declaration, kv::CHardwareVertexBuffer* buffer,
                                            unsigned start, unsigned count);
    ref_ptr<kv::CIndexData> IndexData(kv::CHardwareIndexBuffer* buffer, unsigned start, unsigned count);

    static kv::CD3D9HardwareVertexBuffer* D3D(kv::CHardwareVertexBuffer* b)
    {
        return static_cast<kv::CD3D9HardwareVertexBuffer*>(b);
    }
    static kv::CD3D9HardwareIndexBuffer* D3D(kv::CHardwareIndexBuffer* b)
    {
        return static_cast<kv::CD3D9HardwareIndexBuffer*>(b);
    }
    static IDirect3DVertexDeclaration9* Native(kv::CVertexDeclaration* d)
    {
        return static_cast<kv::CD3D9VertexDeclaration*>(d)->m_pD3D9VertexDeclaration;
    }

    static std::vector<std::string> Errors() { return kv::GetLogTexts(kv::LOG_ERROR); }
    static bool Logged(const std::string& text);
    // "D3D9Verify:<hr>, <name>, <description>, <what>".
    static std::string VerifyLine(HRESULT hr, const char* what);

    kv::CTimer& Timer() { return *kv::GetTimer(); }

    HWND hWnd = nullptr;
    kv::CRenderSystem* rs = nullptr;
    kv::CD3D9RenderSystem* d3d = nullptr;
    IDirect3DDevice9* device = nullptr;
};
