#pragma once
// Something the render system draws into: a window, a render texture or a set of
// render textures. Its death ends every weak reference to it, so a viewport or
// the render system's bound target never points at a dead target.
#include "engine/Export.h"
#include "engine/PixelFormat.h"
#include "engine/RefPtr.h"
#include "engine/Viewport.h"

#include <windows.h>

#include <list>

namespace kv
{

class CCamera;
class CDepthBuffer;
class CTexture;

class KV_API CRenderTarget : public CReferenced
{
public:
    enum FrameBuffer : int
    {
        FB_FRONT = 0,
        FB_BACK = 1,
        FB_AUTO = 2,
    };

    // Kinds: 0 window, 1 render texture, 2 multiple render targets.
    enum TargetKind : int
    {
        TK_WINDOW = 0,
        TK_RENDER_TEXTURE = 1,
        TK_MULTI = 2,
    };

    CRenderTarget();
    ~CRenderTarget() override;

    virtual bool CopyToTexture(CTexture* texture) = 0;
    virtual bool CopyToTarget(CRenderTarget* target, const RECT* source, const RECT* destination) = 0;
    virtual bool GetAttribute(const char* name, void* out) = 0;
    // Adds a viewport over the target's size; the reference stays valid while the target lives.
    virtual CViewport& addViewport(CCamera* camera, float left, float top, float width, float height);
    virtual unsigned getWidth() const = 0;
    virtual unsigned getHeight() const = 0;
    virtual PixelFormat getFormat() const = 0;
    // True when the attached depth buffer has a stencil.
    virtual bool getStencilEnabled();
    virtual bool SetDepthTexture(CTexture* texture) = 0;
    // False means not attached: no buffer, or one that does not fit.
    virtual bool attachDepthBuffer(CDepthBuffer* buffer);
    virtual void detachDepthBuffer() = 0;
    virtual void dropDepthBuffer() = 0;
    virtual bool _beginUpdate() = 0;
    virtual void Update();
    virtual void _endUpdate() = 0;
    virtual void swapBuffers() = 0;
    virtual void SetAutoUpdate(bool autoUpdate);
    virtual bool IsAutoUpdate() = 0;
    virtual void SetActive(bool active) = 0;
    virtual bool IsActive() = 0;
    virtual void SetHwGamma(bool enable) = 0;
    virtual bool IsHwGamma() = 0;
    virtual unsigned char getFSAA() = 0;

    const std::list<CViewport>& getViewports() const { return m_viewports; }

    bool m_bActive;
    int m_eTargetKind;
    unsigned m_nWidth;
    unsigned m_nHeight;
    PixelFormat m_eFormat;
    unsigned short m_nDepthPoolId; // 0: uses no depth buffer
    ref_ptr<CDepthBuffer> m_pDepthBuffer;
    ref_ptr<CTexture> m_pDepthTexture;
    bool m_bHwGamma;
    unsigned char m_nFSAA;
    bool m_bAutoUpdate;

protected:
    std::list<CViewport> m_viewports;
};

} // namespace kv
