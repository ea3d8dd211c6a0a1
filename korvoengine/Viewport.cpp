#include "engine/Viewport.h"
#include "engine/RenderTarget.h"

namespace kv
{

CViewport::CViewport()
    : m_nActLeft(0), m_nActTop(0), m_nActWidth(0), m_nActHeight(0), m_fRelLeft(0.0f), m_fRelTop(0.0f),
      m_fRelWidth(1.0f), m_fRelHeight(1.0f), m_pCamera(nullptr)
{
}

CViewport::CViewport(CRenderTarget* target, float relLeft, float relTop, float relWidth, float relHeight,
                     CCamera* camera)
    : m_fRelLeft(relLeft), m_fRelTop(relTop), m_fRelWidth(relWidth), m_fRelHeight(relHeight), m_pCamera(camera)
{
    m_target.assign(target);
    float w = target ? static_cast<float>(target->getWidth()) : 0.0f;
    float h = target ? static_cast<float>(target->getHeight()) : 0.0f;
    m_nActLeft = static_cast<int>(relLeft * w);
    m_nActTop = static_cast<int>(relTop * h);
    m_nActWidth = static_cast<int>(relWidth * w);
    m_nActHeight = static_cast<int>(relHeight * h);
}

CViewport::CViewport(CRenderTarget* target, int left, int top, int width, int height)
    : m_nActLeft(left), m_nActTop(top), m_nActWidth(width), m_nActHeight(height), m_fRelLeft(0.0f), m_fRelTop(0.0f),
      m_fRelWidth(1.0f), m_fRelHeight(1.0f), m_pCamera(nullptr)
{
    m_target.assign(target);
}

CViewport::CViewport(const CViewport& other)
    : m_target(other.m_target), m_nActLeft(other.m_nActLeft), m_nActTop(other.m_nActTop),
      m_nActWidth(other.m_nActWidth), m_nActHeight(other.m_nActHeight), m_fRelLeft(other.m_fRelLeft),
      m_fRelTop(other.m_fRelTop), m_fRelWidth(other.m_fRelWidth), m_fRelHeight(other.m_fRelHeight),
      m_pCamera(other.m_pCamera)
{
}

CViewport& CViewport::operator=(const CViewport& other)
{
    if (this != &other)
    {
        m_target = other.m_target;
        m_nActLeft = other.m_nActLeft;
        m_nActTop = other.m_nActTop;
        m_nActWidth = other.m_nActWidth;
        m_nActHeight = other.m_nActHeight;
        m_fRelLeft = other.m_fRelLeft;
        m_fRelTop = other.m_fRelTop;
        m_fRelWidth = other.m_fRelWidth;
        m_fRelHeight = other.m_fRelHeight;
        m_pCamera = other.m_pCamera;
    }
    return *this;
}

CViewport::~CViewport() {}

} // namespace kv
