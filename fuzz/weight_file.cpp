// libFuzzer harness of the weight-file reader: any input either is refused with a reason, or it is
// a whole weight file and nothing else: records that write back to the very same bytes, or no
// records from a lone record count of 0 or less. Bytes after the last record (after a count of 0
// or -1 as well) must be refused.
#include "knrexport/actor/weight_file.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

void Fail(const char* what) {
  std::fprintf(stderr, "weight_file: %s\n", what);
  std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::vector<std::uint8_t> input(bytes, bytes + size);
  WeightList records;
  std::wstring problem;
  if (!DecodeWeightFile(input, records, problem)) {
    if (problem.empty()) Fail("a refused file without a reason");
    if (!records.empty()) Fail("a refused file left records");
    return 0;
  }
  for (const WeightData& record : records) {
    if (record.points.size() != record.weights.size()) Fail("a record of unequal arrays");
  }
  if (records.empty()) {
    // Only the count, and it announces no record: zero, or its sign bit set.
    if (size != 4) Fail("bytes after a record count of 0 or less were read as no records");
    const bool negative = (bytes[3] & 0x80) != 0;
    const bool zero = (bytes[0] | bytes[1] | bytes[2] | bytes[3]) == 0;
    if (!negative && !zero) Fail("a positive record count gave no records");
  } else if (EncodeWeightFile(records) != input) {
    Fail("the records do not write back to the bytes they were read from");
  }
  return 0;
}
