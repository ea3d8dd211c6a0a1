// libFuzzer target: any bytes through CD3D9ParseEffect::Parse, then every query over whatever was read. The seeds are
// in tests/fuzz/fuzz_effect/; run with -kv_seed_dir=DIR to write the full effect of the suites there afresh.

#include "EffectBuilder.h"

#include <cstdio>
#include <cstring>
#include <string>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    // Messages are formatted (names from the file go through %s) and dropped.
    SetEffectLogSink([](EffectLogLevel, const char*, int, const char*) {});
    const char flag[] = "-kv_seed_dir=";
    for (int i = 1; i < *argc; ++i)
        if (std::strncmp((*argv)[i], flag, sizeof(flag) - 1) == 0)
            if (FILE* f = std::fopen((std::string((*argv)[i] + sizeof(flag) - 1) + "/full.fxo").c_str(), "wb"))
            {
                const fxtest::Bytes bytes = fxtest::BuildFullEffect();
                std::fwrite(bytes.data(), 1, bytes.size(), f);
                std::fclose(f);
            }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size > 0xFFFFFFFFu)
        return 0;
    CD3D9ParseEffect fx;
    if (fx.Parse(data, static_cast<uint32_t>(size)))
        fxtest::ExerciseEffect(fx);
    // A failed object must still answer nothing without crashing.
    D3DXTECHNIQUE_DESC desc;
    fx.GetParameter(nullptr, 0);
    fx.GetParameterByName(nullptr, "a");
    fx.GetTechniqueDesc(nullptr, &desc);
    return 0;
}
