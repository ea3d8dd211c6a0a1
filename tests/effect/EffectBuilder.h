#pragma once
// Writes compiled effects word by word for the tests: strings, type definitions
// and values go into the area behind the head, at offsets counted from byte 8 of
// the file; the body follows once Body() is called. EffectLogCapture records the
// reader's messages while it is alive.

#include "D3D9RenderSystem/D3D9ParseEffect.h"
#include "D3D9RenderSystem/EffectLog.h"
#include "D3D9RenderSystem/EffectTypes.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace fxtest
{

using Words = std::vector<uint32_t>;
using Bytes = std::vector<uint8_t>;
using Lines = std::vector<std::string>;

inline bool Parse(CD3D9ParseEffect& fx, const Bytes& bytes)
{
    return fx.Parse(bytes.data(), static_cast<uint32_t>(bytes.size()));
}

// The parameter behind a handle.
inline const EffectParameter* Param(EffectHandle handle)
{
    return handle ? *static_cast<EffectParameter* const*>(handle) : nullptr;
}

// The little-endian word or float at byte offset at.
inline uint32_t WordAt(const void* p, size_t at = 0)
{
    uint32_t w;
    std::memcpy(&w, static_cast<const uint8_t*>(p) + at, 4);
    return w;
}
inline float FloatAt(const void* p, size_t index = 0)
{
    float f;
    std::memcpy(&f, static_cast<const uint8_t*>(p) + 4 * index, 4);
    return f;
}

inline uint32_t FloatBits(float f)
{
    uint32_t w;
    std::memcpy(&w, &f, 4);
    return w;
}

// Type definitions. Vectors store their columns first, everything else rows first.
inline Words NumericType(uint32_t type, uint32_t cls, uint32_t name, uint32_t semantic, uint32_t elements,
                         uint32_t rows, uint32_t columns)
{
    if (cls == D3DXPC_VECTOR)
        return {type, cls, name, semantic, elements, columns, rows};
    return {type, cls, name, semantic, elements, rows, columns};
}

inline Words ObjectType(uint32_t type, uint32_t name, uint32_t semantic, uint32_t elements)
{
    return {type, D3DXPC_OBJECT, name, semantic, elements};
}

inline Words StructType(uint32_t name, uint32_t semantic, uint32_t elements, const std::vector<Words>& members)
{
    Words w{D3DXPT_VOID, D3DXPC_STRUCT, name, semantic, elements, static_cast<uint32_t>(members.size())};
    for (const Words& m : members)
        w.insert(w.end(), m.begin(), m.end());
    return w;
}

class EffectBuilder
{
public:
    EffectBuilder() : m_data(8, 0) {}

    // Offset of the next word.
    uint32_t Here() const { return static_cast<uint32_t>(m_data.size() - 8); }

    uint32_t Word(uint32_t w)
    {
        const uint32_t at = Here();
        for (int i = 0; i < 4; ++i)
            m_data.push_back(static_cast<uint8_t>(w >> (8 * i)));
        return at;
    }

    uint32_t Put(const Words& words)
    {
        const uint32_t at = Here();
        for (uint32_t w : words)
            Word(w);
        return at;
    }

    uint32_t Floats(const std::vector<float>& values)
    {
        const uint32_t at = Here();
        for (float f : values)
            Word(FloatBits(f));
        return at;
    }

    // Size (a string's length with the terminator), bytes, padding to a word: a data
    // block, or a string; a null string has length 0.
    uint32_t Block(const void* bytes, uint32_t size)
    {
        const uint32_t at = Word(size);
        m_data.insert(m_data.end(), static_cast<const uint8_t*>(bytes), static_cast<const uint8_t*>(bytes) + size);
        m_data.resize((m_data.size() + 3) & ~size_t(3));
        return at;
    }
    uint32_t String(const char* text) { return text ? TextBlock(text) : Word(0); }
    uint32_t TextBlock(const char* text) { return Block(text, static_cast<uint32_t>(std::strlen(text) + 1)); }

    // Where the body starts: the head's second word.
    void Body() { m_body = Here(); }

    Bytes Finish() const
    {
        Bytes file = m_data;
        const uint32_t head[2] = {EFFECT_FILE_MAGIC, m_body};
        std::memcpy(file.data(), head, 8); // little-endian, as the platform
        return file;
    }

private:
    Bytes m_data;
    uint32_t m_body = 0;
};

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

// An effect of a body only; bodyAt moves the head's body offset.
inline Bytes BodyOnly(const Words& words, uint8_t bodyAt = 0)
{
    EffectBuilder b;
    b.Body();
    b.Put(words);
    Bytes bytes = b.Finish();
    bytes[4] = static_cast<uint8_t>(bytes[4] + bodyAt);
    return bytes;
}

// A small effect around one parameter record: no techniques, the given objects
// (count) and no object or resource records.
inline Bytes OneParameter(EffectBuilder& b, uint32_t type, uint32_t value, uint32_t objects = 0)
{
    b.Body();
    b.Put({1, 0, 0, objects});
    b.Put({type, value, 0, 0});
    b.Put({0, 0});
    return b.Finish();
}

} // namespace fxtest
