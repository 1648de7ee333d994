// libFuzzer harness of the weight-file reader: any input either is refused with a reason, or it is
// a whole weight file and nothing else: records that write back to the very same bytes, or no
// records from a lone record count of 0 or less. Bytes after the last record (after a count of 0
// or -1 as well) must be refused.
#include "knrexport/actor/weight_file.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::vector<std::uint8_t> input(bytes, bytes + size);
  WeightList records;
  std::wstring problem;
  if (!DecodeWeightFile(input, records, problem)) {
    if (problem.empty() || !records.empty()) std::abort();
    return 0;
  }
  for (const WeightData& record : records) {
    if (record.points.size() != record.weights.size()) std::abort();
  }
  if (records.empty()) {
    // Only the count, and it announces no record: zero, or its sign bit set.
    if (size != 4) std::abort();
    const bool negative = (bytes[3] & 0x80) != 0;
    const bool zero = (bytes[0] | bytes[1] | bytes[2] | bytes[3]) == 0;
    if (!negative && !zero) std::abort();
  } else if (EncodeWeightFile(records) != input) {
    std::abort();
  }
  return 0;
}
