// The run report: one self-contained page, report.html, that shows every converted take of an
// output folder, opens offline and draws fast however long the takes are.
//
// What the page holds:
//   - a summary line (how many takes, how many failed, how many converted with warnings) or, for
//     a folder without take files, a line that says so;
//   - a table of every take: name, status, frames, skill, feet, distance, heading change, loop
//     window, seam before -> after, warnings, seconds. Failed takes come first and carry their
//     reason in the table, then converted takes with warnings (their rows and sections marked
//     apart, the count in the table), then clean ones; within each group takes are in name
//     order (case-insensitive);
//   - per take: its warnings and seconds per phase, and plots drawn in the browser with the
//     inlined uPlot library: per foot, the heel height over the frames with the contact height
//     limit as a line and the contact intervals as shaded bands; the root path seen from above
//     as a top view shows it (x to the right, z toward the bottom, equal scale on both); the
//     loop seam, the channel over the window played twice, before and after blending, with the
//     join marked. Series are thinned to kPlotPointBudget points (take_file.h), and a take's
//     charts are made only when its section comes near the screen: a browser paints hundreds of
//     chart canvases slowly, so a report of a whole library would otherwise open in seconds.
// Every text from the take files is escaped: HTML text in the page, and the plot data as json in
// a <script type="application/json"> element with '<', '>' and '&' written as \u escapes.
// What makes a file a take file, and how broken ones show, is in take_file.h.
#pragma once

#include <filesystem>
#include <string>

namespace knrconvert {

// Writes DIR/report.html from every take file (*.json with a "take" key) in DIR; false with a
// message naming the file at fault when it cannot.
bool WriteRunReport(const std::filesystem::path& dir, std::string& error);

}  // namespace knrconvert
