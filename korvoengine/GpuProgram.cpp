#include "engine/GpuProgram.h"
#include "engine/GpuProgramManager.h"
#include "engine/Log.h"

#include "base/StaticFunc.h"

#include <windows.h>

#include <cerrno>
#include <cstdlib>
#include <set>

namespace kv
{
namespace
{

const char kSourceFile[] = "korvoengine/GpuProgram";

bool IsIdentifier(const std::string& s)
{
    if (s.empty() || (s[0] >= '0' && s[0] <= '9'))
        return false;
    for (char c : s)
        if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_'))
            return false;
    return true;
}

// A whole number in decimal or, with "0x", hexadecimal; nothing else may follow.
bool ParseMask(const std::string& text, uint64_t& value)
{
    if (text.empty() || text[0] == '-')
        return false;
    char* end = nullptr;
    errno = 0;
    value = std::strtoull(text.c_str(), &end, 0);
    return errno == 0 && end && *end == '\0';
}

// "0" or "1"; an absent key is the fallback.
bool ParseFlag(const std::string& text, bool fallback, bool& value)
{
    if (text.empty())
    {
        value = fallback;
        return true;
    }
    if (text != "0" && text != "1")
        return false;
    value = text == "1";
    return true;
}

// The description as read, applied to the program only when all of it is sound.
struct Description
{
    uint64_t runtimeMask = 0;
    uint64_t registerMask = 0;
    bool receiveLighting = false;
    bool custom = false;
    std::string macro;
    std::vector<std::string> runtimeBits = std::vector<std::string>(64);
    std::string lightingDefine;
    uint64_t lightingMask = 0;
    std::vector<std::string> parameters;
    std::vector<std::string> globals;
};

// Reads one description; the text of the first fault goes to `fault`.
bool ReadDescription(const std::string& file, Description& d, std::string& fault)
{
    auto get = [&](const char* section, const std::string& key) {
        return CStaticFunc::GetIniString(file.c_str(), section, key.c_str());
    };
    const DWORD attributes = GetFileAttributesA(file.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY))
    {
        fault = "no such file";
        return false;
    }
    // The two masks are the description's mandatory part: an empty file has neither.
    const std::string runtimeMask = get("program", "runtime_mask");
    const std::string registerMask = get("program", "register_mask");
    if (runtimeMask.empty() || registerMask.empty())
    {
        fault = "[program] needs runtime_mask and register_mask";
        return false;
    }
    if (!ParseMask(runtimeMask, d.runtimeMask) || !ParseMask(registerMask, d.registerMask))
    {
        fault = "a mask is not a number: \"" + runtimeMask + "\", \"" + registerMask + "\"";
        return false;
    }
    if (!ParseFlag(get("program", "receive_lighting"), false, d.receiveLighting) ||
        !ParseFlag(get("program", "custom"), false, d.custom))
    {
        fault = "receive_lighting and custom are 0 or 1";
        return false;
    }
    for (const std::string& define : CStaticFunc::Split(get("program", "defines"), " \t"))
    {
        const std::string::size_type equals = define.find('=');
        const std::string name = define.substr(0, equals);
        if (!IsIdentifier(name))
        {
            fault = "define \"" + define + "\" has no macro name";
            return false;
        }
        d.macro += "#define " + name + " " + (equals == std::string::npos ? "1" : define.substr(equals + 1)) + "\n";
    }
    for (unsigned bit = 0; bit < 64; ++bit)
    {
        if (!(d.runtimeMask & (uint64_t(1) << bit)))
            continue;
        d.runtimeBits[bit] = get("runtime", "bit" + std::to_string(bit));
        if (!IsIdentifier(d.runtimeBits[bit]))
        {
            fault = "runtime bit " + std::to_string(bit) + " has no macro name";
            return false;
        }
    }
    if (d.receiveLighting)
    {
        d.lightingDefine = get("lighting", "define");
        if (!IsIdentifier(d.lightingDefine) || !ParseMask(get("lighting", "mask"), d.lightingMask) ||
            d.lightingMask == 0)
        {
            fault = "[lighting] needs a macro name (define) and a mask";
            return false;
        }
    }
    std::set<std::string> seen;
    for (unsigned i = 0;; ++i)
    {
        const std::vector<std::string> words = CStaticFunc::Split(get("parameters", std::to_string(i)), " \t");
        if (words.empty())
            break;
        if (!IsIdentifier(words[0]) || words.size() > 2 || (words.size() == 2 && words[1] != "global") ||
            !seen.insert(words[0]).second)
        {
            fault = "parameter " + std::to_string(i) + " is not \"<name>\" or \"<name> global\", once";
            return false;
        }
        d.parameters.push_back(words[0]);
        if (words.size() == 2)
            d.globals.push_back(words[0]);
    }
    return true;
}

} // namespace

