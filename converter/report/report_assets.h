// The files the run report inlines into its page, compiled into the library (see CMakeLists.txt
// beside this file for where each one comes from).
#pragma once

#include <string_view>

namespace knrconvert {

struct ReportAssets {
  std::string_view uplot_script;   // uPlot, minified
  std::string_view uplot_style;    // uPlot's style sheet
  std::string_view uplot_license;  // uPlot's licence text
  std::string_view three_script;   // the parts of three.js the 3D view uses, minified
  std::string_view three_license;  // three.js's licence text
  std::string_view page_template;  // the page; {{NAME}} marks where generated parts go
  std::string_view page_style;     // the page's own style sheet
  std::string_view page_script;    // draws the plots from the page's embedded data
  std::string_view view_script;    // plays each take's skeleton in a 3D view
};

// The embedded files; they live as long as the program.
const ReportAssets& GetReportAssets();

}  // namespace knrconvert
