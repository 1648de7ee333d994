// One take's road (steps in take_road.h).
#include "take_road.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
#include <sstream>

#include "bvh_take.h"
#include "chain_sampler.h"
#include "feet_finder.h"
#include "host/host.h"
#include "loop_window.h"
#include "model/scene_graph.h"
#include "road_script.h"
#include "script/script.h"
#include "stance.h"
#include "take_conditioning.h"
#include "take_trim.h"
#include "travel.h"
#include "view_sampler.h"
#include "zyra/action.h"
#include "zyra/application.h"
#include "zyra/fcurve.h"
#include "zyra/kinematics.h"
#include "zyra/math.h"
#include "zyra/x3dobject.h"

namespace knrconvert {
namespace {

using Zyra::CRef;
using Zyra::CStatus;
using Zyra::CString;
using Zyra::CTime;
using Zyra::FromUtf8;
using Zyra::ToUtf8;
using Zyra::X3DObject;
using Zyra::MATH::CTransformation;
using Zyra::MATH::CVector3;
namespace rt = Zyra::rt;

constexpr double kWholeRateTolerance = 1e-4;
constexpr int kMinFrames = 2;  // a take of one frame holds no motion

double Seconds(std::chrono::steady_clock::time_point since) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

class Road {
 public:
  Road(const std::filesystem::path& bvh, const std::filesystem::path& dir,
       const ConvertOptions& options, TakeRecord& record)
      : bvh_(bvh), dir_(dir), options_(options), r_(record), actor_(ActorName(record.take)) {}

  ~Road() {
    std::error_code ec;
    if (!temporary_.empty()) std::filesystem::remove(temporary_, ec);
  }
  Road(const Road&) = delete;
  Road& operator=(const Road&) = delete;

  bool Run() {
    const auto start = std::chrono::steady_clock::now();
    rt::Host& host = rt::Host::Get();
    host.NewScene();
    host.ClearLog();
    host.ui() = rt::UiState{};
    bool ok = Condition() && Import() && Analyse() && (travels_ || KeyRootAtRest()) && Generate() &&
              Skill() && Loop() && Save();
    r_.seconds.emplace_back("total", Seconds(start));
    CollectWarnings();
    r_.ok = ok;
    return ok;
  }

 private:
  // Runs script lines as step `phase`; on failure the reason is the runner's message without the
  // script's own name and line, and with the take's own file where it named the conditioned one.
  // The host's errors logged underneath a failed command (a file it could not write, with the
  // system's reason) are added when the command's own message does not say them.
  bool Script(const std::string& phase, const std::string& text) {
    const size_t from = rt::Host::Get().LogLines().size();
    CStatus status = rt::RunScriptText(FromUtf8(text), phase);
    CollectWarnings();
    if (status.Succeeded()) return true;
    std::string message = ToUtf8(status.GetMessage().Wide());
    const std::string prefix = phase + ":";
    if (message.rfind(prefix, 0) == 0) {
      size_t colon = message.find(": ", prefix.size());
      if (colon != std::string::npos) message = message.substr(colon + 2);
    }
    const auto& lines = rt::Host::Get().LogLines();
    for (size_t i = from; i < lines.size(); ++i) {
      if (lines[i].severity != rt::kSevError) continue;
      const std::string error = ToUtf8(lines[i].text);
      if (error.find(message) == std::string::npos && message.find(error) == std::string::npos)
        message += " (" + error + ")";
    }
    return Fail(phase + ": " + OwnFile(message));
  }

  // `text` with the conditioned file's path replaced by the take's own.
  std::string OwnFile(std::string text) const {
    const std::string read = importPath_.string();
    if (read.empty() || read == bvh_.string()) return text;
    for (size_t at = text.find(read); at != std::string::npos; at = text.find(read, at))
      text.replace(at, read.size(), bvh_.string());
    return text;
  }

  // Records why the road stopped; the reason names the take's file when the message does not.
  bool Fail(const std::string& reason) {
    r_.reason = reason;
    if (reason.find(bvh_.string()) == std::string::npos) r_.reason += " (" + bvh_.string() + ")";
    return false;
  }

