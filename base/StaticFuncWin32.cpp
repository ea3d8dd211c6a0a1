#include "base/StaticFunc.h"

#include <cstdlib>
#include <mmsystem.h>

std::string CStaticFunc::GetCurrentDir()
{
    char buffer[1024] = {0};
    const DWORD length = GetCurrentDirectoryA(sizeof(buffer), buffer);
    // A longer directory does not fit: the call answers the size it would need instead.
    if (length == 0 || length >= sizeof(buffer))
        return std::string();
    return std::string(buffer, length);
}

bool CStaticFunc::SetCurrentDir(const std::string& path)
{
    return SetCurrentDirectoryA(path.c_str()) != FALSE;
}

std::string CStaticFunc::GetExeDir()
{
    char buffer[256] = {0};
    const DWORD length = GetModuleFileNameA(nullptr, buffer, sizeof(buffer));
    // A cut path would name a wrong directory: better none.
    if (length == 0 || length >= sizeof(buffer))
        return std::string();
    return GetDirectory(std::string(buffer, length));
}

int CStaticFunc::GetIniInt(const char* file, const char* section, const char* key)
{
    // A null section or key would ask Windows for a list of names instead of one value.
    if (!file || !section || !key)
        return 0;
    return static_cast<int>(GetPrivateProfileIntA(section, key, 0, file));
}

std::string CStaticFunc::GetIniString(const char* file, const char* section, const char* key)
{
    if (!file || !section || !key)
        return std::string();
    char buffer[256] = {0};
    const DWORD length = GetPrivateProfileStringA(section, key, "", buffer, sizeof(buffer), file);
    return std::string(buffer, length < sizeof(buffer) ? length : sizeof(buffer) - 1);
}

unsigned CStaticFunc::Random(unsigned limit, bool reseed)
{
    if (limit == 0)
        return 0;
    if (reseed)
        std::srand(timeGetTime());
    return static_cast<unsigned>(std::rand()) % limit;
}
