// knrconvert run as a user runs it: real takes, a synthesised walk with known stance frames,
// renamed joints, a broken take among good ones, bad usage.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>

#include "real_world_takes.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr double kDegToRad = M_PI / 180.0;
constexpr int kStep = 20;  // frames a foot stands (then the other one does)
constexpr int kSteps = 12;
constexpr double kLeg = 80, kSpread = 20,
                 kLift = 25;  // leg length, swing angle, swing lift (degrees)

// A walk along +z at 30 fps: the left foot stands on frames [2k*kStep, (2k+1)*kStep], the right
// one on the odd steps. A standing leg turns about x so that its foot stays where it landed (the
// hips ride at the height that keeps it on the ground); the swinging leg turns forward and out
// (about z), which lifts its foot. The feet turn slowly about their own y axis (a third of a
// degree a frame), swinging their toes round, so that no cycle ends where it began. `names`: hips,
// left leg, left foot, right leg, right foot.
std::string WalkBvh(const std::vector<std::string>& n) {
  std::ostringstream s;
  auto leg = [&](const std::string& up, const std::string& foot, double x) {
    s << "  JOINT " << up << "\n  {\n    OFFSET " << x
      << " 0 0\n    CHANNELS 3 Zrotation Xrotation Yrotation\n"
      << "    JOINT " << foot << "\n    {\n      OFFSET 0 " << -kLeg << " 0\n"
      << "      CHANNELS 3 Zrotation Xrotation Yrotation\n      JOINT " << foot
      << "Toe\n      {\n        OFFSET 0 -2 8\n        End Site\n        {\n          OFFSET 0 0 "
         "3\n        }\n      }\n"
      << "    }\n  }\n";
  };
  s << "HIERARCHY\nROOT " << n[0] << "\n{\n  OFFSET 0 0 0\n"
    << "  CHANNELS 6 Xposition Yposition Zposition Zrotation Xrotation Yrotation\n"
    << "  JOINT Spine\n  {\n    OFFSET 0 10 0\n    CHANNELS 3 Zrotation Xrotation Yrotation\n"
    << "    End Site\n    {\n      OFFSET 0 40 0\n    }\n  }\n";
  leg(n[1], n[2], 10);
  leg(n[3], n[4], -10);
  const int frames = kSteps * kStep + 1;
  s << "}\nMOTION\nFrames: " << frames << "\nFrame Time: 0.0333333\n";
  const double a = kSpread * kDegToRad;
  for (int t = 0; t < frames; ++t) {
    const int k = std::min(t / kStep, kSteps - 1);
    const double phase = static_cast<double>(t - k * kStep) / kStep;
    const double stance = -a + 2 * a * phase, swing = a - 2 * a * phase;
    const double lift = kLift * std::sin(M_PI * phase);
    const double hy = kLeg * std::cos(stance),
                 hz = (2 * k + 1) * kLeg * std::sin(a) + kLeg * std::sin(stance);
    const bool leftStands = k % 2 == 0;
    // Leg channels: Z X Y rotation, degrees; a foot's own rotation is none.
    auto legChannels = [&](bool stands) {
      std::ostringstream l;
      l << (stands ? 0.0 : lift) << " " << (stands ? stance : swing) / kDegToRad << " 0 0 0 "
        << t / 3.0 << " ";
      return l.str();
    };
    s << "0 " << hy << " " << hz << " 0 0 0 0 0 0 " << legChannels(leftStands)
      << legChannels(!leftStands) << "\n";
  }
  return s.str();
}

struct RunResult {
  int status;
  std::string out, err;
};

std::string ReadText(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// Runs the converter with `args`; `before` is shell text put before it (limits, say).
RunResult Convert(const std::string& args, const std::string& before = "") {
  // One log per test: ctest runs the tests of this file in parallel processes.
  const fs::path log =
      fs::temp_directory_path() /
      ("knrconvert_" +
       std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()) + ".out");
  const std::string command = before + " " + std::string(KNRCONVERT_PATH) + " " + args + " > " +
                              log.string() + " 2> " + log.string() + ".err";
  const int raw = std::system(command.c_str());
  RunResult result{WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, ReadText(log),
                   ReadText(log.string() + ".err")};
  std::error_code error;
  fs::remove(log, error);
  fs::remove(log.string() + ".err", error);
  return result;
}

