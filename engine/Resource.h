#pragma once
// A loadable resource: a name, a load state and an optional memory stream.
#include "engine/DataStream.h"
#include "engine/Export.h"
#include "engine/RefPtr.h"

#include <string>

namespace kv
{

class CResource;

enum ResourceLoadState : int
{
    RLS_UNLOADED = 0,
    RLS_QUEUED = 1,
    RLS_LOADING = 2,
    RLS_LOADED_DATA = 3,
    RLS_READY = 4, // finished, for success and failure alike
    RLS_FAILED = 5,
};

class IResourceLoadListener
{
public:
    virtual ~IResourceLoadListener() {}
    virtual void OnLoadStateChanged(CResource* resource, int state) = 0;
};

class KV_API CResource : public CReferenced
{
public:
    CResource();
    ~CResource() override;

    virtual void SetFile(const char* name);
    virtual int GetClassType();
    virtual bool IsReady();
    virtual bool ResourceTraitA();
    virtual void PreInitRes();
    virtual bool InitRes();
    virtual bool ResourceTraitB();
    virtual bool Load(const char* name, bool flag);
    virtual bool Load();
    virtual bool Reload();
    virtual unsigned GetRuntimeMemorySize();
    virtual void SetMemoryStream(CMemoryDataStream* stream);

    const std::string& GetName() const { return m_strName; }
    // Sets the pending state; when it differs from the current one it becomes
    // current, and a finished state (4 or more) is told to the listener.
    void SetLoadState(int state);

    std::string m_strName;
    CMemoryDataStream* m_pMemoryStream; // counted by hand
    int m_nLoadState;
    int m_nPendingLoadState;
    IResourceLoadListener* m_pLoadListener;
};

} // namespace kv
