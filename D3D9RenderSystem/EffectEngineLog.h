#pragma once
// Points the effect reader's messages at the engine's log: errors go to
// kv::LogErrorImpl with their source position, warnings to kv::LogWarning.
// The plug-in calls this once before it reads effects.
void ConnectEffectLogToEngine();