// The files of a folder and their contents (the lock files' names only).
std::map<std::string, std::string> Files(const fs::path& dir) {
  std::map<std::string, std::string> files;
  for (const auto& entry : fs::directory_iterator(dir))
    files[entry.path().filename().string()] = ReadText(entry.path());
  return files;
}

json ReadTake(const fs::path& dir, const std::string& take) {
  std::ifstream in(dir / (take + ".json"));
  return json::parse(in, nullptr, false);
}

// The JSON chunk of a binary glTF file; null when the file is not one.
json GlbJson(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (bytes.size() < 20 || bytes.compare(0, 4, "glTF") != 0) return nullptr;
  uint32_t length = 0;
  std::memcpy(&length, bytes.data() + 12, 4);
  if (bytes.size() < 20 + size_t{length}) return nullptr;
  return json::parse(bytes.substr(20, length), nullptr, false);
}

class KnrconvertRun : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() /
           ("knrconvert_" +
            std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
    fs::remove_all(dir_);
    fs::create_directories(dir_ / "in");
  }
  void TearDown() override { fs::remove_all(dir_); }
  fs::path Write(const std::string& name, const std::string& text) {
    const fs::path path = dir_ / "in" / name;
    std::ofstream(path) << text;
    return path;
  }
  fs::path dir_;
};

TEST_F(KnrconvertRun, SynthesisedWalkContactsLoopAndFiles) {
  const fs::path walk =
      Write("walk.bvh", WalkBvh({"Hips", "LeftUpLeg", "LeftFoot", "RightUpLeg", "RightFoot"}));
  const RunResult run = Convert(walk.string() + " -o " + (dir_ / "out").string() + " --quiet");
  ASSERT_EQ(run.status, 0) << run.out;
  EXPECT_EQ(run.out.rfind("walk: Locomotion, 241 frames, loop ", 0), 0u) << run.out;
  for (const char* file : {"walk.zyra", "walk.actor.zyra", "walk.actor.wgmp", "walk.json",
                           "walk.glb", "report.html"}) {
    EXPECT_TRUE(fs::is_regular_file(dir_ / "out" / file)) << file;
  }
  const json j = ReadTake(dir_ / "out", "walk");
  ASSERT_TRUE(j.is_object());
  EXPECT_EQ(j["status"], "ok");
  EXPECT_EQ(j["skill"], "Locomotion");
  EXPECT_EQ(j["frames"], 241);
  // Every contact starts within two frames of a step on which that foot stands.
  for (const auto& [foot, first] : {std::pair<std::string, int>{"LeftFoot", 0}, {"RightFoot", 1}}) {
    const json& intervals = j["contacts"][foot];
    ASSERT_GE(intervals.size(), 4u) << foot << " " << intervals.dump();
    for (const json& interval : intervals) {
      const int start = interval[0];
      const int step = (start + 2) / kStep;
      EXPECT_EQ(step % 2, first) << foot << " starts at " << start;
      EXPECT_LE(std::abs(start - step * kStep), 2) << foot << " starts at " << start;
    }
  }
  const json& loop = j["loop"];
  EXPECT_EQ(static_cast<int>(loop["end"]) - static_cast<int>(loop["start"]), 2 * kStep);
  // Over a cycle the feet turned 40 / 3 degrees: the toes, 8 from the ankle, moved about 1.9.
  EXPECT_GT(loop["seamBefore"].get<double>(), 1.0);
  EXPECT_LT(loop["seamAfter"].get<double>(), loop["seamBefore"].get<double>() / 10);
  EXPECT_NEAR(j["distance"].get<double>(), 2 * kSteps * kLeg * std::sin(kSpread * kDegToRad), 1.0);
  EXPECT_EQ(j["plots"]["frames"].size(), 241u);
  EXPECT_EQ(j["plots"]["heel"]["LeftFoot"].size(), 241u);
  // The .glb's skill animation carries the same contacts as the take file.
  const json glb = GlbJson(dir_ / "out" / "walk.glb");
  ASSERT_TRUE(glb.is_object());
  const auto skill = std::find_if(glb["animations"].begin(), glb["animations"].end(),
                                  [](const json& a) { return a["name"] == "Take"; });
  ASSERT_NE(skill, glb["animations"].end());
  EXPECT_EQ((*skill)["extras"]["skill"], "Locomotion");
  for (const char* foot : {"LeftFoot", "RightFoot"}) {
    json intervals = json::array();
    const json& extras = (*skill)["extras"];
    const bool some = extras.contains("footContacts") && extras["footContacts"].contains(foot);
    for (const json& interval : some ? extras["footContacts"][foot] : json::array())
      intervals.push_back({interval["firstFrame"].get<int>(), interval["lastFrame"].get<int>()});
    EXPECT_EQ(intervals, j["contacts"][foot]) << foot;
  }
}

