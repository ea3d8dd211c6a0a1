#include "engine/VertexData.h"

namespace kv
{

CVertexData::~CVertexData() {}

} // namespace kv
