// The weight file: its name, its bytes, and reading it from disk.
#include "knrexport/actor/weight_file.h"

#include <cstring>
#include <unordered_set>

#include "knrexport/scene/file_reading.h"
#include "knrexport/scene/host_calls.h"

using namespace Zyra;

namespace {

void PutInt(std::vector<std::uint8_t>& out, std::uint32_t v) {
  for (int shift = 0; shift < 32; shift += 8) out.push_back(static_cast<std::uint8_t>(v >> shift));
}

std::uint32_t GetInt(const std::vector<std::uint8_t>& in, size_t at) {
  std::uint32_t v = 0;
  for (int i = 3; i >= 0; --i) v = (v << 8) | in[at + static_cast<size_t>(i)];
  return v;
}

}  // namespace

CString WeightFileName(const CString& actorFile) {
  const std::wstring name = actorFile.Wide();
  const size_t dot = name.find_last_of(L'.');
  const size_t slash = name.find_last_of(L"/\\");
  if (dot == std::wstring::npos || (slash != std::wstring::npos && dot < slash))
    return CString(name + L".wgmp");
  return CString(name.substr(0, dot) + L".wgmp");
}

std::vector<std::uint8_t> EncodeWeightFile(const WeightList& records) {
  std::vector<std::uint8_t> out;
  PutInt(out, static_cast<std::uint32_t>(records.size()));
  for (const WeightData& record : records) {
    PutInt(out, static_cast<std::uint32_t>(record.points.size()));
    for (std::int32_t point : record.points) PutInt(out, static_cast<std::uint32_t>(point));
    for (float weight : record.weights) {
      std::uint32_t bits;
      std::memcpy(&bits, &weight, sizeof bits);
      PutInt(out, bits);
    }
  }
  return out;
}

bool DecodeWeightFile(const std::vector<std::uint8_t>& bytes, WeightList& records,
                      std::wstring& problem) {
  WeightList read;
  if (bytes.size() < 4) {
    problem = L"the file ends before its record count";
    return false;
  }
  const auto count = static_cast<std::int32_t>(GetInt(bytes, 0));
  size_t at = 4;
  if (count <= 0 && bytes.size() > at) {
    problem = std::to_wstring(bytes.size() - at) + L" bytes follow a record count of " +
              std::to_wstring(count);
    return false;
  }
  // Every record takes at least its own count: a larger count cannot be true.
  if (count > 0 && static_cast<size_t>(count) > (bytes.size() - at) / 4) {
    problem = L"its record count " + std::to_wstring(count) + L" does not fit in the file";
    return false;
  }
  for (std::int32_t r = 0; r < count; ++r) {
    const std::wstring which = L"record " + std::to_wstring(r + 1);
    if (bytes.size() - at < 4) {
      problem = L"the file ends in " + which;
      return false;
    }
    const auto n = static_cast<std::int32_t>(GetInt(bytes, at));
    at += 4;
    if (n < 0) {
      problem = which + L" has a negative value count (" + std::to_wstring(n) + L")";
      return false;
    }
    if (static_cast<size_t>(n) > (bytes.size() - at) / 8) {
      problem = L"the file ends in " + which + L" (" + std::to_wstring(n) + L" values announced)";
      return false;
    }
    WeightData record;
    record.points.resize(static_cast<size_t>(n));
    record.weights.resize(static_cast<size_t>(n));
    std::unordered_set<std::int32_t> seen;
    for (size_t i = 0; i < record.points.size(); ++i, at += 4) {
      record.points[i] = static_cast<std::int32_t>(GetInt(bytes, at));
      if (!seen.insert(record.points[i]).second) {
        problem = which + L" lists point " + std::to_wstring(record.points[i]) + L" twice";
        return false;
      }
    }
    for (size_t i = 0; i < record.weights.size(); ++i, at += 4) {
      const std::uint32_t bits = GetInt(bytes, at);
      std::memcpy(&record.weights[i], &bits, sizeof bits);
    }
    read.push_back(std::move(record));
  }
  if (at != bytes.size()) {
    problem = std::to_wstring(bytes.size() - at) + L" bytes follow the last record";
    return false;
  }
  records = std::move(read);
  return true;
}

bool ReadWeightFile(const CString& path, WeightList& records) {
  records.clear();
  std::vector<std::uint8_t> bytes;
  std::string refused;
  const FileState state = ReadRegularFile(ToUtf8(path.Wide()), bytes, refused);
  if (state == FileState::kMissing) return true;
  std::wstring problem = FromUtf8(refused);
  if (state == FileState::kRefused || !DecodeWeightFile(bytes, records, problem)) {
    ShowMessage(path + L": " + CString(problem) + L". The actor is loaded without its weights.");
    return false;
  }
  return true;
}