TEST_F(KnrconvertRun, FeetUnderRenamedJoints) {
  struct Case {
    std::string take;
    std::vector<std::string> names;
    std::string left, found;
  } cases[] = {
      {"mixamo",
       {"mixamorig:Hips", "mixamorig:LeftUpLeg", "mixamorig:LeftFoot", "mixamorig:RightUpLeg",
        "mixamorig:RightFoot"},
       "mixamorig_LeftFoot",
       "name"},
      {"short", {"pelvis", "l_thigh", "l_ankle", "r_thigh", "r_ankle"}, "l_ankle", "name"},
      {"bones", {"Bone0", "Bone1", "Bone2", "Bone3", "Bone4"}, "Bone2", "shape"},
  };
  std::string takes;
  for (const Case& c : cases) takes += Write(c.take + ".bvh", WalkBvh(c.names)).string() + " ";
  const RunResult run = Convert(takes + "--no-report --quiet -o " + (dir_ / "out").string());
  ASSERT_EQ(run.status, 0) << run.out;
  for (const Case& c : cases) {
    const json j = ReadTake(dir_ / "out", c.take);
    ASSERT_TRUE(j.is_object()) << c.take;
    EXPECT_EQ(j["feet"][0]["joint"], c.left) << c.take;
    EXPECT_EQ(j["feet"][0]["found"], c.found) << c.take;
    EXPECT_EQ(j["skill"], "Locomotion") << c.take;
  }
  EXPECT_FALSE(fs::exists(dir_ / "out" / "report.html"));
}

