// Marks what the dynamic module exports: classes, operators and free functions that a host links against.
#pragma once

#if defined(_WIN32)
#if defined(KORVANE_BUILDING)
#define KORVANE_API __declspec(dllexport)
#else
#define KORVANE_API __declspec(dllimport)
#endif
#else
#define KORVANE_API __attribute__((visibility("default")))
#endif
