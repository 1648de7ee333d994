// Throughput of the BVH reader on a ~70 MB file (a real file's frames repeated to 90,000), next
// to a bare std::from_chars loop over the same bytes: the floor that any one-thread text reader
// of these numbers pays. On a take this long the reader uses two threads, so compare real time;
// the CPU column counts only the benchmark's own thread.
#include <benchmark/benchmark.h>

#include <cctype>
#include <charconv>
#include <fstream>
#include <sstream>
#include <string>

#include "bench/bvh_big_file.h"
#include "knrexport/bvh/bvh_file.h"

namespace {

constexpr int kBigFrames = 90000;

const std::string& BigPath() {
  static const std::string path = [] {
    const std::string out = "/tmp/zyra_bvh_bench_90000.bvh";
    if (!MakeBigBvh(KNR_SHARED_DATA_DIR "/bvh/01_03.bvh", out, kBigFrames)) return std::string();
    return out;
  }();
  return path;
}

const std::string& BigText() {
  static const std::string text = [] {
    std::ifstream in(BigPath(), std::ios::binary);
    std::stringstream whole;
    whole << in.rdbuf();
    return whole.str();
  }();
  return text;
}

void BM_BvhReadFile(benchmark::State& state) {
  const std::string& path = BigPath();
  if (path.empty()) return state.SkipWithError("cannot build the big BVH file");
  const std::wstring wide(path.begin(), path.end());
  const std::size_t bytes = BigText().size();
  for (auto _ : state) {
    ZyraBvFile file;
    MocapData data;
    if (!file.Open(wide.c_str(), 1.0f) || !file.ReadHierarchy() ||
        !file.ReadMotionData(&data, false)) {
      return state.SkipWithError(file.LastError());
    }
    benchmark::DoNotOptimize(data.records[data.nodeCount - 1].samples[kBigFrames - 1]);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}
BENCHMARK(BM_BvhReadFile)->Unit(benchmark::kMillisecond)->UseRealTime();

// The same parser on the text already in memory (the copy it takes is included).
void BM_BvhReadMemory(benchmark::State& state) {
  const std::string& text = BigText();
  if (text.empty()) return state.SkipWithError("cannot build the big BVH file");
  for (auto _ : state) {
    ZyraBvFile file;
    MocapData data;
    if (!file.OpenMemory(text.data(), text.size(), 1.0f) || !file.ReadHierarchy() ||
        !file.ReadMotionData(&data, false)) {
      return state.SkipWithError(file.LastError());
    }
    benchmark::DoNotOptimize(data.records[data.nodeCount - 1].samples[kBigFrames - 1]);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_BvhReadMemory)->Unit(benchmark::kMillisecond)->UseRealTime();

// Every whitespace-separated token parsed with from_chars, words skipped, nothing stored.
void BM_FromCharsBaseline(benchmark::State& state) {
  const std::string& text = BigText();
  if (text.empty()) return state.SkipWithError("cannot build the big BVH file");
  const auto space = [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); };
  for (auto _ : state) {
    const char* p = text.data();
    const char* const end = p + text.size();
    float sum = 0.0f;
    std::size_t count = 0;
    while (p < end) {
      while (p < end && space(*p)) ++p;
      if (p == end) break;
      float v = 0.0f;
      const std::from_chars_result r = std::from_chars(p, end, v);
      if (r.ec == std::errc()) {
        sum += v;
        ++count;
        p = r.ptr;
      } else {
        while (p < end && !space(*p)) ++p;
      }
    }
    benchmark::DoNotOptimize(sum);
    benchmark::DoNotOptimize(count);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_FromCharsBaseline)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