TEST_F(KnrconvertRun, BrokenTakeAmongGoodOnes) {
  std::string walk = WalkBvh({"Hips", "LeftUpLeg", "LeftFoot", "RightUpLeg", "RightFoot"});
  Write("good.bvh", walk);
  // Frame 11 loses its last value.
  size_t line = walk.find("Frame Time:");
  for (int i = 0; i < 12; ++i) line = walk.find('\n', line + 1);
  const std::string lineText =
      "broken.bvh:" + std::to_string(std::count(walk.begin(), walk.begin() + line, '\n') + 1) + ":";
  const size_t lastValue = walk.rfind(' ', line - 2);  // frame lines end with a blank
  walk.erase(lastValue, line - 1 - lastValue);
  Write("broken.bvh", walk);
  Write("empty.bvh", "");
  Write("legless.bvh",
        "HIERARCHY\nROOT Hips\n{\n OFFSET 0 0 0\n CHANNELS 6 Xposition Yposition Zposition "
        "Zrotation Xrotation "
        "Yrotation\n JOINT Spine\n {\n  OFFSET 0 10 0\n  CHANNELS 3 Zrotation Xrotation "
        "Yrotation\n  End Site\n  {\n"
        "   OFFSET 0 10 0\n  }\n }\n}\nMOTION\nFrames: 2\nFrame Time: 0.0333333\n0 0 0 0 0 0 0 0 "
        "0\n0 0 0 0 0 0 0 0 0\n");
  const std::string in = (dir_ / "in").string();
  const RunResult run =
      Convert(in + "/good.bvh " + in + "/broken.bvh " + in + "/empty.bvh " + in + "/missing.bvh " +
              in + "/legless.bvh -o " + (dir_ / "out").string());
  EXPECT_EQ(run.status, 1) << run.out;
  EXPECT_EQ(ReadTake(dir_ / "out", "good")["status"], "ok");
  EXPECT_TRUE(fs::exists(dir_ / "out" / "good.actor.zyra"));
  for (const char* take : {"broken", "empty", "missing", "legless"}) {
    const json j = ReadTake(dir_ / "out", take);
    ASSERT_TRUE(j.is_object()) << take;
    EXPECT_EQ(j["status"], "failed") << take;
    const std::string reason = j["reason"];
    EXPECT_NE(reason.find(std::string(take) + ".bvh"), std::string::npos) << reason;
    EXPECT_NE(run.out.find(std::string(take) + ": FAILED: " + reason), std::string::npos)
        << run.out;
    EXPECT_FALSE(fs::exists(dir_ / "out" / (std::string(take) + ".zyra"))) << take;
  }
  EXPECT_NE(ReadTake(dir_ / "out", "broken")["reason"].get<std::string>().find(lineText),
            std::string::npos)
      << lineText;
  EXPECT_TRUE(fs::exists(dir_ / "out" / "report.html"));
}

// Captured takes; the bundled boxing slice hardly leaves its spot, so it makes a Basic skill
// (whose actor root gets keys first: without them the conversion refuses the take).
TEST_F(KnrconvertRun, RealTakes) {
  const std::string data = KNR_SHARED_DATA_DIR "/bvh/";
  const RunResult run = Convert(data + "01_01.bvh " + data + "Boxing_Toes.bvh " + KNR_EXAMPLES_DIR +
                                "/data/pipeline.bvh --quiet --no-report --keep-conditioned -o " +
                                (dir_ / "out").string());
  ASSERT_EQ(run.status, 0) << run.out;
  const struct {
    const char* take;
    int frames, joints;
    const char* left;
    const char* skill;
  } cases[] = {{"01_01", 2751, 31, "LeftFoot", "Locomotion"},    // its T-pose frame dropped
               {"Boxing_Toes", 3069, 21, "LeftAnkle", "Basic"},  // footwork about one spot
               {"pipeline", 300, 21, "LeftAnkle", "Basic"}};
  for (const auto& c : cases) {
    const json j = ReadTake(dir_ / "out", c.take);
    ASSERT_TRUE(j.is_object()) << c.take;
    EXPECT_EQ(j["status"], "ok") << c.take;
    EXPECT_EQ(j["skill"], c.skill) << c.take;
    EXPECT_EQ(j["frames"], c.frames) << c.take;
    EXPECT_EQ(j["joints"], c.joints) << c.take;
    EXPECT_EQ(j["feet"][0]["joint"], c.left) << c.take;
    EXPECT_EQ(j["cog"], "Hips") << c.take;
    // 01_01 lists Z Y X and starts in a T-pose: conditioned, and kept as asked; the others not.
    const bool conditioned = std::string(c.take) == "01_01";
    EXPECT_EQ(j["conditioning"]["changed"], conditioned) << c.take;
    EXPECT_EQ(fs::exists(dir_ / "out" / (std::string(c.take) + ".conditioned.bvh")), conditioned)
        << c.take;
    if (j["skill"] == "Locomotion") {
      EXPECT_FALSE(j["contacts"][c.left].empty()) << c.take;
    }
    EXPECT_LT(j["loop"]["seamAfter"].get<double>(), j["loop"]["seamBefore"].get<double>())
        << c.take;
    EXPECT_LE(j["plots"]["frames"].size(), 4000u);
    EXPECT_EQ(j["plots"]["frames"].size(), j["plots"]["path"]["x"].size());
  }
}

