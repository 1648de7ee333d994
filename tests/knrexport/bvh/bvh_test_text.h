// Helpers of the BVH reader tests: files as text, and text read through the in-memory path.
#pragma once

#include <fstream>
#include <sstream>
#include <string>

#include "knrexport/bvh/bvh_file.h"

inline std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

inline std::wstring Wide(const std::string& s) { return std::wstring(s.begin(), s.end()); }

// Reads hierarchy and motion of `text` through the in-memory path.
inline bool ReadText(ZyraBvFile& file, MocapData& data, const std::string& text, float scale = 1.0f,
                     bool firstFrameOnly = false) {
  return file.OpenMemory(text.data(), text.size(), scale) && file.ReadHierarchy() &&
         file.ReadMotionData(&data, firstFrameOnly);
}
