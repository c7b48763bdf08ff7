// Marks what a dynamic library exports: classes, operators and free functions that a host links against.
#pragma once

#if defined(_WIN32)
#define KORVANE_EXPORTED __declspec(dllexport)
#define KORVANE_IMPORTED __declspec(dllimport)
#else
#define KORVANE_EXPORTED __attribute__((visibility("default")))
#define KORVANE_IMPORTED __attribute__((visibility("default")))
#endif

// The module.
#if defined(KORVANE_BUILDING)
#define KORVANE_API KORVANE_EXPORTED
#else
#define KORVANE_API KORVANE_IMPORTED
#endif
