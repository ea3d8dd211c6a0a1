#pragma once
// One GPU timer query: a timestamp dropped into the command stream. Its result
// is the time between the stamp before it and its own, which only the
// GfxTimerQueryManager can work out, since it reads the stamps in the order
// they were issued and knows the tick frequency of their frame.
#include "D3D9Prerequisites.h"
#include "D3D9Resource.h"

#include "engine/GfxTimerQuery.h"

#include <cstdint>

class TimerQueryD3D9 : public GfxTimerQuery, public kv::CD3D9Resource
{
public:
    // What GetElapsed answers while the result is awaited.
    static constexpr uint64_t kNotReady = ~uint64_t(0);

    // Makes the native query on the render system's device; a device without
    // timestamps leaves it null, and then every measurement gives 0.
    TimerQueryD3D9();
    // Leaves the manager's list the query is in.
    ~TimerQueryD3D9() override;

    // Issues a new stamp. A measurement still under way is finished first,
    // waiting for the GPU if need be.
    void Measure() override;
    // Nanoseconds since the preceding stamp. With wait false a result the GPU
    // has not delivered answers kNotReady; with wait true the GPU is waited
    // for, unless the frame of the measurement has not ended yet.
    uint64_t GetElapsed(bool wait) override;
    // The raw stamp in nanoseconds; 0 until the frame of the measurement has ended.
    uint64_t GetTimestamp() override;

    void notifyOnDeviceDestroy() override;
    void notifyOnDeviceLost() override;
    void notifyOnDeviceReset() override;

    // Reads the stamp and turns the ticks since *last into m_nElapsedNs; *last
    // becomes this stamp. False only when the GPU is not done and wait is
    // false. A failed read, or a native query that went with the device,
    // gives 0 and restarts the chain (*last becomes 0).
    bool ReadResult(uint64_t* last, bool wait);

    IDirect3DQuery9* m_pQuery; // owned; D3DQUERYTYPE_TIMESTAMP
    uint64_t m_nElapsedNs;     // kNotReady while awaited
    float m_fTimeFactor;       // nanoseconds per tick; 0 until the frame has ended
    bool m_bPending;           // issued, result not read yet
    uint64_t m_nTimestamp;

private:
    void ReleaseQuery();
};
