#pragma once
// Writes compiled effects word by word for the tests: strings, type definitions and values go into the area behind the
// head, at offsets counted from byte 8 of the file; the body follows once Body() is called. BuildFullEffect writes the
// one effect most tests and the fuzzer's seed start from, ExerciseEffect runs every query over what was read, and
// EffectLogCapture records the reader's messages while it is alive.

#include "D3D9RenderSystem/D3D9ParseEffect.h"
#include "D3D9RenderSystem/EffectLog.h"
#include "D3D9RenderSystem/EffectTypes.h"

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

// The little-endian word (or float) at byte offset at.
template <class T = uint32_t>
T At(const void* p, size_t at = 0)
{
    T value;
    std::memcpy(&value, static_cast<const uint8_t*>(p) + at, sizeof(T));
    return value;
}

inline uint32_t FloatBits(float f)
{
    return At(&f);
}

inline Words Floats(const std::vector<float>& values)
{
    Words words;
    for (float f : values)
        words.push_back(FloatBits(f));
    return words;
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
    // Each answers the offset of what it wrote.
    uint32_t Put(const Words& words)
    {
        const uint32_t at = static_cast<uint32_t>(m_data.size() - 8);
        for (uint32_t w : words)
            for (int i = 0; i < 4; ++i)
                m_data.push_back(static_cast<uint8_t>(w >> (8 * i)));
        return at;
    }
    uint32_t Word(uint32_t w) { return Put({w}); }

    // Size (a string's length with the terminator), bytes, padding to a word: a data block, or a string; a null string
    // has length 0.
    uint32_t Block(const void* bytes, uint32_t size)
    {
        const uint32_t at = Word(size);
        m_data.insert(m_data.end(), static_cast<const uint8_t*>(bytes), static_cast<const uint8_t*>(bytes) + size);
        m_data.resize((m_data.size() + 3) & ~size_t(3));
        return at;
    }
    uint32_t String(const char* text) { return text ? Block(text, uint32_t(std::strlen(text) + 1)) : Word(0); }

    // The head: the magic, then where the body starts, which is here.
    void Body()
    {
        const uint32_t head[2] = {EFFECT_FILE_MAGIC, static_cast<uint32_t>(m_data.size() - 8)};
        std::memcpy(m_data.data(), head, 8); // little-endian, as the platform
    }

    Bytes Finish() const { return m_data; }

private:
    Bytes m_data = Bytes(8, 0); // the head, written by Body()
};

struct CapturedLine
{
    EffectLogLevel level;
    std::string file, text;
};

class EffectLogCapture
{
public:
    EffectLogCapture() : m_previous(SetEffectLogSink(&Record)) { s_lines.clear(); }
    ~EffectLogCapture() { SetEffectLogSink(m_previous); }

    const std::vector<CapturedLine>& lines() const { return s_lines; }
    void Clear() { s_lines.clear(); }
    Lines Texts() const
    {
        Lines texts;
        for (const CapturedLine& l : s_lines)
            texts.push_back(l.text);
        return texts;
    }

private:
    static void Record(EffectLogLevel level, const char* file, int, const char* message)
    {
        s_lines.push_back(CapturedLine{level, file ? file : "", message});
    }

    static inline std::vector<CapturedLine> s_lines;
    EffectLogSink m_previous;
};

// ---------------------------------------------------------------- the full effect
// A bit of everything the format has: every class, numeric and object types, arrays, structs in structs, samplers with
// states, a sampler array, strings, shaders as object data, annotations on parameters, techniques and passes, and
// resource records of each usage.

// Offsets from byte 8 of the parts of the full effect that tests change.
struct FullEffectLayout
{
    uint32_t body, worldName;
    Words counts, pairs, samp, anonymous, state; // of the type definition and the value; pass P0's first state
    uint32_t objects[2], resources[3];           // the first object and resource records
};

