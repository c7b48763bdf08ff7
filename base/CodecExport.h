/* Marks what a codec module exports. Plain C, like everything that an author of modules includes. */
#ifndef KORVANE_CODEC_EXPORT_H
#define KORVANE_CODEC_EXPORT_H

#if defined(_WIN32)
#define DCM_CODEC_EXPORT __declspec(dllexport)
#else
#define DCM_CODEC_EXPORT __attribute__((visibility("default")))
#endif

#endif
