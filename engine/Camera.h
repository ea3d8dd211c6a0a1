#pragma once
namespace kv
{

// Only passed through by the render system, never looked into.
class CCamera
{
};

} // namespace kv
