// The run report page; what it shows is in report_html.h, how take files are read in take_file.h.
#include "converter/report/report_html.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <system_error>
#include <vector>

#include "converter/report/report_assets.h"
#include "converter/report/take_file.h"
#include "files/atomic_file.h"

namespace knrconvert {

namespace {

using nlohmann::json;

constexpr const char* kUnknown = "\u2013";  // en dash: a value the take file does not give

std::string EscapeHtml(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&#39;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

// Json text that is safe inside a <script> element: '<', '>' and '&' only occur inside json
// strings, where their \u escapes mean the same, so no "</script>" or "<!--" can appear.
std::string ScriptJson(const json& value) {
  const std::string text = value.dump(-1, ' ', false, json::error_handler_t::replace);
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '<':
        out += "\\u003c";
        break;
      case '>':
        out += "\\u003e";
        break;
      case '&':
        out += "\\u0026";
        break;
      default:
        out += c;
    }
  }
  return out;
}

constexpr double kExactIntegers = 9007199254740992.0;  // 2^53: doubles hold every integer below

// Plot values keep six significant digits, which is finer than a pixel and keeps a page of many
// long takes small; whole numbers (frames) stay exact.
void RoundNumbers(json& value) {
  if (value.is_number_float()) {
    const double v = value.get<double>();
    if (!std::isfinite(v)) return;
    if (v == std::floor(v) && std::fabs(v) < kExactIntegers) {
      value = static_cast<int64_t>(v);  // "120", not "120.0"
    } else if (v != std::floor(v)) {
      char text[32];
      std::snprintf(text, sizeof text, "%.6g", v);
      value = std::strtod(text, nullptr);
    }
  } else if (value.is_structured()) {
    for (json& item : value) RoundNumbers(item);
  }
}

std::string Format(const char* pattern, double value) {
  char text[64];
  std::snprintf(text, sizeof text, pattern, value);
  return text;
}

// A count with thousands separators ("90,000"); a value that is not whole keeps its fraction.
std::string Count(double value) {
  if (value != std::floor(value) || std::fabs(value) >= 1e15) return Format("%g", value);
  std::string digits = Format("%.0f", std::fabs(value));
  for (size_t i = digits.size(); i > 3; i -= 3) digits.insert(i - 3, ",");
  return value < 0 ? "-" + digits : digits;
}

std::string Or(const std::optional<double>& value, const char* pattern) {
  return value ? Format(pattern, *value) : kUnknown;
}

std::string TextOr(const std::string& text) { return text.empty() ? kUnknown : EscapeHtml(text); }

std::string FeetCell(const TakeReport& take) {
  if (take.feet.empty()) return kUnknown;
  std::string cell;
  for (const auto& [joint, found] : take.feet) {
    if (!cell.empty()) cell += ", ";
    cell += EscapeHtml(joint);
    if (found == "shape") cell += " <span class=\"note\">(by shape)</span>";
  }
  return cell;
}

std::string LoopCell(const TakeReport& take) {
  if (!take.loop) return kUnknown;
  std::string cell = Count(take.loop->start) + ".." + Count(take.loop->end);
  if (!take.loop->foot.empty())
    cell += " <span class=\"note\">" + EscapeHtml(take.loop->foot) + "</span>";
  return cell;
}

std::string SeamCell(const TakeReport& take) {
  if (!take.loop || (!take.loop->seam_before && !take.loop->seam_after)) return kUnknown;
  return Or(take.loop->seam_before, "%.3g") + " \u2192 " + Or(take.loop->seam_after, "%.3g");
}

// A converted take with warnings is one a person should look at: its row stands apart.
bool Warned(const TakeReport& take) { return !take.failed && !take.warnings.empty(); }

std::string TableRow(const TakeReport& take, size_t index) {
  std::string row = take.failed    ? "<tr class=\"failed\">"
                    : Warned(take) ? "<tr class=\"warned\">"
                                   : "<tr>";
  row += "<td class=\"name\"><a href=\"#take-" + std::to_string(index) + "\">" +
         EscapeHtml(take.name) + "</a></td>";
  row += "<td class=\"status\">" + EscapeHtml(take.status);
  if (take.failed) row += "<div class=\"reason\">" + EscapeHtml(take.reason) + "</div>";
  row += "</td>";
  row += "<td class=\"num\">" + (take.frames ? Count(*take.frames) : kUnknown) + "</td>";
  row += "<td>" + TextOr(take.skill) + "</td>";
  row += "<td>" + FeetCell(take) + "</td>";
  row += "<td class=\"num\">" + Or(take.distance, "%.1f") + "</td>";
  row += "<td class=\"num\">" + Or(take.heading_change, "%.1f\u00b0") + "</td>";
  row += "<td>" + LoopCell(take) + "</td>";
  row += "<td class=\"num\">" + SeamCell(take) + "</td>";
  row += "<td class=\"num\">" +
         (Warned(take) ? Count(static_cast<double>(take.warnings.size())) : "") + "</td>";
  row += "<td class=\"num\">" + Or(take.total_seconds, "%.2f s") + "</td>";
  return row + "</tr>\n";
}

std::string TakeSection(const TakeReport& take, size_t index) {
  const std::string id = std::to_string(index);
  std::string html = "<section class=\"take" +
                     std::string(take.failed    ? " failed"
                                 : Warned(take) ? " warned"
                                                : "") +
                     "\" id=\"take-" + id + "\">\n<h2>" + EscapeHtml(take.name) +
                     " <span class=\"badge\">" + EscapeHtml(take.status) + "</span></h2>\n";
  if (take.failed) html += "<p class=\"reason\">" + EscapeHtml(take.reason) + "</p>\n";
  html += "<p class=\"facts\">" + EscapeHtml(take.file);
  if (take.frames) html += " \u00b7 " + Count(*take.frames) + " frames";
  if (take.frame_time) html += Format(" at %.4g s", *take.frame_time);
  if (take.joints) html += " \u00b7 " + Count(*take.joints) + " joints";
  if (!take.cog.empty()) html += " \u00b7 COG " + EscapeHtml(take.cog);
  if (!take.units.empty()) html += " \u00b7 " + EscapeHtml(take.units);
  if (take.threshold) html += Format(" \u00b7 contact threshold %g", *take.threshold);
  for (const auto& [foot, share] : take.agreement) {
    html += " \u00b7 " + EscapeHtml(foot) +
            Format(" contacts agree with its motion on %.0f%% of frames", 100 * share);
  }
  html += "</p>\n";
  if (!take.conditioning.empty()) {
    html += "<p class=\"conditioning\">Conditioned before import: ";
    for (size_t i = 0; i < take.conditioning.size(); ++i)
      html += (i ? "; " : "") + EscapeHtml(take.conditioning[i]);
    html += "</p>\n";
  }
  if (!take.seconds.empty()) {
    html += "<p class=\"phases\">";
    for (size_t i = 0; i < take.seconds.size(); ++i) {
      html += (i ? " \u00b7 " : "") + EscapeHtml(take.seconds[i].first) +
              Format(" %.2f s", take.seconds[i].second);
    }
    html += "</p>\n";
  }
  if (!take.warnings.empty()) {
    html += "<ul class=\"warnings\">";
    for (const std::string& warning : take.warnings) html += "<li>" + EscapeHtml(warning) + "</li>";
    html += "</ul>\n";
  }
  if (!take.plots.is_null()) html += "<div class=\"plots\" data-take=\"" + id + "\"></div>\n";
  return html + "</section>\n";
}

std::string Body(const std::filesystem::path& dir, const std::vector<TakeReport>& takes) {
  std::string html =
      "<header><h1>Run report</h1><p class=\"folder\">" + EscapeHtml(dir.string()) + "</p>\n";
  if (takes.empty()) {
    return html +
           "<p class=\"summary empty\">No take files in this folder: nothing was "
           "converted here yet.</p></header>\n";
  }
  const auto failed =
      std::count_if(takes.begin(), takes.end(), [](const TakeReport& t) { return t.failed; });
  html += "<p class=\"summary\">" + Count(static_cast<double>(takes.size())) +
          (takes.size() == 1 ? " take: " : " takes: ") +
          Count(static_cast<double>(takes.size() - failed)) + " converted, " + "<span class=\"" +
          (failed ? "failed" : "") + "\">" + Count(static_cast<double>(failed)) + " failed</span>";
  const auto warned = std::count_if(takes.begin(), takes.end(), Warned);
  if (warned > 0) {
    html +=
        ", <span class=\"warned\">" + Count(static_cast<double>(warned)) + " with warnings</span>";
  }
  html += "</p></header>\n";
  html +=
      "<table class=\"takes\"><thead><tr><th>Take</th><th>Status</th><th>Frames</th>"
      "<th>Skill</th><th>Feet</th><th>Distance</th><th>Heading change</th><th>Loop</th>"
      "<th>Seam before \u2192 after</th><th>Warnings</th><th>Seconds</th></tr></thead><tbody>\n";
  for (size_t i = 0; i < takes.size(); ++i) html += TableRow(takes[i], i);
  html += "</tbody></table>\n";
  for (size_t i = 0; i < takes.size(); ++i) html += TakeSection(takes[i], i);
  return html;
}

json PlotData(std::vector<TakeReport>& takes) {
  json data = {{"takes", json::array()}};
  for (TakeReport& take : takes) {
    RoundNumbers(take.plots);
    data["takes"].push_back({{"name", take.name},
                             {"units", take.units},
                             {"plots", std::move(take.plots)},
                             {"view", std::move(take.view)}});
  }
  return data;
}

// Fills the {{name}} markers of the template in one pass, so text put in is never re-read.
std::string FillTemplate(std::string_view page,
                         const std::vector<std::pair<std::string_view, std::string_view>>& parts) {
  std::string out;
  size_t at = 0;
  while (true) {
    const size_t open = page.find("{{", at);
    const size_t close = open == std::string_view::npos ? open : page.find("}}", open + 2);
    if (close == std::string_view::npos) break;
    const std::string_view name = page.substr(open + 2, close - open - 2);
    const auto part =
        std::find_if(parts.begin(), parts.end(), [&](const auto& p) { return p.first == name; });
    out.append(page.substr(at, open - at));
    if (part != parts.end()) {
      out.append(part->second);
    } else {
      out.append(page.substr(open, close + 2 - open));
    }
    at = close + 2;
  }
  out.append(page.substr(at));
  return out;
}

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

// The folder's own name, also for "out/" or ".".
std::string FolderName(const std::filesystem::path& dir) {
  std::error_code ec;
  std::filesystem::path path = std::filesystem::absolute(dir, ec).lexically_normal();
  if (path.filename().empty()) path = path.parent_path();
  return path.filename().string();
}

}  // namespace

