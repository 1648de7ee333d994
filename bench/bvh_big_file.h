// A large BVH file for measuring the reader: the hierarchy of a real file followed by its frames
// repeated until the wanted count. Shared by the benchmark and the comparison tool.
#pragma once

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

// Writes `out` from `source` with `frames` frames (the source's frames over and over, "Frames:"
// set to match) unless `out` exists already. Returns false when the source cannot be read.
inline bool MakeBigBvh(const std::string& source, const std::string& out, int frames) {
  if (std::ifstream(out).good()) return true;
  std::ifstream in(source, std::ios::binary);
  if (!in) return false;
  std::stringstream whole;
  whole << in.rdbuf();
  const std::string text = whole.str();
  const std::size_t motion = text.find("MOTION");
  const std::size_t timeLine = text.find("Frame Time:", motion);
  if (motion == std::string::npos || timeLine == std::string::npos) return false;
  const std::size_t firstFrame = text.find('\n', timeLine) + 1;
  std::string body = text.substr(firstFrame);
  if (!body.empty() && body.back() != '\n') body += '\n';
  int perCopy = 0;
  for (const char c : body) perCopy += c == '\n';
  if (perCopy == 0) return false;

  const std::string tmp = out + ".part";
  std::ofstream file(tmp, std::ios::binary);
  file << text.substr(0, motion) << "MOTION\nFrames: " << frames << "\n"
       << text.substr(timeLine, firstFrame - timeLine);
  for (int written = 0; written < frames;) {
    if (frames - written >= perCopy) {
      file << body;
      written += perCopy;
      continue;
    }
    std::size_t end = 0;  // the first frames - written lines of the body
    for (int line = 0; line < frames - written; ++line) end = body.find('\n', end) + 1;
    file << body.substr(0, end);
    written = frames;
  }
  file.close();
  return file.good() && std::rename(tmp.c_str(), out.c_str()) == 0;
}