// Takes as studios and public collections ship them, judged by what a person sees in them: the
// body's joint as COG, the kind, how far the body turned, feet whose keyed contacts agree with
// their own motion, and a loop that does not pop. Takes whose terms keep them out of the
// checkout are read beside it when they are there.
TEST_F(KnrconvertRun, RealWorldTakes) {
  const struct {
    const char* take;
    const char* cog;
    const char* skill;
    double heading, headingTolerance;  // degrees; a negative tolerance: not checked
    bool contactsHold = true;          // false: the take's file warns of its contacts instead
  } cases[] = {
      {"cmu_02_01_walk_bvhmatlab", "Hips", "Locomotion", 0, 20},
      {"cmu_02_03_run_iclone", "CC_Base_Hip", "Locomotion", 0, 20},
      {"cmu_02_04_jump_iclone", "CC_Base_Hip", "Basic", 0, -1},
      {"cmu_05_02_dance_iclone", "CC_Base_Hip", "Basic", 320, 40},
      {"milad_standing_bvhmatlab", "Hips", "Basic", 35, 30},
      {"cmu_02_01_walk_vreng", "hip", "Locomotion", 0, 20},
      {"cmu_01_01_jumps-turn_poselib", "pelvis", "Locomotion", 0, 30},
      // One run cycle of 20 frames: too short for the detector to key a lasting contact.
      {"bandai1_dash_normal_001", "Hips", "Locomotion", 0, 20, false},
      {"bandai1_kick_normal_001", "Hips", "Basic", 1080, 100},
      {"karate_inches_vreng", "Hips", "Basic", 0, -1},
      {"xsens_S02_walk-turn-stand_gaittoolbox", "Hips", "Locomotion", 180, 30},
  };
  std::string takes;
  for (const auto& c : cases) {
    const std::string path = RealWorldTake(std::string(c.take) + ".bvh");
    if (!path.empty()) takes += path + " ";
  }
  const RunResult run = Convert(takes + "--quiet --no-report -o " + (dir_ / "out").string());
  ASSERT_EQ(run.status, 0) << run.out;
  for (const auto& c : cases) {
    const json j = ReadTake(dir_ / "out", c.take);
    if (!j.is_object()) {
      EXPECT_EQ(takes.find(c.take), std::string::npos) << c.take << " was given but not converted";
      continue;
    }
    EXPECT_EQ(j["cog"], c.cog) << c.take;
    EXPECT_EQ(j["skill"], c.skill) << c.take;
    if (c.headingTolerance >= 0) {
      EXPECT_NEAR(j["headingChange"].get<double>(), c.heading, c.headingTolerance) << c.take;
    }
    if (j["skill"] == "Locomotion" && !c.contactsHold) {
      EXPECT_NE(j["warnings"].dump().find("contact"), std::string::npos) << c.take;
    } else if (j["skill"] == "Locomotion") {
      for (const auto& [foot, agreement] : j["contactAgreement"].items()) {
        EXPECT_GE(agreement.get<double>(), 0.8) << c.take << " " << foot;
        bool planted = false;  // at least one contact that lasts
        for (const json& interval : j["contacts"][foot])
          planted = planted || interval[1].get<int>() - interval[0].get<int>() >= 2;
        EXPECT_TRUE(planted) << c.take << " " << foot << " " << j["contacts"][foot].dump();
      }
    }
    ASSERT_TRUE(j["loop"].is_object()) << c.take;
    EXPECT_LE(j["loop"]["loopStep"].get<double>(), 1.5 * j["loop"]["sourceStep"].get<double>())
        << c.take << ": the loop pops";
  }
}