  void Warn(const std::string& text) { r_.warnings.push_back(text); }

  void CollectWarnings() {
    const auto& lines = rt::Host::Get().LogLines();
    for (; logSeen_ < lines.size(); ++logSeen_) {
      if (lines[logSeen_].severity == rt::kSevWarning) Warn(OwnFile(ToUtf8(lines[logSeen_].text)));
    }
  }

  // A line on standard error about a choice the road made (cleared of a progress bar on a
  // terminal first).
  void Info(const std::string& text) const {
    if (!options_.note) return;
    options_.note((isatty(STDERR_FILENO) == 1 ? "\r\033[K" : "") + r_.take + ": " + text + "\n");
  }

  void Phase(const std::string& name, std::chrono::steady_clock::time_point since) {
    r_.seconds.emplace_back(name, Seconds(since));
  }

  bool Condition() {
    const auto start = std::chrono::steady_clock::now();
    importPath_ = bvh_;
    BvhTake take;
    std::string readError;
    if (!ParseBvhTake(bvh_, take, readError)) return Fail("read: " + readError);
    r_.frames = take.frames;  // the frames kept, once the ends are trimmed below
    r_.frameTime = take.frameTime;
    if (take.frames < kMinFrames) {
      return Fail("the take has " + std::to_string(take.frames) +
                  " frame: there is no motion to make a skill of");
    }
    ConditionReport report = ConditionTake(take, &poses_);
    if (DropJumpingEndFrames(take, poses_, report.notes) > 0) report.changed = true;
    r_.frames = take.frames;
    ConditionRecord record;
    record.changed = report.changed;
    record.notes = report.notes;
    record.units = report.units;
    record.metresPerUnit = report.metresPerUnit;
    for (const std::string& warning : report.warnings) Warn(warning);
    if (report.changed) {
      std::string error;
      if (options_.keepConditioned) {
        importPath_ = dir_ / (r_.take + ".conditioned.bvh");
        record.keptFile = importPath_.filename().string();
      } else {
        importPath_ = std::filesystem::temp_directory_path() /
                      ("knrconvert-" + std::to_string(getpid()) + "-" + actor_ + ".bvh");
        temporary_ = importPath_;
      }
      if (!WriteBvhTake(take, importPath_, error)) {
        importPath_.clear();
        return Fail("condition: " + error);
      }
      std::string notes;
      for (const std::string& note : report.notes) notes += (notes.empty() ? "" : "; ") + note;
      Info("conditioned: " + notes);
    }
    r_.conditioning = record;
    Phase("condition", start);
    return true;
  }

  bool Import() {
    const auto start = std::chrono::steady_clock::now();
    std::ostringstream s;
    if (r_.frameTime && *r_.frameTime > 0) {
      const double rate = 1.0 / *r_.frameTime;
      if (std::fabs(rate - std::round(rate)) <= kWholeRateTolerance * rate) {
        s << "SetValue preferences.output_format.frame_rate " << Num(std::round(rate)) << "\n";
      }
    }
    const std::string file = Quote(importPath_.string());
    s << "Answer Page \"Import BVH Actor\" BVHFile=" << file << " ActorName=\"" << actor_
      << "\" Box=true Scale=" << Num(options_.scale) << " Filter=\"\" Remove=\"\"\n"
      << "KnrImportBVHActor\n"
      << "KnrAddBVHAction " << actor_ << " " << file << " \"Take\" " << Num(options_.scale)
      << " true \"\" \"\" true\n";
    if (!Script("import", s.str())) return false;
    Zyra::ActionSource source(
        Zyra::Application().GetObjectFromPath(FromUtf8(actor_ + ".Sources.Take")));
    if (!source.IsValid()) return Fail("import: the take made no action");
    first_ = static_cast<int>(std::lround(source.GetParameterValue(L"FrameStart").AsDouble()));
    last_ = static_cast<int>(std::floor(source.GetParameterValue(L"FrameEnd").AsDouble() + 1e-6));
    // Host frames per take frame (1 when the scene runs at the take's rate).
    framesPerTakeFrame_ = poses_.frames > 1 ? (last_ - first_) / double(poses_.frames - 1) : 1.0;
    if (framesPerTakeFrame_ > kMaxSceneFramesPerTakeFrame) {
      return Fail("import: the take's " + std::to_string(poses_.frames) + " frames span " +
                  std::to_string(last_ - first_ + 1) + " scene frames");
    }
    if (!TagActor()) return false;
    Phase("import", start);
    return true;
  }

