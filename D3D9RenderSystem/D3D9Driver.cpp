#include "D3D9Driver.h"
#include "D3D9VideoModeList.h"

#include <cstring>
#include <sstream>
#include <string>

namespace kv
{
namespace
{

// The identifier's text fields are fixed arrays that Direct3D need not end.
std::string FieldText(const char* field, std::size_t size)
{
    const void* end = std::memchr(field, '\0', size);
    return std::string(field, end ? static_cast<const char*>(end) - field : size);
}

std::string Trimmed(const std::string& text)
{
    static const char kBlanks[] = " \t\r";
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string::npos)
        return std::string();
    const std::size_t last = text.find_last_not_of(kBlanks);
    return text.substr(first, last - first + 1);
}

} // namespace

D3D9Driver::D3D9Driver(IDirect3D9* pD3D9, unsigned adapterNumber, const D3DCAPS9& caps,
                       const D3DADAPTER_IDENTIFIER9& identifier, const D3DDISPLAYMODE& desktopMode)
    : m_pD3D9(pD3D9), m_nAdapterNumber(adapterNumber), m_d3dcaps(caps), m_adapterIdentifier(identifier),
      m_desktopDisplayMode(desktopMode), m_pVideoModeList(nullptr)
{
}

D3D9Driver::D3D9Driver(const D3D9Driver& other)
    : CDriver(), m_pD3D9(other.m_pD3D9), m_nAdapterNumber(other.m_nAdapterNumber), m_d3dcaps(other.m_d3dcaps),
      m_adapterIdentifier(other.m_adapterIdentifier), m_desktopDisplayMode(other.m_desktopDisplayMode),
      m_pVideoModeList(nullptr)
{
}

D3D9Driver& D3D9Driver::operator=(const D3D9Driver& other)
{
    if (this != &other)
    {
        delete m_pVideoModeList;
        m_pVideoModeList = nullptr;
        m_pD3D9 = other.m_pD3D9;
        m_nAdapterNumber = other.m_nAdapterNumber;
        m_d3dcaps = other.m_d3dcaps;
        m_adapterIdentifier = other.m_adapterIdentifier;
        m_desktopDisplayMode = other.m_desktopDisplayMode;
    }
    return *this;
}

D3D9Driver::~D3D9Driver()
{
    delete m_pVideoModeList;
    m_pVideoModeList = nullptr;
}

const char* D3D9Driver::GetDriverName()
{
    static std::string name;
    name = FieldText(m_adapterIdentifier.Driver, sizeof(m_adapterIdentifier.Driver));
    return name.c_str();
}

const char* D3D9Driver::GetDriverDescription()
{
    static std::string description;
    // Monitors count from 1 here, as the user sees them.
    std::ostringstream text;
    text << "Monitor-" << (m_nAdapterNumber + 1) << "-"
         << FieldText(m_adapterIdentifier.Description, sizeof(m_adapterIdentifier.Description));
    description = Trimmed(text.str());
    return description.c_str();
}

CVideoModeList* D3D9Driver::GetVideoModes()
{
    if (!m_pVideoModeList)
        m_pVideoModeList = new D3D9VideoModeList(this);
    return m_pVideoModeList;
}

} // namespace kv
