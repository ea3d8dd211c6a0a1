// What the reader says, and leaves behind, when a file is wrong: the path of
// messages up to the effect, bounds of resource records, unhandled cases, the
// checks that keep untrusted files from crashing, hanging or bloating it, and
// bytes from anywhere: every truncation of the full effect fails cleanly, and
// single-byte and single-word changes never crash it (the native build runs
// these under AddressSanitizer and UndefinedBehaviorSanitizer).

#include "D3D9RenderSystem/D3D9ParseEffect.h"
#include "D3D9RenderSystem/EffectHeap.h"
#include "EffectBuilder.h"
#include "EffectLogCapture.h"
#include "ExerciseEffect.h"
#include "FullEffect.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>

using namespace fxtest;

namespace
{

bool StartsWith(const std::string& text, const std::string& start)
{
    return text.compare(0, start.size(), start) == 0;
}

// Reads bytes with a fresh reader, expecting ok, and answers what it said.
Lines Read(const Bytes& bytes, bool ok = false)
{
    CD3D9ParseEffect fx;
    EffectLogCapture log;
    EXPECT_EQ(ok, Parse(fx, bytes));
    return log.Texts();
}

// One technique, one pass, one state: a texture of this object id.
Bytes OneStateEffect(uint32_t objectId, uint32_t objects)
{
    EffectBuilder b;
    const uint32_t none = b.String(nullptr);
    const uint32_t type = b.Put(ObjectType(D3DXPT_TEXTURE, none, none, 0));
    const uint32_t value = b.Word(objectId);
    const uint32_t tech = b.String("T"), pass = b.String("P");
    b.Body();
    b.Put({0, 1, 0, objects, tech, 0, 1, pass, 0, 1, 0x5, 0, type, value, 0, 0});
    return b.Finish();
}

// Parses from a block of exactly size bytes, so any read past it is caught.
bool ParseExact(const uint8_t* bytes, size_t size, size_t* found)
{
    std::unique_ptr<uint8_t[]> copy(new uint8_t[size ? size : 1]);
    if (size)
        std::memcpy(copy.get(), bytes, size);
    CD3D9ParseEffect fx;
    const bool ok = fx.Parse(copy.get(), static_cast<uint32_t>(size));
    if (ok)
        *found += ExerciseEffect(fx);
    return ok;
}

} // namespace

TEST(EffectFailures, TheHeadAndThePathOfMessagesUpToTheEffect)
{
    EffectLogCapture log;
    CD3D9ParseEffect fx;
    Bytes bytes = BuildFullEffect();
    bytes[0] ^= 1;
    EXPECT_FALSE(Parse(fx, bytes) || fx.Parse(bytes.data(), 3) || fx.Parse(nullptr, 100));
    EXPECT_EQ(Lines(3, "parseEffect_notAnEffectsFile"), log.Texts());
    EXPECT_EQ("D3D9ParseEffect", log.lines()[0].file);
    EXPECT_EQ(0u, fx.GetParsedEffect().parameter_count); // nothing else was read
    log.Clear();

    // An error, then warnings up the path; a failed object keeps its counts only.
    EXPECT_FALSE(Parse(fx, OneStateEffect(5, 2)));
    EXPECT_EQ((Lines{"Object id 5 is not below the object count 2\n", "Failed to parse value\n",
                     "Failed to parse value\n", "Failed to parse state 0\n", "Failed to parse pass 0\n",
                     "Failed to parse technique 0\n", "Failed to parse effect.\n"}),
              log.Texts());
    std::string levels;
    for (const CapturedLine& l : log.lines())
        levels += l.level == EFFECT_LOG_ERROR ? 'E' : 'W';
    EXPECT_EQ("EWWWWWW", levels);
    const ParsedEffect& e = fx.GetParsedEffect();
    EXPECT_EQ((std::vector<uint32_t>{1, 0}), (std::vector<uint32_t>{e.technique_count, e.handle_count}));
    EXPECT_TRUE(e.techniques == nullptr && e.objects == nullptr && fx.GetTechnique(0) == nullptr);
}

