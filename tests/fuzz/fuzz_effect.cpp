// libFuzzer target: any bytes through CD3D9ParseEffect::Parse, then every query
// over whatever was read. Run with -kv_seed_dir=DIR to write the seed effects.

#include "D3D9RenderSystem/D3D9ParseEffect.h"
#include "D3D9RenderSystem/EffectLog.h"
#include "EffectBuilder.h"
#include "ExerciseEffect.h"
#include "FullEffect.h"

#include <cstdio>
#include <cstring>
#include <string>

namespace
{

// Messages are formatted (names from the file go through %s) and dropped.
void QuietSink(EffectLogLevel, const char*, int, const char*) {}

void WriteSeed(const std::string& dir, const char* name, const fxtest::Bytes& bytes)
{
    const std::string path = dir + "/" + name;
    if (FILE* f = std::fopen(path.c_str(), "wb"))
    {
        std::fwrite(bytes.data(), 1, bytes.size(), f);
        std::fclose(f);
    }
}

void WriteSeeds(const std::string& dir)
{
    using namespace fxtest;
    WriteSeed(dir, "full.fxo", BuildFullEffect());
    {
        EffectBuilder b;
        b.Body();
        b.Put({0, 0, 0, 0, 0, 0});
        WriteSeed(dir, "empty.fxo", b.Finish());
    }
    {
        // A sampler with a texture state named by a resource record.
        EffectBuilder b;
        const uint32_t none = b.String(nullptr);
        const uint32_t tex = b.Put(ObjectType(D3DXPT_TEXTURE, b.String("t"), none, 0));
        const uint32_t samp = b.Put(ObjectType(D3DXPT_SAMPLER2D, b.String("s"), b.String("S0"), 0));
        const uint32_t stateTex = b.Put(ObjectType(D3DXPT_TEXTURE, none, none, 0));
        const uint32_t id0 = b.Word(0), id1 = b.Word(1);
        const uint32_t record = b.Put({1, 4, 0, stateTex, id1});
        b.Body();
        b.Put({2, 0, 0, 2, tex, id0, 0, 0, samp, record, 0, 0, 0, 1, 0xFFFFFFFF, 1, 0xFFFFFFFF, 0, 1});
        b.TextBlock("t");
        WriteSeed(dir, "sampler.fxo", b.Finish());
    }
    {
        // An array of structs with a string annotation.
        EffectBuilder b;
        const uint32_t none = b.String(nullptr);
        const uint32_t type = b.Put(StructType(b.String("a"), none, 2,
                                               {NumericType(D3DXPT_FLOAT, D3DXPC_VECTOR, b.String("v"), none, 0, 1, 2),
                                                NumericType(D3DXPT_INT, D3DXPC_SCALAR, b.String("i"), none, 0, 1, 1)}));
        const uint32_t note = b.Put(ObjectType(D3DXPT_STRING, b.String("note"), none, 0));
        const uint32_t value = b.Put({1, 2, 3, 4, 5, 6});
        const uint32_t id0 = b.Word(0);
        b.Body();
        b.Put({1, 0, 0, 1, type, value, 0, 1, note, id0, 1, 0, 0});
        b.TextBlock("hi");
        WriteSeed(dir, "structs.fxo", b.Finish());
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    SetEffectLogSink(QuietSink);
    const char flag[] = "-kv_seed_dir=";
    for (int i = 1; i < *argc; ++i)
        if (std::strncmp((*argv)[i], flag, sizeof(flag) - 1) == 0)
            WriteSeeds((*argv)[i] + sizeof(flag) - 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size > 0xFFFFFFFFu)
        return 0;
    CD3D9ParseEffect fx;
    if (fx.Parse(data, static_cast<uint32_t>(size)))
    {
        fxtest::ExerciseEffect(fx);
    }
    else
    {
        // A failed object must still answer nothing without crashing.
        D3DXTECHNIQUE_DESC desc;
        fx.GetParameter(nullptr, 0);
        fx.GetParameterByName(nullptr, "a");
        fx.GetTechniqueDesc(nullptr, &desc);
    }
    return 0;
}
