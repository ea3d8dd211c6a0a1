#include "engine/HardwareOcclusionQuery.h"

namespace kv
{

CHardwareOcclusionQuery::~CHardwareOcclusionQuery() {}

} // namespace kv
