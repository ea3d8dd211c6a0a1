#pragma once
// Classes, functions and data of the engine library carry KV_API: exported while
// the engine itself is built, imported by everything that links against it.
#if defined(_WIN32)
#if defined(KV_BUILDING_ENGINE)
#define KV_API __declspec(dllexport)
#else
#define KV_API __declspec(dllimport)
#endif
#else
#define KV_API
#endif