// Parameter indices of the full effect.
const uint32_t P_WORLD = 0, P_LIGHTDIR = 1, P_VIEWT = 2, P_COUNTS = 3, P_PAIRS = 4, P_NEST = 5, P_MAT = 6, P_SAMP = 7,
               P_SAMPS = 8, P_MESSAGE = 9, P_VS = 10, P_TEXTURES = 11, P_ANONYMOUS = 12, P_GAIN = 13, P_COUNT = 14;
const uint32_t kFullEffectHandles = 43;
const uint8_t kStateShader[8] = {0xFE, 0xFF, 0x00, 0x03, 0xFF, 0xFF, 0x00, 0x00};

inline Bytes BuildFullEffect(FullEffectLayout* layout = nullptr)
{
    FullEffectLayout l{};
    EffectBuilder b;
    const uint32_t none = b.String(nullptr);
    auto name = [&](const char* text) { return text ? b.String(text) : none; };
    auto scalar = [&](uint32_t type, const char* text) {
        return NumericType(type, D3DXPC_SCALAR, name(text), none, 0, 1, 1);
    };
    // The body's records in order. A parameter, annotation or state names its type and value by offset: typed() writes
    // both and adds their offsets, then the words after.
    Words body{P_COUNT, 2, 0, 12}; // parameters, techniques, a reserved word, objects
    auto add = [&](const Words& words) { body.insert(body.end(), words.begin(), words.end()); };
    auto typed = [&](const Words& type, const Words& value, const Words& after) {
        const uint32_t at = b.Put(type);
        const Words offsets{at, b.Put(value)};
        add(offsets);
        add(after);
        return offsets;
    };

    // Parameters: flags, annotation count, then the annotations.
    l.worldName = name("World");
    typed(NumericType(D3DXPT_FLOAT, D3DXPC_MATRIX_ROWS, l.worldName, name("WORLD"), 0, 4, 4),
          Floats({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}), {3, 1});
    typed(ObjectType(D3DXPT_STRING, name("UIName"), none, 0), {0}, {});
    typed(NumericType(D3DXPT_FLOAT, D3DXPC_VECTOR, name("LightDir"), name("Direction"), 0, 1, 3),
          Floats({0.5f, -1, 0.25f}), {0, 0});
    typed(NumericType(D3DXPT_FLOAT, D3DXPC_MATRIX_COLUMNS, name("ViewT"), none, 0, 4, 4),
          Floats({16, 15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1}), {0, 0});
    l.counts = typed(NumericType(D3DXPT_INT, D3DXPC_SCALAR, name("Counts"), none, 3, 1, 1), {7, 8, 9}, {0, 0});
    l.pairs = typed(StructType(name("Pairs"), none, 3, {scalar(D3DXPT_FLOAT, "a"), scalar(D3DXPT_FLOAT, "b")}),
                    Floats({1.5f, 2.5f, 3.5f, 4.5f, 5.5f, 6.5f}), {0, 0});
    const Words y = NumericType(D3DXPT_FLOAT, D3DXPC_VECTOR, name("y"), none, 0, 1, 2);
    const Words inner = StructType(name("inner"), none, 0, {scalar(D3DXPT_FLOAT, "x"), y});
    typed(StructType(name("Nest"), none, 0, {inner, scalar(D3DXPT_BOOL, "flag")}),
          {FloatBits(0.125f), FloatBits(0.25f), FloatBits(0.375f), 1}, {0, 0});
    // A member's name may hold a separator. The texture's object id is the first word of the value.
    const Words colour = NumericType(D3DXPT_FLOAT, D3DXPC_VECTOR, name("Colour.rgba"), none, 0, 1, 4);
    typed(StructType(name("Mat"), none, 0, {colour, ObjectType(D3DXPT_TEXTURE, name("Map"), none, 0)}),
          {1, FloatBits(0.5f), FloatBits(0.75f), FloatBits(1.0f), 0xDEAD}, {0, 0});
    // A sampler's value: the state count, then operation, index, type and value of each state.
    const uint32_t stateTexture = b.Put(ObjectType(D3DXPT_TEXTURE, none, none, 0));
    l.samp = typed(ObjectType(D3DXPT_SAMPLER2D, name("Samp"), none, 0),
                   {2, 0xA, 0, stateTexture, b.Word(3), 0xB, 1, b.Put(scalar(D3DXPT_INT, nullptr)), b.Word(2)}, {0, 0});
    typed(ObjectType(D3DXPT_SAMPLER, name("Samps"), none, 2), {1, 0xC, 0, stateTexture, b.Word(11), 0}, {0, 0});
    typed(ObjectType(D3DXPT_STRING, name("Message"), none, 0), {2}, {0, 0});
    typed(ObjectType(D3DXPT_VERTEXSHADER, name("vs"), none, 0), {4}, {0, 0});
    typed(ObjectType(D3DXPT_TEXTURE, name("Textures"), none, 2), {5, 6}, {0, 0});
    l.anonymous = typed(scalar(D3DXPT_FLOAT, nullptr), Floats({1.5f}), {0, 0});
    // The semantic without its terminator: the reader keeps one behind every text.
    typed(NumericType(D3DXPT_FLOAT, D3DXPC_SCALAR, name("Gain"), b.Block("GAIN", 4), 0, 1, 1), Floats({0.5f}),
          {0x10, 2});
    typed(scalar(D3DXPT_FLOAT, "Min"), Floats({0}), {});
    typed(StructType(name("Range"), none, 0, {scalar(D3DXPT_FLOAT, "lo"), scalar(D3DXPT_FLOAT, "hi")}), Floats({-1, 1}),
          {});
    // Techniques and passes: name, annotation count, pass or state count, the annotations, then the passes or the
    // states (operation, index, type, value).
    const Words vsState = ObjectType(D3DXPT_VERTEXSHADER, none, none, 0);
    add({name("Main"), 1, 2});
    typed(scalar(D3DXPT_INT, "Quality"), {3}, {});
    add({name("P0"), 1, 3});
    typed(scalar(D3DXPT_FLOAT, "Alpha"), Floats({0.25f}), {});
    add({0x92, 0});
    l.state = typed(vsState, {7}, {});
    add({0x10, 0, b.Put(ObjectType(D3DXPT_STRING, none, none, 0)), b.Word(8)});
    add({0x93, 0, b.Put(vsState), b.Word(9)});
    add({name("P1"), 0, 1, 0x20, 0, b.Put(ObjectType(D3DXPT_TEXTURE, none, none, 0)), b.Word(10)});
    add({name("Fallback"), 0, 1, name("Only"), 0, 0});

    b.Body();
    l.body = b.Put(body);
    // Object data, then resources.
    b.Put({3, 6});
    l.objects[0] = b.Word(0);
    b.String("World matrix");
    l.objects[1] = b.Word(2);
    b.String("hello");
    b.Word(4);
    b.Block("\1\2\3\4\5", 5);
    l.resources[0] = b.Put({0xFFFFFFFF, P_SAMP, 5, 0, 1});
    b.String("Mat.Map");
    l.resources[1] = b.Put({0, 0, 0xFFFFFFFF, 0, 0});
    b.Block(kStateShader, sizeof(kStateShader));
    l.resources[2] = b.Put({0, 0, 0xFFFFFFFF, 1, 0});
    b.String("abc");
    b.Put({0, 0, 0xFFFFFFFF, 2, 2});
    const uint8_t preshader[13] = {0x34, 0x12, 0, 0, 'L', 'i', 'g', 'h', 't', 'D', 'i', 'r', 0};
    b.Block(preshader, sizeof(preshader));
    b.Put({0, 1, 0xFFFFFFFF, 0, 1});
    b.String("Textures[1]");
    b.Put({0xFFFFFFFF, P_SAMPS, 0, 0, 1});
    b.String("Message"); // a whole number of words: the file ends with its last byte
    if (layout)
        *layout = l;
    return b.Finish();
}

