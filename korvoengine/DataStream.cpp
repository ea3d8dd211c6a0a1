#include "engine/DataStream.h"

#include <cstring>
#include <new>

namespace kv
{

CMemoryDataStream::CMemoryDataStream(const std::string& name, std::size_t size)
    : m_strName(name), m_pData(new (std::nothrow) uint8_t[size + 1]), m_nSize(size)
{
    if (m_pData)
        std::memset(m_pData, 0, size + 1);
    else
        m_nSize = 0;
}

CMemoryDataStream::~CMemoryDataStream()
{
    delete[] m_pData;
}

ref_ptr<CMemoryDataStream> CreateMemoryDataStream(unsigned size, bool)
{
    return ref_ptr<CMemoryDataStream>(new CMemoryDataStream(std::string(), size));
}

} // namespace kv