  bool TagActor() {
    X3DObject srt = Find(actor_ + ".GlobalSRT");
    if (!srt.IsValid()) return Fail("import: the actor has no GlobalSRT");
    std::vector<SkeletonJoint> joints;
    std::vector<std::pair<X3DObject, int>> stack;
    for (const CRef& child : srt.GetChildren()) stack.emplace_back(X3DObject(child), -1);
    std::reverse(stack.begin(), stack.end());
    while (!stack.empty()) {
      auto [object, parent] = stack.back();
      stack.pop_back();
      if (!object.IsValid()) continue;
      SkeletonJoint joint;
      joint.name = ToUtf8(object.GetName().Wide());
      joint.parent = parent;
      CTransformation global = object.GetKinematics().GetGlobal().GetTransform();
      global.GetTranslationValues(joint.x, joint.y, joint.z);
      CVector3 axis = global.GetRotationQuaternion().Rotate(CVector3(1, 0, 0));
      axis.Get(joint.localX[0], joint.localX[1], joint.localX[2]);
      const int index = static_cast<int>(joints.size());
      joints.push_back(joint);
      auto children = object.GetChildren();
      for (long i = children.GetCount() - 1; i >= 0; --i)
        stack.emplace_back(X3DObject(children[i]), index);
    }
    r_.joints = static_cast<int>(joints.size());
    const FoundFeet found = FindFeet(joints);
    if (!found.error.empty()) return Fail("feet: " + found.error);
    cog_ = joints[static_cast<size_t>(found.cog.index)].name;
    feet_ = {joints[static_cast<size_t>(found.left.index)].name,
             joints[static_cast<size_t>(found.right.index)].name};
    r_.cog = cog_;
    r_.feet = {{feet_[0], found.left.how}, {feet_[1], found.right.how}};
    body_.cog = PoseJoint(cog_);
    body_.leftFoot = PoseJoint(feet_[0]);
    body_.rightFoot = PoseJoint(feet_[1]);
    if (body_.cog < 0 || body_.leftFoot < 0 || body_.rightFoot < 0)
      return Fail("import: the actor's joints are not the take's");
    Info("COG " + cog_ + " (by " + found.cog.how + "), feet " + feet_[0] + " (by " +
         found.left.how + ") and " + feet_[1] + " (by " + found.right.how + ")");
    std::ostringstream s;
    s << "SelectObj " << Quote(actor_ + "." + cog_) << "\nKnrSetCOG\n";
    for (const std::string& foot : feet_)
      s << "SelectObj " << Quote(actor_ + "." + foot) << "\nKnrSetFoot\n";
    s << "SelectObj " << Quote(actor_ + "." + cog_)
      << "\nKnrInitActor\nShift on\nKnrSetHome\nShift off\n";
    return Script("tag", s.str());
  }

  // The pose series' joint of a scene object: the import names objects after the take's joints,
  // with ":" written "_".
  int PoseJoint(const std::string& object) const {
    for (int j = 0; j < poses_.Joints(); ++j) {
      std::string name = poses_.names[static_cast<size_t>(j)];
      std::replace(name.begin(), name.end(), ':', '_');
      if (name == object) return j;
    }
    return -1;
  }

  // Take frame <-> scene frame.
  int SceneFrame(int takeFrame) const {
    return first_ + static_cast<int>(std::lround(takeFrame * framesPerTakeFrame_));
  }
  int TakeFrame(double sceneFrame) const {
    const int frame = static_cast<int>(std::lround((sceneFrame - first_) / framesPerTakeFrame_));
    return std::clamp(frame, 0, poses_.frames - 1);
  }

