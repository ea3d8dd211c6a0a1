#pragma once
// A viewport: a weak reference to its target and the actual rectangle in pixels.
#include "engine/Export.h"
#include "engine/RefPtr.h"

namespace kv
{

class CCamera;
class CRenderTarget;

class KV_API CViewport
{
public:
    CViewport();
    // The actual rectangle follows from the target's size and the relative one.
    CViewport(CRenderTarget* target, float relLeft, float relTop, float relWidth, float relHeight,
              CCamera* camera = nullptr);
    // A viewport given in pixels.
    CViewport(CRenderTarget* target, int left, int top, int width, int height);
    CViewport(const CViewport& other);
    CViewport& operator=(const CViewport& other);
    ~CViewport();

    // The target while it lives, else null.
    CRenderTarget* getTarget() const { return m_target.get(); }
    CCamera* getCamera() const { return m_pCamera; }
    int getActualLeft() const { return m_nActLeft; }
    int getActualTop() const { return m_nActTop; }
    int getActualWidth() const { return m_nActWidth; }
    int getActualHeight() const { return m_nActHeight; }

    WeakRef<CRenderTarget> m_target;
    int m_nActLeft, m_nActTop, m_nActWidth, m_nActHeight;
    float m_fRelLeft, m_fRelTop, m_fRelWidth, m_fRelHeight;
    CCamera* m_pCamera;
};

} // namespace kv
