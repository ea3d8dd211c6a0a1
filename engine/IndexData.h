#pragma once
// What an indexed draw reads of its indices: first index and count.
#include "engine/Export.h"
#include "engine/HardwareIndexBuffer.h"

namespace kv
{

class KV_API CIndexData : public CReferenced
{
public:
    CIndexData() : m_nIndexStart(0), m_nIndexCount(0) {}
    ~CIndexData() override;

    unsigned m_nIndexStart;
    unsigned m_nIndexCount;
    ref_ptr<CHardwareIndexBuffer> m_pBuffer;
};

} // namespace kv
