#pragma once
// The engine's occlusion query on a native D3DQUERYTYPE_OCCLUSION query: the
// engine brackets draws with BeginQuery and EndQuery and asks later how many
// pixels passed. The native query is made at the first begin and dropped with
// the device; the next begin makes it again.
#include "D3D9Prerequisites.h"
#include "D3D9Resource.h"

#include "engine/HardwareOcclusionQuery.h"

namespace kv
{

class CD3D9HardwareOcclusionQuery : public CHardwareOcclusionQuery, public CD3D9Resource
{
public:
    CD3D9HardwareOcclusionQuery();
    ~CD3D9HardwareOcclusionQuery() override;

    // A device without occlusion queries is told at every begin; the reads
    // then answer false.
    void BeginQuery() override;
    void EndQuery() override;
    // Waits for the GPU while the result is out. A lost device delivers 0.
    bool FetchPixelCount(unsigned* count) override;
    // Takes a result that has arrived without waiting. A lost device leaves
    // 100000 in m_nPixelCount, so that a caller who culls by it draws.
    bool IsResultPending() override;

    void notifyOnDeviceDestroy() override;
    void notifyOnDeviceLost() override;

    IDirect3DQuery9* m_pQuery; // owned; null until the first begin and after a loss

private:
    void ReleaseQuery();
};

} // namespace kv