TEST(EffectFailures, ResourceRecordsOutOfBoundsOrNamingNothing)
{
    const struct
    {
        Words record;
        const char *block, *message;
    } cases[] = {
        {{0xFFFFFFFF, 14, 0xFFFFFFFF, 0, 1}, "Mat.Map", "Index out of bounds: index 14 >= parameter_count 14\n"},
        {{0xFFFFFFFF, P_SAMPS, 2, 0, 1}, "Mat.Map", "Index out of bounds: element_index 2 >= element_count 2\n"},
        {{0xFFFFFFFF, P_SAMP, 0xFFFFFFFF, 2, 1}, "Mat.Map", "Index out of bounds: state_index 2 >= state_count 2\n"},
        {{2, 0, 0xFFFFFFFF, 0, 1}, "Mat.Map", "Index out of bounds: technique_index 2 >= technique_count 2\n"},
        {{0, 2, 0xFFFFFFFF, 0, 1}, "Mat.Map", "Index out of bounds: index 2 >= pass_count 2\n"},
        {{0, 1, 0xFFFFFFFF, 1, 1}, "Mat.Map", "Index out of bounds: state_index 1 >= state_count 1\n"},
        {{0xFFFFFFFF, P_WORLD, 0xFFFFFFFF, 0, 1}, "Mat.Map", "Resource names parameter 0, which is no sampler\n"},
        {{0xFFFFFFFF, P_SAMPS, 0xFFFFFFFF, 0, 1}, "Mat.Map", "Resource names parameter 8, which is no sampler\n"},
        {{0, 0, 0xFFFFFFFF, 0, 3}, "Mat.Map", "Unknown usage 3\n"},
        {{0, 1, 0xFFFFFFFF, 0, 0}, "Mat.Map", "Unhandled type D3DXPT_TEXTURE\n"},
        {{0, 0, 0xFFFFFFFF, 2, 1}, "Mat.Mop", "Referenced parameter Mat.Mop not found.\n"},
        {{0, 0, 0xFFFFFFFF, 2, 2}, "ab", "Preshader block of 2 bytes holds no parameter name\n"},
    };
    FullEffectLayout layout;
    const Bytes full = BuildFullEffect(&layout);
    ASSERT_EQ(6u, WordAt(full.data(), 8 + layout.recordCounts + 4));
    for (const auto& c : cases)
    {
        // The full effect with its six resource records replaced by this one.
        Bytes bytes(full.begin(), full.begin() + 8 + layout.resources);
        bytes[8 + layout.recordCounts + 4] = 1;
        EffectBuilder tail;
        tail.Put(c.record);
        tail.Block(c.block, static_cast<uint32_t>(std::strlen(c.block)));
        const Bytes extra = tail.Finish();
        bytes.insert(bytes.end(), extra.begin() + 8, extra.end());
        EXPECT_EQ((Lines{c.message, "Failed to parse resource 0\n", "Failed to parse effect.\n"}), Read(bytes));
    }
}