// A take that cannot be read fails on one line that names its file and what is wrong, and
// nothing else is said of it (no host log, no message box).
TEST_F(KnrconvertRun, FailureSaidOnce) {
  const std::string walk = WalkBvh({"Hips", "LeftUpLeg", "LeftFoot", "RightUpLeg", "RightFoot"});
  auto header = [&](const std::string& from, const std::string& to) {
    std::string text = walk;
    return text.replace(text.find(from), from.size(), to);
  };
  const struct {
    std::string take, text, reason;  // text "-": no file
  } cases[] = {
      {"missing", "-", "cannot be read: No such file or directory"},
      {"exponent", header("Frames: 241", "Frames: 1e9"), "bad frame count '1e9'"},
      {"fraction", header("Frames: 241", "Frames: 3.5"), "bad frame count '3.5'"},
      {"notime", header("Frame Time: 0.0333333", "Frame Time:"), "no frame time on the line"},
      {"millis", header("Frame Time: 0.0333333", "Frame Time: 8.3333"),
       "Frame Time: 8.3333 is not a motion-capture frame time"},
      {"day", header("Frame Time: 0.0333333", "Frame Time: 100000"),
       "Frame Time: 100000 is not a motion-capture frame time"},
      {"nameless", header("JOINT Spine", "JOINT"), "a joint without a name"},
  };
  std::string takes;
  for (const auto& c : cases) {
    if (c.text != "-") Write(c.take + ".bvh", c.text);
    takes += (dir_ / "in" / (c.take + ".bvh")).string() + " ";
  }
  const RunResult run = Convert(takes + "--no-report -o " + (dir_ / "out").string());
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "");
  std::istringstream lines(run.out);
  std::string line;
  for (const auto& c : cases) {
    ASSERT_TRUE(std::getline(lines, line)) << c.take;
    const std::string file = (dir_ / "in" / (c.take + ".bvh")).string();
    EXPECT_EQ(line.rfind(c.take + ": FAILED: read: " + file + ":", 0), 0u) << line;
    EXPECT_NE(line.find(c.reason), std::string::npos) << line;
  }
  EXPECT_FALSE(std::getline(lines, line)) << line;

  // A converted take: the road's notes, no host log or message box unless --verbose.
  const std::string good = Write("good.bvh", walk).string();
  for (const bool verbose : {false, true}) {
    const RunResult ok = Convert(good + " --no-report -o " + (dir_ / "out").string() +
                                 (verbose ? " --verbose" : ""));
    EXPECT_EQ(ok.status, 0);
    EXPECT_NE(ok.err.find("good: COG Hips"), std::string::npos) << ok.err;
    EXPECT_EQ(ok.err.find("\n  -> OK") != std::string::npos, verbose) << ok.err;
  }
}

// The output folder is made and written to before any take is read; the system's reason when
// it cannot be.
TEST_F(KnrconvertRun, OutputFolderCheckedFirst) {
  const fs::path take =
      Write("walk.bvh", WalkBvh({"Hips", "LeftUpLeg", "LeftFoot", "RightUpLeg", "RightFoot"}));
  Write("file", "");
  // A folder the converter may not write into; as root, the converter runs without the
  // capabilities that let root past a folder's permissions.
  fs::create_directories(dir_ / "locked");
  fs::permissions(dir_ / "locked", fs::perms::owner_read | fs::perms::owner_exec |
                                       fs::perms::group_read | fs::perms::group_exec |
                                       fs::perms::others_read | fs::perms::others_exec);
  const std::string asUser =
      ::geteuid() == 0 ? "setpriv --bounding-set=-dac_override,-dac_read_search" : "";
  const bool canLock = asUser.empty() || std::system((asUser + " true").c_str()) == 0;
  const struct {
    std::string out, before, reason;
  } cases[] = {
      {(dir_ / "in" / "file" / "out").string(), "", "Not a directory"},
      {(dir_ / "locked" / "out").string(), asUser, "Permission denied"},
      // A disk that takes no more than 16 KB a file.
      {(dir_ / "out").string(), "trap '' XFSZ; prlimit --fsize=16384", "File too large"},
  };
  for (const auto& c : cases) {
    if (c.before == asUser && !canLock) {
      std::cout << "(\"" << c.reason << "\" not checked: " << asUser << " is not allowed here)\n";
      continue;
    }
    const RunResult run = Convert(take.string() + " -o " + c.out, c.before);
    EXPECT_EQ(run.status, 1) << c.out;
    EXPECT_EQ(run.out, "") << c.out;
    EXPECT_NE(run.err.find("output folder \"" + c.out + "\": " + c.reason), std::string::npos)
        << run.err;
    EXPECT_FALSE(fs::exists(fs::path(c.out) / "walk.json")) << c.out;
  }
}

