// libFuzzer harness of the weight-file reader: any input either is refused with a reason or reads
// as records that write back to the very same bytes (when it holds any record).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "knrexport/actor/weight_file.h"

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
  if (!records.empty() && EncodeWeightFile(records) != input) std::abort();
  return 0;
}
