#pragma once
#include "engine/RenderTarget.h"

namespace kv
{

class KV_API CRenderWindow : public CRenderTarget
{
public:
    CRenderWindow();
    ~CRenderWindow() override;

    // Stores the settings; refuses a null window handle.
    virtual bool Init(HWND hWnd, unsigned width, unsigned height, bool fullScreen, bool vsync, unsigned fsaa);
    // Stores the new settings; refuses a zero width or height.
    virtual bool Reset(unsigned width, unsigned height, bool fullScreen, bool vsync, unsigned fsaa);
    virtual bool BuildMainWindow();
    virtual bool BuildSwapChain();
    virtual void SetWindowValue(unsigned value);
    virtual unsigned GetWindowValue();
    virtual void SetFormat(PixelFormat format);

    // The live window that owns a handle, or null.
    static CRenderWindow* FindByHandle(HWND hWnd);

    HWND m_hWnd;
    bool m_bFullScreen;
    bool m_bIsMainWindow;
    bool m_bVSync;
    unsigned m_nWindowValue;
};

} // namespace kv
