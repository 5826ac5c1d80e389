#pragma once

/// Every exported declaration has FL_EXPORT; everything else is hidden. The library's build defines FL_BUILDING.
#if !defined(_WIN32)
#define FL_EXPORT __attribute__((visibility("default")))
#elif defined(FL_BUILDING)
#define FL_EXPORT __declspec(dllexport)
#else
#define FL_EXPORT __declspec(dllimport)
#endif