bool WriteRunReport(const std::filesystem::path& dir, std::string& error) {
  std::error_code ec;
  std::vector<std::filesystem::path> files;
  for (std::filesystem::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
    std::error_code type_ec;
    if (it->path().extension() == ".json" && it->is_regular_file(type_ec)) files.push_back(*it);
  }
  if (ec) {
    error = "cannot read the folder " + dir.string() + ": " + ec.message();
    return false;
  }
  std::sort(files.begin(), files.end());

  std::vector<TakeReport> takes;
  for (const auto& file : files) {
    if (std::optional<TakeReport> take = ReadTakeFile(file)) takes.push_back(std::move(*take));
  }
  std::stable_sort(takes.begin(), takes.end(), [](const TakeReport& a, const TakeReport& b) {
    if (a.failed != b.failed) return a.failed;
    if (Warned(a) != Warned(b)) return Warned(a);
    const std::string la = Lower(a.name), lb = Lower(b.name);
    return la != lb ? la < lb : a.name < b.name;
  });

  const ReportAssets& assets = GetReportAssets();
  const std::string title = EscapeHtml("Run report: " + FolderName(dir));
  const std::string body = Body(dir, takes);
  const std::string data = ScriptJson(PlotData(takes));
  const std::string page =
      FillTemplate(assets.page_template, {{"title", title},
                                          {"uplot_style", assets.uplot_style},
                                          {"uplot_license", assets.uplot_license},
                                          {"page_style", assets.page_style},
                                          {"body", body},
                                          {"data", data},
                                          {"uplot_script", assets.uplot_script},
                                          {"three_license", assets.three_license},
                                          {"three_script", assets.three_script},
                                          {"view_script", assets.view_script},
                                          {"page_script", assets.page_script}});
  const std::string target = (dir / "report.html").string();
  const Zyra::CStatus status = Zyra::rt::WriteFileReplacing(target, page);
  if (!status.Succeeded()) {
    error = status.GetMessage().GetAsciiString();
    return false;
  }
  return true;
}

}  // namespace knrconvert
