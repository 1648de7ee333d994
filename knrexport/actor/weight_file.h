// The weight file saved beside an actor file: the actor's weight maps (WeightData) in a small
// binary layout, little-endian, without a header:
//
//   int32  record count          0 or less: no records
//   for each record:
//     int32  value count n
//     n x int32    point indices of the mesh
//     n x float32  weights of those points, in percent
//
// A file is read whole and checked before any record is kept: a count that is negative or larger
// than the bytes left, a file that ends early, or bytes after the last record refuse the file.
// It is written to a temporary file beside the target and renamed over it, so a failed write
// leaves the older file in place.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "knrexport/actor/weight_maps.h"
#include "zyra/core.h"

// The weight file of an actor file: its extension replaced by "wgmp" ("walker.zyra" gives
// "walker.wgmp"); a name without extension gets ".wgmp" appended.
Zyra::CString WeightFileName(const Zyra::CString& actorFile);

// The file's bytes for `records`.
std::vector<std::uint8_t> EncodeWeightFile(const WeightList& records);
// Reads `records` from `bytes`; false with `problem` set when the bytes are no weight file.
bool DecodeWeightFile(const std::vector<std::uint8_t>& bytes, WeightList& records,
                      std::wstring& problem);

// Writes the file `path` (through a temporary file and a rename); false when it could not be
// written, with the older file left as it was.
bool WriteWeightFile(const Zyra::CString& path, const WeightList& records);
// Reads the file `path`. A missing file gives no records and true. A file that cannot be read or
// is no weight file gives no records, a message naming it, and false.
bool ReadWeightFile(const Zyra::CString& path, WeightList& records);

// Writes `bytes` to `path` through a temporary file beside it and a rename; false on failure,
// leaving `path` untouched and no temporary file behind.
bool ReplaceFile(const Zyra::CString& path, const std::vector<std::uint8_t>& bytes);
