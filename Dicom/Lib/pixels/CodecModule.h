/* What a codec module and the codec manager say to each other, in plain C: for authors of modules.
 *
 * A module is a dynamic library, "DcmCodec.dll" (POSIX: "DcmCodec.so") or one that the list file "DcmCodecMgr.ini" beside
 * it names. It exports the four functions below, and its codecs turn one frame of pixels into its compressed form or
 * back. Fragments, offset tables, frames and the attributes of the data set are the manager's business.
 *
 * No exception may leave a module: every call returns a result. All calls come on one thread. Memory never changes
 * hands: the manager owns every buffer, and a codec that needs memory beyond a call frees it in "DcmFreeCodec".
 * Integers have the width and the byte order of the machine.
 */
#ifndef KORVANE_CODEC_MODULE_H
#define KORVANE_CODEC_MODULE_H

#include "../../../base/CodecExport.h"

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Raised when a field below changes its meaning. The manager passes over codecs of another version. */
#define DCM_CODEC_VERSION 1

/* DcmCodecProps.abilities */
#define DCM_CODEC_DECODES 1
#define DCM_CODEC_ENCODES 2
#define DCM_CODEC_LOSSY 4 /* what it encodes, or what its streams hold, may differ from the pixels that went in */

/* DcmCodecProps.flags: the codec changes the pixels. Clear: only the transfer syntax of the data set is changed. */
#define DCM_CODEC_CONVERTS 1

/* 72 bytes; the UID first and the flags at byte 68 are fixed, the rest is carried along as it is. */
typedef struct DcmCodecProps {
    char transferSyntax[64]; /* the UID, ended by a zero byte */
    uint8_t version;         /* DCM_CODEC_VERSION */
    uint8_t abilities;
    uint8_t reserved[2]; /* 0 */
    uint32_t flags;
} DcmCodecProps;

/* What a frame is (PS3.3 C.7.6.3). The pixels of a frame that is not compressed lie in rows from the top, without gaps,
 * little endian, samples as (0028,0006) says; a frame of 1-bit pixels never comes to a codec. Limits that the manager
 * has checked: columns and rows 1 to 65535, samples 1 to 4, bits allocated 8, 16 or 32, bits stored 1 to bits allocated,
 * and a frame below 2 GB. */
typedef struct DcmFrameFormat {
    uint32_t size; /* sizeof(DcmFrameFormat) */
    uint32_t columns;
    uint32_t rows;
    uint32_t samplesPerPixel;
    uint32_t bitsAllocated;
    uint32_t bitsStored;
    uint32_t highBit;
    uint32_t pixelRepresentation; /* 0 unsigned, 1 two's complement */
    uint32_t planarConfiguration; /* 0 samples of a pixel together, 1 one plane a sample */
    uint32_t lossy;               /* out: 1 when the stream's pixels are not those that went into its encoder */
    char photometric[20];         /* (0028,0004) without padding, ended by a zero byte */
} DcmFrameFormat;

/* Takes bytes of an encoded frame in order; 0 when there is no room for them, whereupon the codec gives up. */
typedef int (*DcmCodecWrite)(void* context, const void* bytes, size_t count);

/* A codec object, as "DcmGetCodec" returns it; the module owns it until "DcmFreeCodec".
 *
 * Results are 1 and 0. On 0 the codec puts a reason into `error`, ended by a zero byte and at most `errorCapacity` bytes
 * with it; the manager adds which frame it was. A function that the codec lacks is null. */
typedef struct DcmCodec {
    uint32_t size; /* sizeof(DcmCodec) of the module's header; the manager refuses a smaller one than it needs */
    uint32_t reserved;

    /* One frame. `format` says what the data set says; the codec changes in it what is different of the pixels that it
     * gives: photometric, planarConfiguration, lossy, and bitsStored, highBit, pixelRepresentation where the stream's
     * pixels need it. Columns, rows, samples and bits allocated stay: a stream of other dimensions is a failure.
     * `pixels` has room for exactly columns x rows x samples x bitsAllocated / 8 bytes, `capacity`, and all of them are
     * written, or the result is 0. */
    int (*DecodeFrame)(struct DcmCodec* codec, DcmFrameFormat* format, const void* stream, size_t streamSize,
                       void* pixels, size_t capacity, char* error, size_t errorCapacity);

    /* The reverse. What the codec changes in `format` (photometric, planarConfiguration, lossy) becomes what the data
     * set says; it must be the same for all frames of an image. */
    int (*EncodeFrame)(struct DcmCodec* codec, DcmFrameFormat* format, const void* pixels, size_t pixelSize,
                       DcmCodecWrite write, void* context, char* error, size_t errorCapacity);
} DcmCodec;

/* The four entry points, by these names; a module defines them with DCM_CODEC_EXPORT in front. */
typedef int (*DcmGetCodecCountFunction)(void);                            /* "DcmGetCodecCount" */
typedef int (*DcmGetCodecPropsFunction)(int index, DcmCodecProps* props); /* "DcmGetCodecProps": 0 past the last */
typedef DcmCodec* (*DcmGetCodecFunction)(int index);                      /* "DcmGetCodec": null on failure */
typedef void (*DcmFreeCodecFunction)(DcmCodec* codec);                    /* "DcmFreeCodec" */

#ifdef __cplusplus
}
#endif

#endif
