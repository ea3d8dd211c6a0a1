#pragma once
// Orders the GPU timestamps of TimerQueryD3D9 and turns their ticks into
// nanoseconds. Direct3D 9 tells a stamp's tick frequency only through a query
// of its own, so each frame issues one, and each frame begins with a stamp of
// a ring of three, from which the frame's first measurement counts.
//
// A query lies in one of three lists: inactive (nothing issued), measuring
// (issued in the running frame) and pending results (of ended frames, oldest
// first). Results are read strictly in the order of issue, because each one
// needs the stamp before it; one that is not ready holds up those behind it.
// Nothing is allocated per frame once the ring has filled.
#include "D3D9Prerequisites.h"

#include "engine/ListElement.h"

#include <cstdint>

class TimerQueryD3D9;

class GfxTimerQueryManager
{
public:
    static constexpr int kFrameQueries = 3;

    GfxTimerQueryManager();
    // The engine's queries outlive the manager: they are left inactive, with
    // their native queries released, in no list.
    ~GfxTimerQueryManager();
    GfxTimerQueryManager(const GfxTimerQueryManager&) = delete;
    GfxTimerQueryManager& operator=(const GfxTimerQueryManager&) = delete;

    // A new inactive query; the caller owns it.
    TimerQueryD3D9* CreateQuery();
    // Reads the results that are ready, without waiting, then starts the
    // frame: its frequency query and its ring stamp.
    void BeginFrame();
    // Waits for the frame's frequency, hands it to the frame's queries and
    // queues them for reading.
    void EndFrame();
    // Reads the oldest pending result; false when there is none or, with wait
    // false, when the GPU is not done with it.
    bool ProcessFirst(bool wait);
    // Before a device reset: the frequency query goes, and the stamps in
    // flight with it. Their results become 0, and the chain of stamps
    // starts again.
    void DropDeviceQueries();

    // The lists are circular; a head's three words point at itself.
    static bool IsEmpty(const ListElement& list) { return list.m_pNext == &list; }
    static void Unlink(ListElement* node);
    // Unlinks the node and links it at the end of the list.
    static void MoveToEnd(ListElement& list, ListElement* node);

    uint64_t m_nLastTimestamp;                      // raw stamp of the last query read; 0: none
    IDirect3DQuery9* m_pFrequencyQuery;             // owned; D3DQUERYTYPE_TIMESTAMPFREQ
    TimerQueryD3D9* m_pFrameQueries[kFrameQueries]; // owned
    int m_nFrameIndex;                              // the ring entry of the next frame
    ListElement m_inactive;
    ListElement m_measuring;
    ListElement m_pendingResults;
};
