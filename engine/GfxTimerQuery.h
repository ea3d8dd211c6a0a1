#pragma once
// A GPU timer query as the engine sees it. The render system makes them; the
// engine measures with them and deletes them through DestroyTimerQuery.
#include "engine/ListElement.h"

#include <cstdint>

class GfxTimerQuery : public ListElement
{
public:
    virtual ~GfxTimerQuery() {}
    virtual void Measure() = 0;
    // All bits set while the result is not ready; 0 when nothing could be measured.
    virtual uint64_t GetElapsed(bool wait) = 0;
    virtual uint64_t GetTimestamp() = 0;
};