// ---------------------------------------------------------------- every query
// Runs every query of a parsed effect over everything it holds, by index, by name, by semantic and by path, one past
// each count as well. Used by the robustness test and the fuzzer: whatever the file held, nothing here may crash.
// Answers how many parameters it reached, so the work cannot be dropped; visits bounds them, so that wide arrays of
// structs of arrays cannot make one run take long.
inline size_t ExerciseParameter(const CD3D9ParseEffect& fx, EffectHandle handle, const std::string& path,
                                size_t& visits)
{
    D3DXPARAMETER_DESC d, child;
    if (!handle || visits == 0 || fx.GetParameterDesc(handle, &d) != EFFECT_OK)
        return 0;
    --visits;
    size_t found = 1;
    const char* text = nullptr;
    fx.GetString(handle, &text);
    fx.GetParameterByName(nullptr, path.c_str());
    fx.GetParameterBySemantic(nullptr, d.Semantic);
    fx.GetParameterBySemantic(handle, "POSITION");
    for (uint32_t i = 0; i <= d.Annotations && i < 64; ++i)
        if (fx.GetParameterDesc(fx.GetAnnotation(handle, i), &child) == EFFECT_OK && child.Name)
            found += ExerciseParameter(fx, fx.GetAnnotationByName(handle, child.Name), path + "@" + child.Name, visits);
    for (uint32_t i = 0; i <= d.Elements && i < 64; ++i)
        found += ExerciseParameter(fx, fx.GetParameterElement(handle, i), path + "[" + std::to_string(i) + "]", visits);
    for (uint32_t i = 0; i <= d.StructMembers && i < 64; ++i)
    {
        const EffectHandle member = fx.GetParameter(handle, i);
        if (fx.GetParameterDesc(member, &child) == EFFECT_OK && child.Name)
            found += ExerciseParameter(
                fx, member, path + "." + (fx.GetParameterByName(handle, child.Name) ? child.Name : ""), visits);
    }
    return found;
}