  // Travel, kind, heading and stance from the poses (travel.h, stance.h).
  bool Analyse() {
    const auto start = std::chrono::steady_clock::now();
    travel_ = MeasureTravel(poses_, body_);
    r_.distance = travel_.distance;
    r_.headingChange = travel_.headingChange;
    r_.hipHeight = travel_.hipHeight;
    r_.legLength = travel_.legLength;
    for (const std::string& warning : travel_.warnings) Warn(warning);
    travels_ = travel_.locomotion;
    r_.skill = travels_ ? "Locomotion" : "Basic";
    if (travels_) {
      if (options_.threshold) {
        threshold_ = *options_.threshold;
      } else {
        const ContactChoice choice =
            ChooseContactThreshold(poses_, {body_.leftFoot, body_.rightFoot}, travel_.stances);
        threshold_ = choice.threshold;
      }
      r_.threshold = threshold_;
    }
    char text[160];
    std::snprintf(
        text, sizeof text, "%s: travels %.3g (%.2g leg lengths), heading change %.0f degrees%s",
        r_.skill.c_str(), travel_.distance,
        travel_.legLength > 0 ? travel_.distance / travel_.legLength : 0.0, travel_.headingChange,
        travels_ ? (", contact threshold " + Num(threshold_)).c_str() : "");
    Info(text);
    Phase("analysis", start);
    return true;
  }

  // Keys the actor root's six channels at rest into the action (see take_road.h, step 4).
  bool KeyRootAtRest() {
    const auto start = std::chrono::steady_clock::now();
    const std::string take = actor_ + ".Sources.Take";
    std::string list;
    for (const auto& [target, curve] : CurveItems(take))
      list += (list.empty() ? "" : ",") + actor_ + "." + target;
    std::ostringstream s;
    s << "ApplyAction " << Quote(take) << "\n";
    for (const char* channel : {"posx", "posy", "posz", "rotx", "roty", "rotz"}) {
      const std::string path = actor_ + ".GlobalSRT.kine.local." + channel;
      const Zyra::Parameter parameter(Zyra::Application().GetObjectFromPath(FromUtf8(path)));
      if (!parameter.IsValid()) return Fail("root keys: no parameter \"" + path + "\"");
      const double rest = parameter.GetValue(CTime(first_)).AsDouble();
      s << "SetKey " << Quote(path) << " " << first_ << " " << Num(rest) << "\n"
        << "SetKey " << Quote(path) << " " << last_ << " " << Num(rest) << "\n";
      list += "," + path;
    }
    s << "DeleteObj " << Quote(take) << "\n"
      << "StoreAction " << actor_ << " " << Quote(list) << " 6 \"Take\" 1 " << Num(first_) << " "
      << Num(last_) << "\n";
    const bool ok = Script("root keys", s.str());
    basicPrep_ = Seconds(start);
    return ok;
  }

  bool Generate() {
    const auto start = std::chrono::steady_clock::now();
    std::ostringstream s;
    s << "SetValue PlayControl.Current " << first_ << "\n"
      << "SelectObj " << Quote(actor_ + "." + cog_) << "\n"
      << "Answer Page \"Generate Actor\" Skill=true RemoveExtra="
      << (options_.optimize ? "true" : "false") << "\nKnrGenerateActor\n";
    if (!Script("generate", s.str())) return false;
    generated_ = "Knr" + actor_;
    if (!Find(generated_).IsValid())
      return Fail("generate: no generated actor \"" + generated_ + "\"");
    r_.seconds.emplace_back("generate", Seconds(start) + basicPrep_);
    return true;
  }

