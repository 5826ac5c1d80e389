#pragma once

/// Every exported declaration has FOUNDATION_EXPORT; everything else is hidden. The library's build defines
/// FOUNDATION_BUILDING.
#if !defined(_WIN32)
#define FOUNDATION_EXPORT __attribute__((visibility("default")))
#elif defined(FOUNDATION_BUILDING)
#define FOUNDATION_EXPORT __declspec(dllexport)
#else
#define FOUNDATION_EXPORT __declspec(dllimport)
#endif