inline size_t ExerciseEffect(const CD3D9ParseEffect& fx)
{
    size_t found = 0, visits = 2000;
    D3DXEFFECT_DESC effect;
    if (fx.GetDesc(&effect) != EFFECT_OK)
        return found;
    for (uint32_t i = 0; i <= effect.Parameters && i < 4096; ++i)
    {
        D3DXPARAMETER_DESC d;
        const EffectHandle p = fx.GetParameter(nullptr, i);
        fx.GetParameterElement(nullptr, i);
        if (fx.GetParameterDesc(p, &d) == EFFECT_OK)
            found += ExerciseParameter(fx, p, d.Name ? d.Name : "", visits);
    }
    for (uint32_t t = 0; t <= effect.Techniques && t < 4096; ++t)
    {
        const EffectHandle technique = fx.GetTechnique(t);
        D3DXTECHNIQUE_DESC td;
        if (fx.GetTechniqueDesc(technique, &td) != EFFECT_OK)
            continue;
        fx.GetTechniqueByName(td.Name);
        for (uint32_t p = 0; p <= td.Passes && p < 4096; ++p)
        {
            const EffectHandle pass = fx.GetPass(technique, p);
            D3DXPASS_DESC pd;
            if (fx.GetPassDesc(pass, &pd) == EFFECT_OK)
                fx.GetPassByName(technique, pd.Name);
            fx.GetAnnotationByName(pass, "x.y");
        }
    }
    // Paths of every form, on whatever names the effect has.
    for (const char* path : {"", "a", "a.b", "a[0]", "a[1].b", "a@b", "a@b.c", "a@b[0]", "a[", "a[]", "[0]", ".", "@",
                             "a[0]@b", "a[0]x", "a@b@c", "a[-1]", "a[99999999999]"})
        fx.GetParameterByName(nullptr, path);
    return found;
}

} // namespace fxtest
