#pragma once
// A named block of bytes in memory, always followed by a NUL byte so text in it
// can be read as a C string.
#include "engine/Export.h"
#include "engine/RefPtr.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace kv
{

class KV_API CMemoryDataStream : public CReferenced
{
public:
    CMemoryDataStream(const std::string& name, std::size_t size);
    ~CMemoryDataStream() override;
    CMemoryDataStream(const CMemoryDataStream&) = delete;
    CMemoryDataStream& operator=(const CMemoryDataStream&) = delete;

    uint8_t* getPtr() const { return m_pData; }
    std::size_t size() const { return m_nSize; }
    const std::string& getName() const { return m_strName; }

private:
    std::string m_strName;
    uint8_t* m_pData;
    std::size_t m_nSize;
};

// A zero-filled stream of size bytes; the flag has no meaning here.
KV_API ref_ptr<CMemoryDataStream> CreateMemoryDataStream(unsigned size, bool flag);

} // namespace kv