  bool Skill() {
    const auto start = std::chrono::steady_clock::now();
    std::ostringstream s;
    s << "SelectObj " << Quote(generated_ + "." + cog_) << "\n"
      << "Answer Page \"Make Skill\" Source=0 Skill=" << (travels_ ? 2 : 1) << " Transfer=false";
    // The page offers the threshold only for a Locomotion skill.
    if (travels_) s << " Threshold=" << Num(threshold_);
    s << "\nKnrMakeSkill\n";
    if (!Script("skill", s.str())) return false;
    skill_ = generated_ + ".Sources.Take";
    Zyra::ActionSource source(Zyra::Application().GetObjectFromPath(FromUtf8(skill_)));
    if (!source.IsValid()) return Fail("skill: the skill \"" + skill_ + "\" is missing");
    first_ = static_cast<int>(std::lround(source.GetParameterValue(L"FrameStart").AsDouble()));
    last_ = static_cast<int>(std::floor(source.GetParameterValue(L"FrameEnd").AsDouble() + 1e-6));
    if (travels_) {
      ReadContacts();
    } else {
      // A Basic skill keys no contacts: the file lists where the estimate has each foot planted.
      for (size_t i = 0; i < feet_.size(); ++i) {
        std::vector<Interval> planted;
        for (const Interval& run : PlantedIntervals(travel_.stances[i]))
          planted.emplace_back(SceneFrame(run.first), SceneFrame(run.second));
        r_.contacts[feet_[i]] = planted;
      }
    }
    if (!Script("skill", "ApplyAction " + Quote(skill_) + "\n")) return false;
    PlotsFromPoses();
    r_.view = SampleView(poses_, first_,
                         {{feet_.size() > 0 ? feet_[0] : "", body_.leftFoot},
                          {feet_.size() > 1 ? feet_[1] : "", body_.rightFoot}});
    Phase("skill", start);
    return true;
  }

  // The contacts the skill keyed, per foot, compared with the stance estimate.
  void ReadContacts() {
    const auto curves = CurveItems(skill_);
    for (size_t i = 0; i < feet_.size(); ++i) {
      const std::string& foot = feet_[i];
      std::vector<ContactKeyValue> keys;
      auto it = curves.find(foot + ".RTKEffector.Contact");
      if (it != curves.end()) {
        for (long k = 0; k < it->second.GetKeyCount(); ++k) {
          keys.push_back(
              {it->second.GetKeyTime(k).GetTime(), it->second.GetKeyValue(k).AsDouble()});
        }
      }
      contacts_.push_back(ContactIntervals(keys, first_, last_));
      r_.contacts[foot] = contacts_.back();
      std::vector<Interval> inTake;
      for (const auto& [a, b] : contacts_.back()) inTake.emplace_back(TakeFrame(a), TakeFrame(b));
      takeContacts_.push_back(inTake);
      r_.contactAgreement[foot] = ContactAgreement(inTake, travel_.stances[i]);
      if (contacts_.back().empty()) Warn("no contact found for the foot " + foot);
      const std::vector<int> flickers = OneFrameContacts(contacts_.back());
      if (!flickers.empty())
        Warn("a one-frame contact of " + foot + " at frame " + std::to_string(flickers.front()));
    }
  }

  // How fast `joint` moves at frame `f`, in take units a second: the central difference, one-sided
  // at the ends.
  double FootSpeed(int f, int joint) const {
    const int a = std::max(0, f - 1), b = std::min(poses_.frames - 1, f + 1);
    if (b <= a || poses_.frameTime <= 0) return 0;
    const Vec3f &p = poses_.At(a, joint), &q = poses_.At(b, joint);
    return std::sqrt(double(q.x - p.x) * (q.x - p.x) + double(q.y - p.y) * (q.y - p.y) +
                     double(q.z - p.z) * (q.z - p.z)) /
           ((b - a) * poses_.frameTime);
  }

  // Heel heights, foot speeds and the COG's ground path at every frame, from the poses (see
  // take_road.h).
  void PlotsFromPoses() {
    r_.firstFrame = first_;
    const size_t count = static_cast<size_t>(poses_.frames);
    r_.pathX.reserve(count);
    r_.pathZ.reserve(count);
    const int feet[2] = {body_.leftFoot, body_.rightFoot};
    for (int f = 0; f < poses_.frames; ++f) {
      const Vec3f& cog = poses_.At(f, body_.cog);
      r_.pathX.push_back(cog.x);
      r_.pathZ.push_back(cog.z);
      for (size_t i = 0; i < feet_.size(); ++i) {
        r_.heel[feet_[i]].push_back(poses_.At(f, feet[i]).y);
        r_.footSpeed[feet_[i]].push_back(FootSpeed(f, feet[i]));
      }
    }
    const double threshold = travels_ ? threshold_ : options_.threshold.value_or(kUsualThreshold);
    for (const auto& [foot, series] : r_.heel) {
      if (series.empty()) continue;
      const auto [low, high] = std::minmax_element(series.begin(), series.end());
      r_.heightLimit[foot] = *low + threshold * (*high - *low);
    }
  }

