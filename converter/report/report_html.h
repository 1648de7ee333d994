// The run's report: one HTML page for every take converted into a folder.
#pragma once

#include <filesystem>
#include <string>

namespace knrconvert {

// Writes DIR/report.html from every take file (*.json with a "take" key) in DIR; false with a
// message naming the file at fault when it cannot.
bool WriteRunReport(const std::filesystem::path& dir, std::string& error);

}  // namespace knrconvert
