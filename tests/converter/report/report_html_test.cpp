#include "converter/report/report_html.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

namespace knrconvert {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

class ReportFolder {
 public:
  explicit ReportFolder(const std::string& name)
      : dir_(fs::path(::testing::TempDir()) /
             ("knr_report_" + name + "_" + std::to_string(::getpid()))) {
    fs::remove_all(dir_);
    fs::create_directories(dir_);
  }
  ~ReportFolder() { fs::remove_all(dir_); }

  void Write(const std::string& file, const std::string& text) const {
    std::ofstream(dir_ / file, std::ios::binary) << text;
  }
  // Writes the report and returns the page; fails the test when it is not written.
  std::string Report() const {
    std::string error;
    EXPECT_TRUE(WriteRunReport(dir_, error)) << error;
    std::ifstream in(dir_ / "report.html", std::ios::binary);
    std::stringstream page;
    page << in.rdbuf();
    return page.str();
  }
  const fs::path& dir() const { return dir_; }

 private:
  fs::path dir_;
};

std::string Between(const std::string& page, const std::string& open, const std::string& close) {
  const size_t start = page.find(open);
  if (start == std::string::npos) return "";
  const size_t end = page.find(close, start + open.size());
  return page.substr(start + open.size(),
                     end == std::string::npos ? end : end - start - open.size());
}

std::string Table(const std::string& page) { return Between(page, "<tbody>", "</tbody>"); }

std::string EmbeddedText(const std::string& page) {
  return Between(page, "<script type=\"application/json\" id=\"report-data\">", "</script>");
}

json EmbeddedData(const std::string& page) { return json::parse(EmbeddedText(page)); }

TEST(RunReport, HostileTextIsEscapedInThePageAndItsData) {
  struct Case {
    std::string name;
    std::string escaped;
  };
  const Case cases[] = {
      {"<script>alert(1)</script>", "&lt;script&gt;alert(1)&lt;/script&gt;"},
      {"walk & \"run\" 'jog'", "walk &amp; &quot;run&quot; &#39;jog&#39;"},
      {"</script><!--x", "&lt;/script&gt;&lt;!--x"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ReportFolder folder("hostile");
    json take = {
        {"take", c.name},
        {"status", "failed"},
        {"reason", "bad " + c.name},
        {"warnings", {c.name}},
        {"feet", {{{"joint", c.name}, {"found", "name"}}}},
        {"plots",
         {{"seam",
           {{"channel", c.name}, {"frames", {1, 2}}, {"before", {0.5, 1}}, {"after", {0.5, 1}}}}}}};
    folder.Write("take.json", take.dump());
    const std::string page = folder.Report();
    EXPECT_EQ(page.find(c.name), std::string::npos) << "raw text in the page";
    EXPECT_NE(Table(page).find("<a href=\"#take-0\">" + c.escaped + "</a>"), std::string::npos);
    EXPECT_NE(Table(page).find("bad " + c.escaped), std::string::npos);
    EXPECT_EQ(EmbeddedText(page).find('<'), std::string::npos) << "a tag could end the data";
    const json data = EmbeddedData(page);
    EXPECT_EQ(data["takes"][0]["name"], c.name);
    EXPECT_EQ(data["takes"][0]["plots"]["seam"]["channel"], c.name);
  }
}

TEST(RunReport, FailedTakesComeFirstThenTakesWithWarnings) {
  ReportFolder folder("failed");
  folder.Write("a_walk.json", json{{"take", "a_walk"}, {"status", "ok"}, {"frames", 1234}}.dump());
  folder.Write("z_pop.json", json{{"take", "z_pop"},
                                  {"status", "ok"},
                                  {"warnings", {"loop pop", "one-frame contact"}}}
                                 .dump());
  folder.Write("b_bad.json",
               json{{"take", "b_bad"},
                    {"status", "failed"},
                    {"reason", "/takes/b_bad.bvh line 12: 5 channels given, 6 expected"}}
                   .dump());
  folder.Write("c_quiet.json", json{{"take", "c_quiet"}, {"status", "failed"}}.dump());
  folder.Write("broken.json", "{\"take\": \"broken\", \"frames\": ");
  folder.Write("notes.json", json{{"comment", "not a take"}}.dump());

  const std::string table = Table(folder.Report());
  const std::string file = (folder.dir() / "broken.json").string();
  const std::string failed_reasons[] = {
      "/takes/b_bad.bvh line 12: 5 channels given, 6 expected",
      "cannot read " + file + ": parse error at line 1",
      "no reason given",
  };
  size_t previous = 0;
  for (const std::string& reason : failed_reasons) {
    const size_t at = table.find("<div class=\"reason\">" + reason);
    EXPECT_NE(at, std::string::npos) << reason;
    EXPECT_GE(at, previous) << "failed rows in name order: " << reason;
    previous = at;
  }
  const size_t warned = table.find("<tr class=\"warned\"><td class=\"name\"><a href=\"#take-3\">z_pop<");
  EXPECT_GT(warned, previous) << "the take with warnings after the failures, marked apart";
  EXPECT_GT(table.find(">a_walk<"), warned) << "the clean take last";
  EXPECT_NE(table.find("<td class=\"num\">2</td>", warned), std::string::npos) << "its warnings counted";
  EXPECT_NE(table.find("1,234"), std::string::npos);
  EXPECT_EQ(table.find("notes"), std::string::npos) << "a json without \"take\" is no take";
  size_t rows = 0;
  for (size_t at = table.find("<tr"); at != std::string::npos; at = table.find("<tr", at + 1))
    ++rows;
  EXPECT_EQ(rows, 5u);
}

TEST(RunReport, FolderWithoutTakesGivesAnEmptyReportThatSaysSo) {
  const std::vector<std::pair<std::string, std::string>> contents[] = {
      {},
      {{"package.json", "{\"name\": \"x\"}"}, {"list.json", "[1, 2]"}, {"walk.bvh", "HIERARCHY"}},
  };
  for (const auto& files : contents) {
    ReportFolder folder("empty");
    for (const auto& [name, text] : files) folder.Write(name, text);
    const std::string page = folder.Report();
    EXPECT_NE(page.find("No take files in this folder"), std::string::npos);
    EXPECT_EQ(page.find("<table"), std::string::npos);
    EXPECT_TRUE(EmbeddedData(page)["takes"].empty());
  }
}

TEST(RunReport, UnwritableOrMissingFolderFailsNamingIt) {
  const fs::path missing = fs::path(::testing::TempDir()) / "knr_report_no_such_folder";
  std::string error;
  EXPECT_FALSE(WriteRunReport(missing, error));
  EXPECT_NE(error.find(missing.string()), std::string::npos) << error;

  ReportFolder folder("blocked");
  fs::create_directory(folder.dir() / "report.html");
  error.clear();
  EXPECT_FALSE(WriteRunReport(folder.dir(), error));
  EXPECT_NE(error.find((folder.dir() / "report.html").string()), std::string::npos) << error;
}

}  // namespace
}  // namespace knrconvert