CGpuProgram::CGpuProgram()
    : m_nRuntimeMask(0), m_nRegisterMask(0), m_runtimeBits(64), m_nLightingMask(0), m_bCustomShader(false),
      m_bReceiveLighting(false)
{
}

CGpuProgram::~CGpuProgram() {}

int CGpuProgram::GetClassType()
{
    return 0;
}

void CGpuProgram::Destroy()
{
    for (auto& entry : m_params)
    {
        entry.second.m_binds.clear();
        entry.second.m_pBind = nullptr;
    }
}

bool CGpuProgram::BeginActivate(CCamera*, bool)
{
    return true;
}
void CGpuProgram::SetTexture(const PARAM*, const CTexture*, const SamplerState&) {}
void CGpuProgram::SetInt(const PARAM*, const int*) {}
void CGpuProgram::SetOESTexture(const PARAM*, const CTexture*) {}
void CGpuProgram::SetUavTexture(const PARAM*, const CTexture*) {}
void CGpuProgram::SetBuffer(const PARAM*, const void*) {}
int CGpuProgram::GetTextureType(const PARAM*)
{
    return 0;
}
void CGpuProgram::BuildEmptyBind(const PARAM*) {}

std::string CGpuProgram::GetSourceName() const
{
    const std::vector<std::string> pieces = CStaticFunc::Split(m_strName, "+");
    return pieces.empty() ? std::string() : pieces[0];
}

bool CGpuProgram::BuildXml()
{
    const std::string relative = "shader/" + GetSourceName() + ".ini";
    const std::string file = GetGpuProgramManager()->GetFullPath(relative);
    Description d;
    std::string fault = "the path is too long";
    if (file.empty() || !ReadDescription(file, d, fault))
    {
        LogErrorImpl(kSourceFile, __LINE__, "Program description %s: %s", relative.c_str(), fault.c_str());
        return false;
    }
    m_nRuntimeMask = d.runtimeMask;
    m_nRegisterMask = d.registerMask;
    m_bReceiveLighting = d.receiveLighting;
    m_bCustomShader = d.custom;
    m_strMacro = d.macro;
    m_runtimeBits = d.runtimeBits;
    m_strLightingDefine = d.lightingDefine;
    m_nLightingMask = d.lightingMask;
    // Parameters only ever join: the engine's callers keep PARAM pointers.
    for (const std::string& name : d.parameters)
        m_params[name].m_strName = name;
    m_globalNames = d.globals;
    return true;
}

void CGpuProgram::InitGlobalParameter()
{
    m_globals.clear();
    for (const std::string& name : m_globalNames)
        m_globals.push_back(GlobalSlot{&m_params[name], GetGpuProgramManager()->GetGlobalValue(name)});
}

std::string CGpuProgram::CalcMacro()
{
    return m_strMacro;
}

std::string CGpuProgram::CalcRTMacro(uint64_t runtimeKey, uint64_t lightingKey)
{
    std::string text;
    for (unsigned bit = 0; bit < 64; ++bit)
        if ((runtimeKey & (uint64_t(1) << bit)) && !m_runtimeBits[bit].empty())
            text += "#define " + m_runtimeBits[bit] + " 1\n";
    if (!m_strLightingDefine.empty())
        text += "#define " + m_strLightingDefine + " " + std::to_string(lightingKey & m_nLightingMask) + "\n";
    return text;
}

void CGpuProgram::ResetRTFlagsForBinds(const void* variant)
{
    for (auto& entry : m_params)
    {
        auto it = entry.second.m_binds.find(variant);
        entry.second.m_pBind = it == entry.second.m_binds.end() ? nullptr : &it->second;
    }
}

void CGpuProgram::BuildVSBind(const char* name, const void* variant, int registerIndex, int registerCount)
{
    PARAM& param = m_params[name ? name : ""];
    param.m_strName = name ? name : "";
    auto inserted = param.m_binds.emplace(variant, Bind{-1, -1, 0, 0});
    inserted.first->second.nVSRegister = registerIndex;
    inserted.first->second.nVSCount = registerCount;
}

void CGpuProgram::BuildPSBind(const char* name, const void* variant, int registerIndex, int registerCount)
{
    PARAM& param = m_params[name ? name : ""];
    param.m_strName = name ? name : "";
    auto inserted = param.m_binds.emplace(variant, Bind{-1, -1, 0, 0});
    inserted.first->second.nPSRegister = registerIndex;
    inserted.first->second.nPSCount = registerCount;
}

bool CGpuProgram::CommitGlobalParameter(CCamera*, bool)
{
    for (const GlobalSlot& slot : m_globals)
        if (slot.m_pValue->size() >= 4)
            SetVector4Array(slot.m_pParam, slot.m_pValue->data(), static_cast<int>(slot.m_pValue->size() / 4));
    return true;
}

const CGpuProgram::PARAM* CGpuProgram::GetParam(const char* name) const
{
    auto it = m_params.find(name ? name : "");
    return it == m_params.end() ? nullptr : &it->second;
}

} // namespace kv
