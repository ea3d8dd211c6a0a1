#pragma once
// Records the effect reader's messages for the tests while it is alive.

#include "D3D9RenderSystem/EffectLog.h"

#include <string>
#include <vector>

namespace fxtest
{

struct CapturedLine
{
    EffectLogLevel level;
    std::string file;
    int line;
    std::string text;
};

class EffectLogCapture
{
public:
    EffectLogCapture()
    {
        Lines().clear();
        m_previous = SetEffectLogSink(&Record);
    }
    ~EffectLogCapture() { SetEffectLogSink(m_previous); }
    EffectLogCapture(const EffectLogCapture&) = delete;
    EffectLogCapture& operator=(const EffectLogCapture&) = delete;

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
        for (const CapturedLine& l : Lines())
            if (l.text == text)
                return true;
        return false;
    }

private:
    static std::vector<CapturedLine>& Lines()
    {
        static std::vector<CapturedLine> lines;
        return lines;
    }
    static void Record(EffectLogLevel level, const char* file, int line, const char* message)
    {
        Lines().push_back(CapturedLine{level, file ? file : "", line, message});
    }

    EffectLogSink m_previous;
};

} // namespace fxtest
