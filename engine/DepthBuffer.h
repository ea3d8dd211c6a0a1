#pragma once
#include "engine/Export.h"
#include "engine/RefPtr.h"

#include <set>

namespace kv
{

class CRenderTarget;

class KV_API CDepthBuffer : public CReferenced
{
public:
    CDepthBuffer(unsigned short poolId, unsigned short bitDepth, unsigned width, unsigned height, bool manual);
    ~CDepthBuffer() override;

    virtual unsigned short getPoolId() const;
    virtual unsigned short getBitDepth() const;
    virtual unsigned getWidth() const;
    virtual unsigned getHeight() const;
    virtual bool hasStencil() const;
    virtual bool isCompatible(CRenderTarget* target) const = 0;
    virtual void _notifyRenderTargetAttached(CRenderTarget* target);
    virtual void _notifyRenderTargetDetached(CRenderTarget* target);

    bool isManual() const { return m_bManual; }
    const std::set<CRenderTarget*>& getAttachedTargets() const { return m_attachedTargets; }

    unsigned short m_nPoolId;
    unsigned short m_nBitDepth;
    unsigned m_nWidth;
    unsigned m_nHeight;
    bool m_bHasStencil;
    bool m_bManual;

protected:
    std::set<CRenderTarget*> m_attachedTargets;
};

} // namespace kv
