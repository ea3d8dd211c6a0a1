#include "engine/IndexData.h"

namespace kv
{

CIndexData::~CIndexData() {}

} // namespace kv