// A take never replaces the files of a take of its name converted from another file, unless
// --overwrite; one take given twice is two takes in the report, as in the lines, also in a
// report written later.
TEST_F(KnrconvertRun, TakeOfAnotherSourceRefused) {
  const std::string out = (dir_ / "out").string();
  fs::create_directories(dir_ / "in" / "a");
  fs::create_directories(dir_ / "in" / "b");
  const std::string a =
      Write("a/walk.bvh", WalkBvh({"Hips", "LeftUpLeg", "LeftFoot", "RightUpLeg", "RightFoot"}))
          .string();
  const std::string b =
      Write("b/walk.bvh", WalkBvh({"pelvis", "l_thigh", "l_ankle", "r_thigh", "r_ankle"})).string();
  ASSERT_EQ(Convert(a + " --no-report -o " + out).status, 0);
  const auto before = Files(out);

  RunResult run = Convert(b + " --no-report -o " + out);
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out.rfind("walk: FAILED: \"" + b + "\": the take \"walk\" in " + out +
                              " was converted from \"" + a + "\"",
                          0),
            0u)
      << run.out;
  auto after = Files(out);
  EXPECT_EQ(ReadTake(out, ".walk.failure")["status"], "failed");
  EXPECT_EQ(after.erase(".walk.failure.json"), 1u);
  EXPECT_EQ(after, before);

  EXPECT_EQ(Convert(b + " --overwrite --no-report -o " + out).status, 0);
  EXPECT_EQ(ReadTake(out, "walk")["source"], b);

  fs::remove_all(out);
  run = Convert(a + " " + a + " -o " + out);
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.out.find("walk: FAILED: "), std::string::npos) << run.out;
  for (const char* args : {"", " --report-only"}) {
    if (*args) {
      ASSERT_EQ(Convert(std::string(args) + " -o " + out).status, 0);
    }
    const std::string report = ReadText(dir_ / "out" / "report.html");
    EXPECT_NE(report.find("2 takes: 1 converted, <span class=\"failed\">1 failed</span>"),
              std::string::npos)
        << args;
  }
}

// A save that fails (a full disk: files limited to half the scene's size, so that the actor is
// saved and the scene is not; then to half the actor's) leaves a converted take's earlier files
// all as they were and says why; a new take leaves only its failure record.
TEST_F(KnrconvertRun, FailedSaveKeepsEarlierFiles) {
  const std::string out = (dir_ / "out").string();
  const std::string walk = WalkBvh({"Hips", "LeftUpLeg", "LeftFoot", "RightUpLeg", "RightFoot"});
  const std::string first = Write("walk.bvh", walk).string();
  const std::string fresh = Write("fresh.bvh", walk).string();
  ASSERT_EQ(Convert(first + " --no-report -o " + out).status, 0);
  const auto before = Files(out);
  const size_t scene = before.at("walk.zyra").size(), actor = before.at("walk.actor.zyra").size();
  // Above what the output folder's check writes, below what the file needs.
  ASSERT_LT(actor, scene);
  ASSERT_GT(actor / 2, 65536u);
  for (const size_t limit : {scene / 2, actor / 2}) {
    const RunResult run = Convert(first + " " + fresh + " --no-report -o " + out,
                                  "trap '' XFSZ; prlimit --fsize=" + std::to_string(limit));
    EXPECT_EQ(run.status, 1) << limit;
    std::istringstream lines(run.out);
    for (const std::string take : {"walk", "fresh"}) {
      std::string line;
      ASSERT_TRUE(std::getline(lines, line)) << take;
      EXPECT_EQ(line.rfind(take + ": FAILED: save: ", 0), 0u) << line;
      EXPECT_NE(line.find("File too large"), std::string::npos) << line;
      EXPECT_EQ(line.find("earlier files of " + take + " are kept") != std::string::npos,
                take == "walk")
          << line;
    }
    auto after = Files(out);
    EXPECT_EQ(ReadTake(out, "fresh")["status"], "failed");
    EXPECT_EQ(ReadTake(out, ".walk.failure")["status"], "failed");
    EXPECT_EQ(
        after.erase("fresh.json") + after.erase(".fresh.lock") + after.erase(".walk.failure.json"),
        3u);
    EXPECT_EQ(after, before) << limit;
  }
}

