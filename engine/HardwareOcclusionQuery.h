#pragma once
#include "engine/Export.h"
#include "engine/RefPtr.h"

namespace kv
{

class KV_API CHardwareOcclusionQuery : public CReferenced
{
public:
    CHardwareOcclusionQuery() : m_nPixelCount(0), m_bResultPending(false) {}
    ~CHardwareOcclusionQuery() override;

    virtual void BeginQuery() = 0;
    virtual void EndQuery() = 0;
    virtual bool FetchPixelCount(unsigned* count) = 0;
    virtual bool IsResultPending() = 0;

    unsigned m_nPixelCount;
    bool m_bResultPending;
};

} // namespace kv
