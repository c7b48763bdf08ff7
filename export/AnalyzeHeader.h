// The header of an Analyze 7.5 volume, in memory.
#pragma once

#include <cstdint>

/// The fields of the 348-byte file, in its order and under the names that the format gives them; the comment is the
/// field's offset in the file. Texts are one byte longer here than in the file, for the zero byte at their end.
///
/// Units: pixdim in millimetres (in the unit vox_units names, for files from elsewhere), dim in voxels.
struct AnalyzeHeader {
    // header key
    std::int32_t sizeof_hdr;     ///<   0: always 348
    char data_type[11];          ///<   4
    char db_name[19];            ///<  14
    std::int32_t extents;        ///<  32
    std::int16_t session_error;  ///<  36
    char regular;                ///<  38: 'r', all volumes of one size
    char hkey_un0;               ///<  39
    // image dimension
    std::int16_t dim[8];    ///<  40: number of dimensions, width, height, slices, volumes
    char vox_units[5];      ///<  56
    char cal_units[9];      ///<  60
    std::int16_t unused1;   ///<  68
    std::int32_t datatype;  ///<  70: 2 unsigned char, 4 signed short, 16 float; 16 bits wide in the file
    std::int16_t bitpix;    ///<  72
    std::int16_t dim_un0;   ///<  74
    float pixdim[8];        ///<  76: [1] to [3] the distances of columns, rows, slices
    float vox_offset;       ///< 108
    float funused1;         ///< 112
    float funused2;         ///< 116
    float funused3;         ///< 120
    float cal_max;          ///< 124
    float cal_min;          ///< 128
    float compressed;       ///< 132
    float verified;         ///< 136
    std::int32_t glmax;     ///< 140
    std::int32_t glmin;     ///< 144
    // data history
    char descrip[81];            ///< 148
    char aux_file[25];           ///< 228
    char orient;                 ///< 252: 0 transverse, unflipped
    std::int16_t originator[5];  ///< 253: centre voxel
    char generated[11];          ///< 263
    char scannum[11];            ///< 273
    char patient_id[11];         ///< 283
    char exp_date[11];           ///< 293
    char exp_time[11];           ///< 303
    char hist_un0[4];            ///< 313
    std::int32_t views;          ///< 316
    std::int32_t vols_added;     ///< 320
    std::int32_t start_field;    ///< 324
    std::int32_t field_skip;     ///< 328
    std::int32_t omax;           ///< 332
    std::int32_t omin;           ///< 336
    std::int32_t smax;           ///< 340
    std::int32_t smin;           ///< 344
};