TEST(EffectFailures, UnhandledCasesAndRepeatedDataAreReportedAndPassedOver)
{
    EffectLogCapture log;
    {
        // An unknown class: read (and distributed) as a parameter of no bytes.
        EffectBuilder b;
        const uint32_t type = b.Put({D3DXPT_FLOAT, 7, b.String("odd"), b.String(nullptr), 0});
        CD3D9ParseEffect fx;
        EXPECT_TRUE(Parse(fx, OneParameter(b, type, b.Here())));
        const Lines odd{"Unrecognized D3DXPARAMETER_CLASS 0x7.\n", "Unhandled class unrecognized\n"};
        EXPECT_EQ(log.Texts(), (Lines{odd[0], odd[1], odd[0], odd[1]}));
        D3DXPARAMETER_DESC d;
        ASSERT_EQ(fx.GetParameterDesc(fx.GetParameter(nullptr, 0), &d), EFFECT_OK);
        EXPECT_EQ(std::string("odd 0"), std::string(d.Name) + " " + std::to_string(d.Bytes));
    }
    log.Clear();
    // Object data for an object that already has some replaces the old.
    EffectBuilder b;
    const uint32_t type = b.Put(ObjectType(D3DXPT_STRING, b.String("s"), b.String(nullptr), 0));
    const uint32_t value = b.Word(0);
    b.Body();
    b.Put({1, 0, 0, 1, type, value, 0, 0, 2, 0, 0});
    b.TextBlock("first");
    b.Word(0);
    b.TextBlock("second");
    CD3D9ParseEffect fx;
    ASSERT_TRUE(Parse(fx, b.Finish()));
    EXPECT_EQ(log.Texts(), (Lines{"Object already initialized!\n", "Parameter data already allocated.\n"}));
    const char* text = nullptr;
    ASSERT_EQ(fx.GetString(fx.GetParameter(nullptr, 0), &text), EFFECT_OK);
    EXPECT_STREQ(text, "second");
}

TEST(EffectFailures, OffsetsCountsAndIdsOutsideTheFile)
{
    // A body of six zero words, with the head's body offset or first words changed.
    auto body = [](const Words& words, uint8_t bodyAt = 0) {
        EffectBuilder b;
        b.Body();
        b.Put(words);
        Bytes bytes = b.Finish();
        bytes[4] = static_cast<uint8_t>(bytes[4] + bodyAt);
        return bytes;
    };
    EffectBuilder object, name, value, unended;
    // An object record for an id at the object count.
    object.Body();
    object.Put({0, 0, 0, 1, 1, 0, 1});
    object.TextBlock("x");
    // A name whose length runs past the end, and a value that does.
    const uint32_t far = name.Word(1000);
    const uint32_t farType = name.Put({D3DXPT_FLOAT, D3DXPC_SCALAR, far, far, 0, 1, 1});
    const uint32_t none = value.String(nullptr);
    const uint32_t matrix = value.Put(NumericType(D3DXPT_FLOAT, D3DXPC_MATRIX_ROWS, none, none, 0, 4, 4));
    const std::pair<Bytes, Lines> rows[] = {
        {body({0, 0, 0, 0, 0, 0}, 200), {"Read outside the effect data: 4 bytes at offset 200 of 24\n"}},
        {body({0x10000000, 0, 0, 0, 0, 0}),
         {"Parameter count 268435456 does not fit in the 8 bytes left of the effect data\n"}},
        {body({0, 0, 0, 0x7FFFFFFF, 0, 0}), {"Object count 2147483647 does not fit in the 24 bytes of effect data\n"}},
        {object.Finish(), {"Object id 1 is not below the object count 1\n"}},
        {OneParameter(name, farType, 0),
         {"String of 1000 bytes at offset 0 runs past the end of the effect data\n", "Failed to parse name\n",
          "Failed to parse type definition\n", "Failed to parse parameter 0\n"}},
        {OneParameter(value, matrix, 40),
         {"Value of 64 bytes at offset 40 runs past the end of the effect data\n", "Failed to parse value\n",
          "Failed to parse value\n", "Failed to parse parameter 0\n"}},
    };
    for (const auto& r : rows)
    {
        Lines expected = r.second;
        expected.push_back("Failed to parse effect.\n");
        EXPECT_EQ(expected, Read(r.first));
    }
    // A name without its terminator still reads as a text of its own.
    const uint32_t abc = unended.Block("abc", 3);
    const uint32_t type = unended.Put(NumericType(D3DXPT_FLOAT, D3DXPC_SCALAR, abc, abc, 0, 1, 1));
    CD3D9ParseEffect fx;
    ASSERT_TRUE(Parse(fx, OneParameter(unended, type, unended.Floats({2}))));
    EXPECT_NE(fx.GetParameterByName(nullptr, "abc"), nullptr);
}

