#include "D3D9HLSLCompileThread.h"

#include "base/Md5.h"
#include "base/StaticFunc.h"
#include "engine/ArchiveManager.h"
#include "engine/Globals.h"
#include "engine/GpuProgramManager.h"

#include <d3dcompiler.h>

#include <cstring>

namespace kv
{
namespace
{

// The compiler's error text is cut to its end, where the first error usually
// stands last, before it is logged.
const size_t kMaxErrorText = 9000;

} // namespace

CD3D9HLSLCompileThread::~CD3D9HLSLCompileThread() {}

bool CD3D9HLSLCompileThread::EntryName(const std::string& sourcePath, const std::string& text, std::string& name,
                                       const char** vertexProfile, const char** pixelProfile)
{
    const char* prefix;
    switch (g_eRenderSystemType)
    {
    case RST_DX9C:
        prefix = "c/";
        *vertexProfile = "vs_3_0";
        *pixelProfile = "ps_3_0";
        break;
    case RST_DX9A:
        prefix = "a/";
        *vertexProfile = "vs_2_0";
        *pixelProfile = "ps_2_0";
        break;
    default:
        LogError("Connot find g_eRenderSystemType:%d", static_cast<int>(g_eRenderSystemType));
        return false;
    }
    // The pieces go in with no separators: the digest is over their concatenation.
    Md5 md5;
    md5.Update(text);
    md5.Update(*vertexProfile, std::strlen(*vertexProfile));
    md5.Update(*pixelProfile, std::strlen(*pixelProfile));
    md5.Update("VersionShaderCache" + std::to_string(kCacheVersion));
    name = prefix + CStaticFunc::GetFileTitle(sourcePath) + "_" + md5.HexDigest();
    return true;
}

bool CD3D9HLSLCompileThread::CompileShader(ShaderAsyncInfo* info)
{
    // The engine's files are shared with the main thread: the lock covers the
    // read and the copy, never the compile.
    CGpuProgramManager* manager = GetGpuProgramManager();
    std::string text;
    {
        manager->GetDX9ShaderMutex().Enter();
        ref_ptr<CMemoryDataStream> stream;
        const char* source = manager->OpenDX9Shader(info->m_strSourcePath.c_str(), stream);
        if (source)
            text = info->m_strMacro + source;
        manager->GetDX9ShaderMutex().Leave();
        if (!source)
            return false;
    }

    std::string name;
    const char* vertexProfile = nullptr;
    const char* pixelProfile = nullptr;
    if (!EntryName(info->m_strSourcePath, text, name, &vertexProfile, &pixelProfile))
        return false;
    if (LoadCache(info, name.c_str()))
        return true;
    if (!CompileStage(info, text, false, vertexProfile) || !CompileStage(info, text, true, pixelProfile))
        return false;
    SaveCache(info, name.c_str());
    return true;
}

bool CD3D9HLSLCompileThread::CompileStage(ShaderAsyncInfo* info, const std::string& text, bool pixelStage,
                                          const char* profile)
{
    static const D3D_SHADER_MACRO kPixelDefines[] = {{"D3D9_PS", "1"}, {nullptr, nullptr}};
    ID3DBlob* code = nullptr;
    ID3DBlob* errors = nullptr;
    const HRESULT hr =
        D3DCompile(text.data(), text.size(), info->m_strSourcePath.c_str(), pixelStage ? kPixelDefines : nullptr,
                   nullptr, pixelStage ? "ps" : "vs", profile, 0, 0x20000, &code, &errors);
    const char* stage = pixelStage ? "ps" : "vs";
    std::string message;
    if (errors && errors->GetBufferPointer())
        message.assign(static_cast<const char*>(errors->GetBufferPointer()),
                       strnlen(static_cast<const char*>(errors->GetBufferPointer()), errors->GetBufferSize()));
    if (message.size() > kMaxErrorText)
        message.erase(0, message.size() - (kMaxErrorText - 1));
    if (errors)
        errors->Release();

    if (FAILED(hr) || !code || code->GetBufferSize() == 0)
    {
        const std::string dump = CStaticFunc::GetFileTitle(info->m_strSourcePath) + "_" + stage + ".txt";
        GetArchiveMananger()->WriteCacheFile(dump.c_str(), text.data(), static_cast<unsigned>(text.size()));
        if (message.empty())
            message = "D3DCompile:" + std::to_string(static_cast<int>(hr)) + " without a message";
        LogError("%s:%s, %s", stage, message.c_str(), info->m_strResourceName.c_str());
        if (code)
            code->Release();
        return false;
    }
    // A compile that succeeds with words to say (a warning, or a feature the
    // compiler left out) is kept, but the words are told.
    if (!message.empty())
        LogWarning("%s:%s, %s", stage, message.c_str(), info->m_strResourceName.c_str());
    const size_t size = code->GetBufferSize();
    if (pixelStage)
    {
        info->ResizePS(size);
        std::memcpy(info->GetPSData(), code->GetBufferPointer(), size);
    }
    else
    {
        info->ResizeVS(size);
        std::memcpy(info->GetVSData(), code->GetBufferPointer(), size);
    }
    code->Release();
    return true;
}

} // namespace kv