  bool Loop() {
    const auto start = std::chrono::steady_clock::now();
    const RelativePoses relative = RelativeToCog(poses_);
    const LoopChoice choice = ChooseLoopWindows(poses_, relative, travels_, takeContacts_,
                                                travel_.steadyStretches, 0, poses_.frames - 1);
    if (!choice.note.empty()) Info(choice.note);
    if (choice.windows.empty()) {
      Warn("the take is too short to loop (" + std::to_string(poses_.frames) + " frames)");
      Phase("loop", start);
      return true;
    }
    const double frameTime = poses_.frameTime * framesPerTakeFrame_;
    for (size_t tryIndex = 0; tryIndex < choice.windows.size(); ++tryIndex) {
      const LoopWindow& window = choice.windows[tryIndex];
      const int a = SceneFrame(window.start), b = SceneFrame(window.end);
      if (b <= a) continue;
      std::ostringstream s;
      s << "SelectObj " << Quote(generated_ + "." + cog_) << "\n"
        << "Answer Page \"Loop Skill\" Source=0 Start=" << a << " End=" << b << " Smooth="
        << std::max(1, static_cast<int>(std::lround(window.smooth * framesPerTakeFrame_)))
        << " Loco=" << (window.loco ? "true" : "false") << " press=Process\n"
        << "KnrMakeLoop\n";
      if (!Script("loop", s.str())) return false;
      const std::string loopPath = generated_ + ".Sources.Take_loop";
      X3DObject cog = Find(generated_ + "." + cog_);
      std::vector<std::string> joints;
      const RelativePoses source = SampleRelativePoses(cog, a, b, frameTime, &joints);
      if (!Script("loop", "ApplyAction " + Quote(loopPath) + "\n")) return false;
      const RelativePoses loop = SampleRelativePoses(cog, 0, b - a, frameTime);
      const PopMeasure pops = MeasurePops(loop, source, 0, b - a);
      const bool last = tryIndex + 1 == choice.windows.size();
      std::string back = "ApplyAction " + Quote(skill_) + "\n";
      if (pops.pop && !last) back = "DeleteObj " + Quote(loopPath) + "\n" + back;
      if (!Script("loop", back)) return false;
      char text[200];
      std::snprintf(
          text, sizeof text, "loop window %d..%d%s: largest one-frame move %.3g (source %.3g)%s", a,
          b,
          window.foot >= 0
              ? (" (gait cycle of " + feet_[static_cast<size_t>(window.foot)] + ")").c_str()
              : " (calmest stretch)",
          pops.loopStep, pops.sourceStep, pops.pop ? ": pops" : "");
      Info(text);
      if (pops.pop && !last) continue;
      LoopRecord record;
      record.start = a;
      record.end = b;
      record.foot = window.foot >= 0 ? feet_[static_cast<size_t>(window.foot)] : "";
      record.seamBefore = Seam(source, 0, b - a).distance;
      record.seamAfter = Seam(loop, 0, b - a).distance;
      record.loopStep = pops.loopStep;
      record.sourceStep = pops.sourceStep;
      record.rejected = static_cast<int>(tryIndex);
      r_.loop = record;
      if (r_.view)
        AddLoopView(*r_.view, poses_, first_,
                    {TakeFrame(a), TakeFrame(b), &source, &loop, &joints});
      if (pops.pop) {
        char warning[200];
        std::snprintf(warning, sizeof warning,
                      "the loop pops: a joint moves %.3g in one frame, %.2g times the most it "
                      "moves in the source window (%zu windows tried)",
                      pops.loopStep, pops.ratio, choice.windows.size());
        Warn(warning);
      }
      const SeamCurve curve = SeamCurves(source, 0, b - a, loop);
      SeamPlot plot;
      plot.channel = curve.joint >= 0 ? joints[static_cast<size_t>(curve.joint)] : "";
      for (size_t k = 0; k < curve.before.size(); ++k) {
        plot.frames.push_back(static_cast<double>(k));
        plot.before.push_back(curve.before[k]);
        plot.after.push_back(k < curve.after.size() ? curve.after[k] : curve.before[k]);
      }
      r_.seam = plot;
      break;
    }
    Phase("loop", start);
    return true;
  }