TEST(EffectFailures, DepthAndSizeOfWhatAFileDescribesAreBounded)
{
    auto nested = [](int depth) {
        EffectBuilder b;
        const uint32_t none = b.String(nullptr), name = b.String("s");
        Words type = NumericType(D3DXPT_FLOAT, D3DXPC_SCALAR, name, none, 0, 1, 1);
        for (int i = 0; i < depth; ++i)
            type = StructType(name, none, 0, {type});
        const uint32_t t = b.Put(type);
        return OneParameter(b, t, b.Floats({1}));
    };
    EXPECT_EQ(Read(nested(63), true), Lines{}); // the deepest a file may go
    EffectBuilder self, wide, deep;
    // A sampler whose state's value is the sampler record itself.
    const uint32_t none = self.String(nullptr);
    const uint32_t sampler = self.Put(ObjectType(D3DXPT_SAMPLER, none, none, 0));
    const uint32_t record = self.Put({1, 0, 0, sampler, self.Here()});
    // A few words that describe billions of elements, or arrays of structs of arrays
    // where each level alone is small: together 200 x 2 x 200 x 3 x 200.
    const uint32_t nameless = wide.String(nullptr);
    const uint32_t billions = wide.Put(NumericType(D3DXPT_FLOAT, D3DXPC_SCALAR, nameless, nameless, 0x7FFFFFFF, 0, 0));
    const uint32_t n = deep.String("n");
    const Words leaf = NumericType(D3DXPT_FLOAT, D3DXPC_SCALAR, n, n, 200, 0, 0);
    const Words mid = StructType(n, n, 200, {leaf, leaf, leaf});
    const uint32_t levels = deep.Put(StructType(n, n, 200, {mid, mid}));
    const std::pair<Bytes, const char*> rows[] = {
        {nested(64), "Effect nests deeper than 64 levels\n"},
        {OneParameter(self, sampler, record), "Effect nests deeper than 64 levels\n"},
        {OneParameter(wide, billions, 0), "Effect asks for more memory than a file of"},
        {OneParameter(deep, levels, 0), "Effect asks for more memory than a file of"},
    };
    for (const auto& r : rows)
    {
        const auto start = std::chrono::steady_clock::now();
        const Lines texts = Read(r.first);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
        ASSERT_FALSE(texts.empty());
        EXPECT_TRUE(StartsWith(texts[0], r.second)) << texts[0];
        EXPECT_EQ("Failed to parse effect.\n", texts.back());
    }
}

TEST(EffectFailures, EveryAllocationFailureFailsCleanly)
{
    const Bytes full = BuildFullEffect();
    EffectLogCapture log;
    int failures = 0;
    for (long long n = 0; n < 5000; ++n)
    {
        log.Clear();
        SetEffectHeapFailAfter(n);
        bool ok = false;
        {
            CD3D9ParseEffect fx;
            ok = Parse(fx, full);
            if (ok)
                (void)fx.GetParameterByName(nullptr, "Pairs[2].b");
        }
        SetEffectHeapFailAfter(-1);
        if (!log.Has("MyHeapAlloc out of memory!"))
        {
            EXPECT_TRUE(ok);
            break;
        }
        // Only a failed growth of the handle table lets a parse go on.
        bool said = log.Has("Out of memory.\n");
        for (const char* reason : {"Out of memory\n", "Failed to allocate name memory.\n",
                                   "Failed to allocate data memory.\n", "Failed to allocate object memory.\n"})
            said = said || (!ok && log.Has(reason));
        EXPECT_TRUE(said && (ok || log.Texts().back() == "Failed to parse effect.\n")) << n;
        failures += !ok;
    }
    EXPECT_GT(failures, 50);
}

