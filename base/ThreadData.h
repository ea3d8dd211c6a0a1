#pragma once
// The private state of a Thread. The flags are read by one thread and written by another
// (main polls running while the owner clears it), so they are atomics; a plain byte would
// be a data race that the compiler is free to hoist out of the polling loop.
#include <atomic>
#include <cstdint>
#include <windows.h>

struct ThreadData
{
    uint32_t id = 0;         // written by CreateThread
    HANDLE handle = nullptr; // the thread; null while there is none
    HANDLE event = nullptr;  // auto-reset, unsignalled: what a paused thread waits on
    std::atomic<bool> running{false};
    std::atomic<bool> paused{false};
};