// Two converters at once on one folder, whichever comes first: a take of the same file
// converted by both, and two takes of one name from different files. The folder ends with one
// take's files of each name, all of them from the same take, and nothing else.
TEST_F(KnrconvertRun, TwoConvertersOnOneFolder) {
  const std::string out = (dir_ / "out").string();
  fs::create_directories(dir_ / "in" / "a");
  fs::create_directories(dir_ / "in" / "b");
  const std::string names[2][5] = {{"Hips", "LeftUpLeg", "LeftFoot", "RightUpLeg", "RightFoot"},
                                   {"pelvis", "l_thigh", "l_ankle", "r_thigh", "r_ankle"}};
  const std::string clip = Write("clip.bvh", WalkBvh({std::begin(names[0]), std::end(names[0])}));
  std::string command;
  for (int p = 0; p < 2; ++p) {
    const std::string walk = Write(std::string(p ? "b" : "a") + "/walk.bvh",
                                   WalkBvh({std::begin(names[p]), std::end(names[p])}));
    const std::string log = (dir_ / ("run" + std::to_string(p))).string();
    command += "(" + std::string(KNRCONVERT_PATH) + " " + walk + " " + clip +
               " --no-report --quiet -o " + out + " > " + log + " 2>&1; echo $? >> " + log + ") & ";
  }
  ASSERT_EQ(std::system((command + "wait").c_str()), 0);
  int converted = -1;
  for (int p = 0; p < 2; ++p) {
    const std::string log = ReadText(dir_ / ("run" + std::to_string(p)));
    EXPECT_NE(log.find("clip: Locomotion"), std::string::npos) << log;
    if (log.find("walk: Locomotion") != std::string::npos) {
      EXPECT_EQ(converted, -1) << log;
      converted = p;
    } else {
      EXPECT_NE(log.find("walk: FAILED: "), std::string::npos) << log;
    }
  }
  ASSERT_GE(converted, 0);
  const std::string mine = names[converted][2], other = names[1 - converted][2];
  const auto files = Files(out);
  std::set<std::string> listed;
  for (const auto& [name, bytes] : files) listed.insert(name);
  EXPECT_EQ(listed, (std::set<std::string>{
                        ".clip.lock", ".walk.lock", ".walk.failure.json", "clip.actor.wgmp",
                        "clip.actor.zyra", "clip.glb", "clip.json", "clip.zyra", "walk.actor.wgmp",
                        "walk.actor.zyra", "walk.glb", "walk.json", "walk.zyra"}));
  for (const char* file : {"walk.zyra", "walk.actor.zyra", "walk.json"}) {
    EXPECT_NE(files.at(file).find(mine), std::string::npos) << file;
    EXPECT_EQ(files.at(file).find(other), std::string::npos) << file;
  }
}

TEST_F(KnrconvertRun, BadUsage) {
  const std::string cases[] = {
      "", "--bogus x.bvh", "x.bvh -o", "--threshold 2 x.bvh", "--scale 0 x.bvh", "--scale 2 x.bvh"};
  for (const std::string& args : cases) EXPECT_EQ(Convert(args).status, 2) << args;
  EXPECT_EQ(Convert("--help").status, 0);
}

}  // namespace
