// Where the tests find a real-world take: in the checkout (the takes whose terms allow copying)
// or beside it in the shared data (the others); empty when neither has it.
#pragma once

#include <filesystem>
#include <string>

inline std::string RealWorldTake(const std::string& file) {
  for (const std::filesystem::path& dir : {std::filesystem::path(KNR_SHARED_DATA_DIR "/real-world"),
                                           std::filesystem::path(KNR_REAL_WORLD_SHARED_DIR)}) {
    if (std::filesystem::exists(dir / file)) return (dir / file).string();
  }
  return "";
}
