#pragma once

/// The public data dictionary of the DICOM standard: tag, value representation and name of every attribute of PS3.6
/// (edition 2022b, retired attributes included), of the command elements of PS3.7 (group 0000), and the item and
/// delimiter tags of PS3.5 (group FFFE). It is what a host fills its DcmDictionary with.
///
/// Rows are in ascending order of their unsigned 32-bit key, one row a tag; the table is constant data of the program,
/// so rows and names are valid as long as the program runs, need no freeing, and may be read from any thread.
///
/// Names are those that PS3.6 prints ("Patient's Name"), in ASCII: the micro sign is a "u".
///
/// Value representations: each row has one code, two letters with the first in the high byte.
/// - "US or SS" is US, and the row's flags hold kAmbiguousUsSs: Pixel Representation (0028,0103) of the data set
///   decides between the two.
/// - "OB or OW" is OW, which the implicit syntax fixes for it; so is look-up table data ("US or OW"), which can be
///   longer than a US in the explicit syntaxes can say. Encapsulated pixel data is OB all the same (PS3.5 A.4).
/// - Items and delimiters have none: their code is 0.
///
/// Repeating groups stand one row a tag: curves in the even groups 5000 to 501E, overlays in 6000 to 601E (PS3.5 7.6),
/// variable pixel data in 7F00 to 7FFE, and (0020,31xx), (0028,04xy), (0028,08xy) with every x.
///
/// Not in the table: private tags and their creators, group lengths other than those of groups 0000 and 0002,
/// the compression tables (1000,xxx0) to (1000,xxx5) and (1010,xxxx), retired with ACR-NEMA, which would take 90,112
/// rows, and the six tags whose names the standard has withdrawn ((0008,0202), (0018,0061), (0018,9445), (0028,0020),
/// (0400,0315) and (300A,0782)).

#include "DcmDictionary.h"

#include <cstddef>
#include <cstdint>

/// Bit of DcmDictionaryRow::flags: the standard says "US or SS".
inline constexpr std::uint32_t kAmbiguousUsSs = 1;

/// The first row; `count` receives the number of rows. Never null.
const DcmDictionaryRow* PublicDictionaryRows(std::size_t& count);

/// A dictionary of those rows, built at the first call. Nobody may change it: it is not const because codecs take theirs so.
/// Throws `std::bad_alloc`.
DcmDictionary& SharedPublicDictionary();
