// The weight file saved beside an actor file: the actor's weight maps (WeightData) in a small
// binary layout, little-endian, without a header:
//
//   int32  record count          0 or less: no records
//   for each record:
//     int32  value count n
//     n x int32    point indices of the mesh, each at most once
//     n x float32  weights of those points, in percent
//
// A file is read whole and checked before any record is kept. It is refused when it is not a
// regular file, when it ends early, when a count is negative or larger than the bytes left, when
// a record lists a point twice, or when any byte follows the last record (also after a record
// count of 0 or less, which announces that nothing follows). Writing it is the actor file
// writer's work (actor_file_writer.h), which puts it in place together with its actor file.
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

// Reads the file `path`. A missing file gives no records and true. A file that is not a regular
// file, cannot be read or is no weight file gives no records, a message naming it, and false.
bool ReadWeightFile(const Zyra::CString& path, WeightList& records);
