// A plain report: one table row per take file of the folder (take, status, skill, frames, loop,
// reason), in take-name order.
#include "report_html.h"

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>
#include <vector>

namespace knrconvert {
namespace {

std::string Escape(const std::string& text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '&': out += "&amp;"; break;
      case '"': out += "&quot;"; break;
      default: out += c;
    }
  }
  return out;
}

std::string Field(const nlohmann::json& j, const char* key) {
  if (!j.contains(key)) return "";
  return j[key].is_string() ? j[key].get<std::string>() : j[key].dump();
}

}  // namespace

bool WriteRunReport(const std::filesystem::path& dir, std::string& error) {
  std::vector<nlohmann::json> takes;
  std::error_code ec;
  for (const auto& entry : std::filesystem::directory_iterator(dir, ec)) {
    if (entry.path().extension() != ".json") continue;
    std::ifstream in(entry.path());
    nlohmann::json j = nlohmann::json::parse(in, nullptr, false);
    if (j.is_discarded()) {
      error = entry.path().string() + ": not a JSON file";
      return false;
    }
    if (j.is_object() && j.contains("take")) takes.push_back(j);
  }
  if (ec) {
    error = dir.string() + ": " + ec.message();
    return false;
  }
  std::sort(takes.begin(), takes.end(), [](const auto& a, const auto& b) { return Field(a, "take") < Field(b, "take"); });
  std::ofstream out(dir / "report.html", std::ios::trunc);
  out << "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>Conversion report</title></head><body>\n"
      << "<table border=\"1\">\n<tr><th>take</th><th>status</th><th>skill</th><th>frames</th><th>loop</th>"
         "<th>reason</th></tr>\n";
  for (const auto& j : takes) {
    out << "<tr><td>" << Escape(Field(j, "take")) << "</td><td>" << Escape(Field(j, "status")) << "</td><td>"
        << Escape(Field(j, "skill")) << "</td><td>" << Escape(Field(j, "frames")) << "</td><td>"
        << Escape(Field(j, "loop")) << "</td><td>" << Escape(Field(j, "reason")) << "</td></tr>\n";
  }
  out << "</table>\n</body></html>\n";
  if (!out.good()) {
    error = (dir / "report.html").string() + ": cannot write";
    return false;
  }
  return true;
}

}  // namespace knrconvert