  bool Save() {
    const auto start = std::chrono::steady_clock::now();
    const std::filesystem::path actorFile = dir_ / (r_.take + ".actor.zyra");
    const std::filesystem::path sceneFile = dir_ / (r_.take + ".zyra");
    std::ostringstream s;
    s << "SelectObj " << Quote(generated_ + "." + cog_) << "\n"
      << "Answer File \"Save Actor\" " << Quote(actorFile.string()) << "\nKnrSaveActor\n";
    if (!options_.outputFolder.empty()) {
      // The folder the user finds the actor in, not the staging folder that goes away.
      s << "SetValue Scene_Root.ActorFile.InitDir " << Quote((options_.outputFolder / "").string())
        << "\n";
      // A kept conditioned take is named where it ends up, beside the scene.
      if (importPath_.parent_path() == dir_) {
        const std::string kept = Quote((options_.outputFolder / importPath_.filename()).string());
        s << "SetValue Scene_Root.BVHActor.BVHFile " << kept << "\n"
          << "SetValue " << actor_ << ".BVHActor.BVHFile " << kept << "\n";
      }
    }
    s << "SaveScene " << Quote(sceneFile.string()) << "\n";
    if (!Script("save", s.str())) return false;  // Save Actor names the file and the reason
    r_.filesWritten = true;
    Phase("save", start);
    // The generated actor with its skill and loop as glTF for engines and viewers, in metres:
    // the scene is in the take's units times the import's scale.
    const auto gltfStart = std::chrono::steady_clock::now();
    const double unit = r_.conditioning ? r_.conditioning->metresPerUnit : 0;
    const double metres = unit > 0 ? unit / options_.scale : 1.0;
    if (!Script("gltf", "ExportGLTF " + Quote(generated_) + " " +
                            Quote((dir_ / (r_.take + ".glb")).string()) + " \"\" " + Num(metres) +
                            "\n"))
      return false;
    Phase("gltf", gltfStart);
    return true;
  }

  std::filesystem::path bvh_, dir_, importPath_, temporary_;
  const ConvertOptions& options_;
  TakeRecord& r_;
  size_t logSeen_ = 0;
  const std::string actor_;
  std::string generated_, cog_, skill_;
  std::vector<std::string> feet_;
  int first_ = 0, last_ = 0;
  double framesPerTakeFrame_ = 1.0, basicPrep_ = 0, threshold_ = kUsualThreshold;
  bool travels_ = false;
  PoseSeries poses_;
  BodyJoints body_;
  Travel travel_;
  std::vector<std::vector<Interval>> contacts_, takeContacts_;
};

}  // namespace

std::string TakeName(const std::filesystem::path& bvh) {
  std::string name = bvh.filename().string();
  if (name.size() > 4) {
    std::string tail = name.substr(name.size() - 4);
    for (char& c : tail) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (tail == ".bvh") name.resize(name.size() - 4);
  }
  return name;
}

std::string TakeSource(const std::filesystem::path& bvh) {
  std::error_code ec;
  const std::filesystem::path absolute = std::filesystem::absolute(bvh, ec);
  return (ec ? bvh : absolute).lexically_normal().string();
}

bool ConvertTake(const std::filesystem::path& bvh, const std::filesystem::path& dir,
                 const ConvertOptions& options, TakeRecord& record) {
  record.take = TakeName(bvh);
  record.source = TakeSource(bvh);
  return Road(record.source, dir, options, record).Run();
}

}  // namespace knrconvert
