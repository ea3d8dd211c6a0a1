#pragma once
// Records the effect reader's messages for the tests while it is alive.

#include "D3D9RenderSystem/EffectLog.h"

#include <algorithm>
#include <string>
#include <vector>

namespace fxtest
{

struct CapturedLine
{
    EffectLogLevel level;
    std::string file, text;
};

class EffectLogCapture
{
public:
    EffectLogCapture() : m_previous(SetEffectLogSink(&Record)) { Lines().clear(); }
    ~EffectLogCapture() { SetEffectLogSink(m_previous); }

    const std::vector<CapturedLine>& lines() const { return Lines(); }
    void Clear() { Lines().clear(); }
    std::vector<std::string> Texts() const
    {
        std::vector<std::string> texts;
        for (const CapturedLine& l : Lines())
            texts.push_back(l.text);
        return texts;
    }
    bool Has(const std::string& text) const
    {
        const std::vector<std::string> texts = Texts();
        return std::find(texts.begin(), texts.end(), text) != texts.end();
    }

private:
    static std::vector<CapturedLine>& Lines()
    {
        static std::vector<CapturedLine> lines;
        return lines;
    }
    static void Record(EffectLogLevel level, const char* file, int, const char* message)
    {
        Lines().push_back(CapturedLine{level, file ? file : "", message});
    }

    EffectLogSink m_previous;
};

} // namespace fxtest
