#include "engine/RenderWindow.h"

#include <mutex>
#include <set>

namespace kv
{
namespace
{

// Every live window, so that a reset by window handle finds its window.
struct WindowRegistry
{
    std::mutex mutex;
    std::set<CRenderWindow*> windows;
};

WindowRegistry& Registry()
{
    static WindowRegistry registry;
    return registry;
}

} // namespace

CRenderWindow::CRenderWindow()
    : m_hWnd(nullptr), m_bFullScreen(false), m_bIsMainWindow(false), m_bVSync(false), m_nWindowValue(0)
{
    WindowRegistry& r = Registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    r.windows.insert(this);
}

CRenderWindow::~CRenderWindow()
{
    WindowRegistry& r = Registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    r.windows.erase(this);
}

bool CRenderWindow::Init(HWND hWnd, unsigned width, unsigned height, bool fullScreen, bool vsync, unsigned fsaa)
{
    if (!hWnd)
        return false;
    m_hWnd = hWnd;
    m_nWidth = width;
    m_nHeight = height;
    m_bFullScreen = fullScreen;
    m_bVSync = vsync;
    m_nFSAA = static_cast<unsigned char>(fsaa);
    m_bIsMainWindow = false;
    return true;
}

bool CRenderWindow::Reset(unsigned width, unsigned height, bool fullScreen, bool vsync, unsigned fsaa)
{
    if (width == 0 || height == 0)
        return false;
    m_nWidth = width;
    m_nHeight = height;
    m_bFullScreen = fullScreen;
    m_bVSync = vsync;
    m_nFSAA = static_cast<unsigned char>(fsaa);
    return true;
}

bool CRenderWindow::BuildMainWindow()
{
    return false;
}
bool CRenderWindow::BuildSwapChain()
{
    return false;
}
void CRenderWindow::SetWindowValue(unsigned value)
{
    m_nWindowValue = value;
}
unsigned CRenderWindow::GetWindowValue()
{
    return m_nWindowValue;
}
void CRenderWindow::SetFormat(PixelFormat format)
{
    m_eFormat = format;
}

CRenderWindow* CRenderWindow::FindByHandle(HWND hWnd)
{
    if (!hWnd)
        return nullptr;
    WindowRegistry& r = Registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    for (CRenderWindow* w : r.windows)
        if (w->m_hWnd == hWnd)
            return w;
    return nullptr;
}

} // namespace kv
