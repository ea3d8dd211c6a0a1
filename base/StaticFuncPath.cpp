#include "base/Md5.h"
#include "base/StaticFunc.h"

#include <algorithm>
#include <sys/stat.h>
#include <sys/types.h>
#ifdef _WIN32
#include <direct.h>
#endif

namespace
{
inline bool IsSeparator(char c)
{
    return c == '\\' || c == '/';
}

std::string ForwardSlashes(std::string path)
{
    std::replace(path.begin(), path.end(), '\\', '/');
    return path;
}

// Position of the name: behind the last '\', or when there is none, behind the last '/'.
size_t NameStart(const std::string& path)
{
    size_t sep = path.rfind('\\');
    if (sep == std::string::npos)
        sep = path.rfind('/');
    return sep == std::string::npos ? 0 : sep + 1;
}
} // namespace

std::string CStaticFunc::GetFileTitle(const std::string& path)
{
    const std::string name = path.substr(NameStart(path));
    const size_t dot = name.rfind('.');
    return dot == std::string::npos ? name : name.substr(0, dot);
}

std::string CStaticFunc::GetFileName(const std::string& path)
{
    return path.substr(NameStart(path));
}

std::string CStaticFunc::GetExtension(const std::string& path)
{
    const size_t dot = path.rfind('.');
    return dot == std::string::npos ? std::string() : path.substr(dot);
}

std::string CStaticFunc::GetDirectory(const std::string& path)
{
    const size_t sep = path.find_last_of("\\/");
    return sep == std::string::npos ? std::string() : path.substr(0, sep + 1);
}

std::string CStaticFunc::GetParentDir(const std::string& path)
{
    const std::string forward = ForwardSlashes(path);
    const size_t sep = forward.rfind('/');
    return sep == std::string::npos ? std::string() : forward.substr(0, sep);
}

void CStaticFunc::SplitBaseName(const std::string& name, std::string& base, std::string& extension)
{
    const size_t dot = name.rfind('.');
    if (dot == std::string::npos)
    {
        base = name;
        extension.clear();
        return;
    }
    base = name.substr(0, dot);
    extension = name.substr(dot + 1);
}

void CStaticFunc::SplitPath(const std::string& path, std::string& name, std::string& directory)
{
    const std::string forward = ForwardSlashes(path);
    const size_t sep = forward.rfind('/');
    if (sep == std::string::npos)
    {
        name = forward;
        directory.clear();
        return;
    }
    directory = forward.substr(0, sep + 1);
    name = forward.substr(sep + 1);
}

void CStaticFunc::SplitFullPath(const std::string& path, std::string& base, std::string& extension,
                                std::string& directory)
{
    std::string name;
    SplitPath(path, name, directory);
    SplitBaseName(name, base, extension);
}

std::string CStaticFunc::StandardisePath(const std::string& path)
{
    std::string result = ForwardSlashes(path);
    if (!result.empty() && result.back() != '/')
        result += '/';
    return result;
}

std::string CStaticFunc::NormalisePath(const std::string& path, bool forward)
{
    const char separator = forward ? '/' : '\\';
    std::string result;
    result.reserve(path.size());
    for (char c : path)
    {
        if (IsSeparator(c))
        {
            if (!result.empty() && result.back() == separator)
                continue; // a doubled separator collapses
            result += separator;
        }
        else
        {
            result += c;
        }
    }
    return result;
}

std::string CStaticFunc::AppendSlash(const std::string& path)
{
    if (path.empty() || IsSeparator(path.back()))
        return path;
    return path + '/';
}

void CStaticFunc::CreateDirectories(const std::string& path)
{
    const std::string full = StandardisePath(path);
    // Every prefix that ends before a '/', shortest first; existing ones just fail.
    for (size_t sep = full.find('/'); sep != std::string::npos; sep = full.find('/', sep + 1))
    {
        if (sep == 0)
            continue;
        const std::string prefix = full.substr(0, sep);
#ifdef _WIN32
        _mkdir(prefix.c_str());
#else
        mkdir(prefix.c_str(), 0777);
#endif
    }
}

bool CStaticFunc::IsFile(const std::string& path)
{
    struct stat info;
    if (stat(path.c_str(), &info) != 0)
        return false;
    return (info.st_mode & S_IFMT) == S_IFREG;
}

int64_t CStaticFunc::GetFileSize(FILE* file)
{
    if (!file)
        return -1;
#ifdef _WIN32
    if (_fseeki64(file, 0, SEEK_END) != 0)
        return -1;
    const int64_t size = _ftelli64(file);
    _fseeki64(file, 0, SEEK_SET);
#else
    if (fseeko(file, 0, SEEK_END) != 0)
        return -1;
    const int64_t size = static_cast<int64_t>(ftello(file));
    fseeko(file, 0, SEEK_SET);
#endif
    return size;
}

size_t CStaticFunc::ReadFully(FILE* file, void* buffer, size_t size)
{
    if (!file || !buffer)
        return 0;
    char* out = static_cast<char*>(buffer);
    size_t total = 0;
    while (total < size)
    {
        const size_t got = std::fread(out + total, 1, size - total, file);
        if (got == 0)
            break; // end of file or an error
        total += got;
    }
    return total;
}

std::string CStaticFunc::Md5OfString(const std::string& s)
{
    Md5 md5;
    md5.Update(s);
    return md5.HexDigest();
}

std::string CStaticFunc::Md5OfFile(const std::string& path)
{
    FILE* file = std::fopen(path.c_str(), "rb");
    if (!file)
        return " ";
    Md5 md5;
    unsigned char block[1024];
    size_t got;
    while ((got = std::fread(block, 1, sizeof(block), file)) > 0)
        md5.Update(block, got);
    std::fclose(file);
    return md5.HexDigest();
}