TEST(EffectFailures, NameLookupsOfResourceRecordsAreBounded)
{
    // Thousands of parameters of one long name, then one whose name differs in
    // its last character, and thousands of resource records that each look for
    // that last one: without a bound, reading this file would compare billions
    // of characters.
    const std::string name(200, 'a');
    const std::string last = std::string(199, 'a') + "b";
    const uint32_t count = 3000;
    EffectBuilder b;
    const uint32_t none = b.String(nullptr);
    const uint32_t type = b.Put(NumericType(D3DXPT_FLOAT, D3DXPC_SCALAR, b.String(name.c_str()), none, 0, 1, 1));
    const uint32_t lastType = b.Put(NumericType(D3DXPT_FLOAT, D3DXPC_SCALAR, b.String(last.c_str()), none, 0, 1, 1));
    const uint32_t stateType = b.Put(ObjectType(D3DXPT_TEXTURE, none, none, 0));
    const uint32_t value = b.Word(0);
    const uint32_t tech = b.String("T");
    b.Body();
    b.Put({count, 1, 0, 1});
    for (uint32_t i = 0; i + 1 < count; ++i)
        b.Put({type, value, 0, 0});
    b.Put({lastType, value, 0, 0});
    b.Put({tech, 0, 1, tech, 0, 1, 0, 0, stateType, value});
    b.Put({0, count});
    for (uint32_t i = 0; i < count; ++i)
    {
        b.Put({0, 0, 0xFFFFFFFF, 0, 1});
        b.TextBlock(last.c_str());
    }
    const Bytes bytes = b.Finish();

    EffectLogCapture log;
    CD3D9ParseEffect fx;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(Parse(fx, bytes));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
    const Lines texts = log.Texts();
    ASSERT_GE(texts.size(), 3u);
    EXPECT_EQ(texts[texts.size() - 3],
              "Effect asks for more name lookups than a file of " + std::to_string(bytes.size()) + " bytes may\n");
    EXPECT_TRUE(StartsWith(texts[texts.size() - 2], "Failed to parse resource "));
    // The first records were found before the bound was reached; each one
    // replaced the data of the one state they all name.
    EXPECT_EQ(texts[0], "Object already initialized!\n");
    EXPECT_GT(texts.size(), 100u);
}

TEST(EffectRobustness, TruncationsFailAndChangedBytesNeverCrash)
{
    EffectLogCapture log;
    const Bytes full = BuildFullEffect();
    size_t found = 0, parsed[2] = {0, 0}, failed[2] = {0, 0};
    ASSERT_TRUE(ParseExact(full.data(), full.size(), &found));
    // Every handle but the technique's and the pass's annotation, each once.
    EXPECT_EQ(kFullEffectHandles - 2, found);
    for (size_t size = 0; size < full.size(); ++size)
    {
        log.Clear();
        EXPECT_FALSE(ParseExact(full.data(), size, &found)) << size;
        const std::string last = log.lines().empty() ? "" : log.lines().back().text;
        EXPECT_TRUE(last == "Failed to parse effect.\n" || last == "parseEffect_notAnEffectsFile") << size << last;
    }
    auto tryChange = [&](int kind, size_t at, const void* value, size_t size) {
        Bytes changed = full;
        std::memcpy(&changed[at], value, size);
        if (changed != full)
            (ParseExact(changed.data(), changed.size(), &found) ? parsed : failed)[kind]++;
    };
    for (size_t at = 0; at < full.size(); ++at)
        for (uint8_t value :
             {uint8_t(0), uint8_t(0xFF), uint8_t(0x80), uint8_t(full[at] + 1), uint8_t(full[at] ^ 0x10)})
            tryChange(0, at, &value, 1);
    for (size_t at = 0; at + 4 <= full.size(); at += 4)
    {
        const uint32_t old = WordAt(full.data(), at);
        for (uint32_t value : {0u, 1u, 2u, 3u, 4u, 5u, 16u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu, 0xFFFFFFFEu, old + 1,
                               old - 1, old + 4, old - 4, old * 2, old + 0x100})
            tryChange(1, at, &value, 4);
    }
    // Both outcomes occur for bytes and for words: values, padding and names may change freely.
    EXPECT_TRUE(parsed[0] > 100 && failed[0] > 100 && parsed[1] > 100 && failed[1] > 100)
        << parsed[0] << " " << failed[0] << " " << parsed[1] << " " << failed[1];
}
