#include "engine/Resource.h"

namespace kv
{

CResource::CResource()
    : m_pMemoryStream(nullptr), m_nLoadState(RLS_UNLOADED), m_nPendingLoadState(RLS_UNLOADED), m_pLoadListener(nullptr)
{
}

CResource::~CResource()
{
    CMemoryDataStream* stream = m_pMemoryStream;
    m_pMemoryStream = nullptr;
    if (stream)
        stream->Unref();
}

void CResource::SetFile(const char* name)
{
    m_strName = name ? name : "";
}

int CResource::GetClassType()
{
    return 0;
}
bool CResource::IsReady()
{
    return m_nLoadState == RLS_READY;
}
bool CResource::ResourceTraitA()
{
    return false;
}
void CResource::PreInitRes() {}
bool CResource::InitRes()
{
    return true;
}
bool CResource::ResourceTraitB()
{
    return false;
}

bool CResource::Load(const char* name, bool)
{
    // The name may be our own string: copy it before SetFile replaces it.
    std::string copy = name ? name : "";
    SetFile(copy.c_str());
    PreInitRes();
    bool ok = InitRes();
    SetLoadState(ok ? RLS_READY : RLS_FAILED);
    return ok;
}

bool CResource::Load()
{
    return Load(m_strName.c_str(), false);
}

bool CResource::Reload()
{
    return Load();
}

unsigned CResource::GetRuntimeMemorySize()
{
    return 0;
}

void CResource::SetMemoryStream(CMemoryDataStream* stream)
{
    if (stream == m_pMemoryStream)
        return;
    if (stream)
        stream->Ref();
    CMemoryDataStream* old = m_pMemoryStream;
    m_pMemoryStream = stream;
    if (old)
        old->Unref();
}

void CResource::SetLoadState(int state)
{
    m_nPendingLoadState = state;
    if (m_nPendingLoadState != m_nLoadState)
    {
        m_nLoadState = m_nPendingLoadState;
        if (m_nLoadState >= RLS_READY && m_pLoadListener)
            m_pLoadListener->OnLoadStateChanged(this, m_nLoadState);
    }
}

} // namespace kv
