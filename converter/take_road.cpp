// One take's road (steps in take_road.h).
#include "take_road.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>

#include "chain_sampler.h"
#include "feet_finder.h"
#include "host.h"
#include "travel.h"
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

constexpr double kRadToDeg = 57.29577951308232;
constexpr double kTravelSamplesPerSecond = 4.0;
constexpr double kWholeRateTolerance = 1e-4;
constexpr double kMinCycleSeconds = 0.5;  // shorter "cycles" come from a contact that flickers

// What the file's header says (frames, frame time); the import checks the rest.
struct BvhHeader {
  int frames = 0;
  double frameTime = 0;
  bool ok = false;
};

BvhHeader ReadHeader(const std::filesystem::path& path) {
  BvhHeader header;
  std::ifstream in(path);
  std::string word;
  while (in >> word) {
    if (word == "Frames:") in >> header.frames;
    if (word == "Time:") {
      in >> header.frameTime;
      header.ok = in.good() && header.frames > 0 && header.frameTime > 0;
      break;
    }
  }
  return header;
}

// Text as a quoted script string.
std::string Quote(const std::string& text) {
  std::string out = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out + "\"";
}

// A double as script text (always with a point or an exponent, so it stays a double).
std::string Num(double value) {
  char buffer[40];
  for (int digits = 1; digits <= 17; ++digits) {  // the shortest text that reads back exactly
    std::snprintf(buffer, sizeof buffer, "%.*g", digits, value);
    if (std::strtod(buffer, nullptr) == value) break;
  }
  std::string text = buffer;
  if (text.find_first_of(".eE") == std::string::npos) text += ".0";
  return text;
}

// An object name that scripts can write bare: letters, digits and "_", not starting with a digit.
std::string ActorName(const std::string& take) {
  std::string name;
  for (char c : take) name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
  if (name.empty() || std::isdigit(static_cast<unsigned char>(name[0]))) name = "Take_" + name;
  return name;
}

double Seconds(std::chrono::steady_clock::time_point since) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

X3DObject Find(const std::string& path) {
  return X3DObject(Zyra::Application().GetObjectFromPath(FromUtf8(path)));
}

// Fcurve items of an action source by target ("Hips.kine.local.rotx").
std::map<std::string, Zyra::FCurve> CurveItems(const std::string& sourcePath) {
  std::map<std::string, Zyra::FCurve> curves;
  Zyra::ActionSource source(Zyra::Application().GetObjectFromPath(FromUtf8(sourcePath)));
  if (!source.IsValid()) return curves;
  for (const CRef& ref : source.GetItems()) {
    Zyra::AnimationSourceItem item(ref);
    if (!item.IsValid() || item.IsStatic()) continue;
    Zyra::FCurve curve(item.GetSource());
    if (curve.IsValid()) curves.emplace(ToUtf8(item.GetTarget().Wide()), curve);
  }
  return curves;
}

class Road {
 public:
  Road(const std::filesystem::path& bvh, const std::filesystem::path& dir,
       const ConvertOptions& options, TakeRecord& record)
      : bvh_(bvh), dir_(dir), options_(options), r_(record) {}

  bool Run() {
    const auto start = std::chrono::steady_clock::now();
    rt::Host& host = rt::Host::Get();
    host.NewScene();
    host.ClearLog();
    host.ui() = rt::UiState{};
    bool ok = Import() && Analyse() && (travels_ || KeyRootAtRest()) && Generate() && Skill() &&
              Loop() && Save();
    r_.seconds.emplace_back("total", Seconds(start));
    CollectWarnings();
    r_.ok = ok;
    return ok;
  }

 private:
  // Runs script lines as step `phase`; on failure the reason is the runner's message without the
  // script's own name and line.
  bool Script(const std::string& phase, const std::string& text) {
    CStatus status = rt::RunScriptText(FromUtf8(text), phase);
    CollectWarnings();
    if (status.Succeeded()) return true;
    std::string message = ToUtf8(status.GetMessage().Wide());
    const std::string prefix = phase + ":";
    if (message.rfind(prefix, 0) == 0) {
      size_t colon = message.find(": ", prefix.size());
      if (colon != std::string::npos) message = message.substr(colon + 2);
    }
    return Fail(phase + ": " + message);
  }

  // Records why the road stopped; the reason names the take's file when the message does not.
  bool Fail(const std::string& reason) {
    r_.reason = reason;
    if (reason.find(bvh_.string()) == std::string::npos) r_.reason += " (" + bvh_.string() + ")";
    return false;
  }

  void CollectWarnings() {
    const auto& lines = rt::Host::Get().LogLines();
    for (; logSeen_ < lines.size(); ++logSeen_) {
      if (lines[logSeen_].severity == rt::kSevWarning)
        r_.warnings.push_back(ToUtf8(lines[logSeen_].text));
    }
  }

  // A line on standard error about a choice the road made (cleared of a progress bar on a
  // terminal first).
  void Info(const std::string& text) const {
    std::cerr << (isatty(STDERR_FILENO) == 1 ? "\r\033[K" : "") << r_.take << ": " << text
              << std::endl;
  }

  void Phase(const std::string& name, std::chrono::steady_clock::time_point since) {
    r_.seconds.emplace_back(name, Seconds(since));
  }

  bool Import() {
    const auto start = std::chrono::steady_clock::now();
    actor_ = ActorName(r_.take);
    const BvhHeader header = ReadHeader(bvh_);
    std::ostringstream s;
    if (header.ok) {
      const double rate = 1.0 / header.frameTime;
      if (std::fabs(rate - std::round(rate)) <= kWholeRateTolerance * rate) {
        s << "SetValue preferences.output_format.frame_rate " << Num(std::round(rate)) << "\n";
      }
    }
    const std::string file = Quote(bvh_.string());
    s << "Answer Page \"Import BVH Actor\" BVHFile=" << file << " ActorName=\"" << actor_
      << "\" Box=true Scale=" << Num(options_.scale) << " Filter=\"\" Remove=\"\"\n"
      << "KnrImportBVHActor\n"
      << "KnrAddBVHAction " << actor_ << " " << file << " \"Take\" " << Num(options_.scale)
      << " true \"\" \"\" true\n";
    if (!Script("import", s.str())) return false;
    if (header.ok) {
      r_.frames = header.frames;
      r_.frameTime = header.frameTime;
    }
    Zyra::ActionSource source(
        Zyra::Application().GetObjectFromPath(FromUtf8(actor_ + ".Sources.Take")));
    if (!source.IsValid()) return Fail("import: the take made no action");
    first_ = static_cast<int>(std::lround(source.GetParameterValue(L"FrameStart").AsDouble()));
    last_ = static_cast<int>(std::floor(source.GetParameterValue(L"FrameEnd").AsDouble() + 1e-6));
    if (!TagActor()) return false;
    Phase("import", start);
    return true;
  }

  bool TagActor() {
    X3DObject srt = Find(actor_ + ".GlobalSRT");
    if (!srt.IsValid()) return Fail("import: the actor has no GlobalSRT");
    std::vector<SkeletonJoint> joints;
    std::vector<std::string> names;
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
    hipHeight_ = joints[static_cast<size_t>(found.cog.index)].y -
                 std::min(joints[static_cast<size_t>(found.left.index)].y,
                          joints[static_cast<size_t>(found.right.index)].y);
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

  // The COG's ground path at a few samples a second: distance, heading change, travel or not.
  bool Analyse() {
    const auto curves = CurveItems(actor_ + ".Sources.Take");
    X3DObject srt = Find(actor_ + ".GlobalSRT");
    const CTransformation parent = srt.GetKinematics().GetGlobal().GetTransform();
    const CTransformation rest =
        Find(actor_ + "." + cog_).GetKinematics().GetLocal().GetTransform();
    double rx, ry, rz, px, py, pz;
    rest.GetRotationFromXYZAnglesValues(rx, ry, rz);
    rest.GetTranslationValues(px, py, pz);
    const double restValues[6] = {px, py, pz, rx * kRadToDeg, ry * kRadToDeg, rz * kRadToDeg};
    const Zyra::FCurve* channels[6] = {};
    const char* names[6] = {"posx", "posy", "posz", "rotx", "roty", "rotz"};
    for (int c = 0; c < 6; ++c) {
      auto it = curves.find(cog_ + ".kine.local." + names[c]);
      channels[c] = it == curves.end() ? nullptr : &it->second;
    }
    const double fps = rt::Host::Get().FrameRate();
    const int step = std::max(1, static_cast<int>(std::lround(fps / kTravelSamplesPerSecond)));
    std::vector<CTransformation> samples;
    for (int f = first_;; f += step) {
      f = std::min(f, last_);
      double v[6];
      for (int c = 0; c < 6; ++c) v[c] = channels[c] ? channels[c]->Eval(CTime(f)) : restValues[c];
      CTransformation local;
      local.SetTranslationFromValues(v[0], v[1], v[2]);
      local.SetRotationFromXYZAnglesValues(v[3] / kRadToDeg, v[4] / kRadToDeg, v[5] / kRadToDeg);
      samples.push_back(CTransformation::Compose(parent, local));
      if (f == last_) break;
    }
    const Travel travel = MeasureTravel(samples);
    r_.distance = travel.distance;
    r_.headingChange = travel.headingChange;
    travels_ = Travels(travel, hipHeight_);
    r_.skill = travels_ ? "Locomotion" : "Basic";
    return true;
  }

  // Keys the actor root's six channels at rest into the action (see take_road.h, step 3).
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
      << "Answer Page \"Generate Actor\" Skill=true\nKnrGenerateActor\n";
    if (!Script("generate", s.str())) return false;
    generated_ = "Knr" + actor_;
    if (!Find(generated_).IsValid())
      return Fail("generate: no generated actor \"" + generated_ + "\"");
    r_.seconds.emplace_back("generate", Seconds(start) + basicPrep_);
    return true;
  }

  bool Skill() {
    const auto start = std::chrono::steady_clock::now();
    if (travels_) r_.threshold = options_.threshold;
    std::ostringstream s;
    s << "SelectObj " << Quote(generated_ + "." + cog_) << "\n"
      << "Answer Page \"Make Skill\" Source=0 Skill=" << (travels_ ? 2 : 1) << " Transfer=false";
    // The page offers the threshold only for a Locomotion skill.
    if (travels_) s << " Threshold=" << Num(options_.threshold);
    s << "\nKnrMakeSkill\n";
    if (!Script("skill", s.str())) return false;
    skill_ = generated_ + ".Sources.Take";
    Zyra::ActionSource source(Zyra::Application().GetObjectFromPath(FromUtf8(skill_)));
    if (!source.IsValid()) return Fail("skill: the skill \"" + skill_ + "\" is missing");
    first_ = static_cast<int>(std::lround(source.GetParameterValue(L"FrameStart").AsDouble()));
    last_ = static_cast<int>(std::floor(source.GetParameterValue(L"FrameEnd").AsDouble() + 1e-6));
    skillCurves_ = CurveItems(skill_);
    if (travels_) {
      for (const std::string& foot : feet_) {
        std::vector<ContactKeyValue> keys;
        auto it = skillCurves_.find(foot + ".RTKEffector.Contact");
        if (it != skillCurves_.end()) {
          for (long k = 0; k < it->second.GetKeyCount(); ++k) {
            keys.push_back(
                {it->second.GetKeyTime(k).GetTime(), it->second.GetKeyValue(k).AsDouble()});
          }
        }
        contacts_.push_back(ContactIntervals(keys, first_, last_));
        r_.contacts[foot] = contacts_.back();
        if (contacts_.back().empty())
          r_.warnings.push_back("no contact found for the foot " + foot);
      }
    }
    if (!Script("skill", "ApplyAction " + Quote(skill_) + "\n")) return false;
    SamplePlots();
    Phase("skill", start);
    return true;
  }

  // Heel heights and the COG's ground path at every frame of the skill, as the skill plays.
  void SamplePlots() {
    r_.firstFrame = first_;
    ChainSampler sampler;
    const int cog = sampler.Add(Find(generated_ + "." + cog_));
    std::vector<int> heels;
    for (const std::string& foot : feet_) {
      X3DObject heel = Find(generated_ + "." + foot + "_CS");
      heels.push_back(sampler.Add(heel.IsValid() ? heel : Find(generated_ + "." + foot)));
    }
    const size_t count = static_cast<size_t>(std::max(0, last_ - first_ + 1));
    r_.pathX.reserve(count);
    r_.pathZ.reserve(count);
    for (int f = first_; f <= last_; ++f) {
      sampler.At(f);
      const CVector3 p = sampler.Global(cog).GetTranslation();
      r_.pathX.push_back(p.GetX());
      r_.pathZ.push_back(p.GetZ());
      for (size_t i = 0; i < feet_.size(); ++i) {
        r_.heel[feet_[i]].push_back(sampler.Global(heels[i]).GetTranslation().GetY());
      }
    }
    for (const auto& [foot, series] : r_.heel) {
      if (series.empty()) continue;
      const auto [low, high] = std::minmax_element(series.begin(), series.end());
      r_.heightLimit[foot] = *low + options_.threshold * (*high - *low);
    }
  }

  bool Loop() {
    const auto start = std::chrono::steady_clock::now();
    // The looped rotation channels, the actor root's left out (loop_window.h).
    std::vector<std::string> targets;
    std::vector<const Zyra::FCurve*> before;
    for (const auto& [target, curve] : skillCurves_) {
      const bool rotation =
          target.size() > 16 && target.find(".kine.local.rot") == target.size() - 16;
      if (rotation && target.rfind("GlobalSRT.", 0) != 0) {
        targets.push_back(target);
        before.push_back(&curve);
      }
    }
    auto evalBefore = [&](size_t c, double frame) { return before[c]->Eval(CTime(frame)); };
    const LoopWindow window =
        ChooseLoopWindow(contacts_, first_, last_, MinCycleFrames(), before.size(), evalBefore);
    Info("loop window " + std::to_string(window.start) + ".." + std::to_string(window.end) +
         (window.foot >= 0 ? " (gait cycle of " + feet_[static_cast<size_t>(window.foot)] + ")"
                           : " (the whole take)"));
    if (travels_ && window.foot < 0) {
      r_.warnings.push_back(
          "no gait cycle found (a foot must plant twice after the first frame): the whole take is "
          "looped");
    }
    std::ostringstream s;
    s << "SelectObj " << Quote(generated_ + "." + cog_) << "\n"
      << "Answer Page \"Loop Skill\" Source=0 Start=" << window.start << " End=" << window.end
      << " Smooth=" << window.smooth << " Loco=" << (window.loco ? "true" : "false")
      << " press=Process\n"
      << "KnrMakeLoop\n";
    if (!Script("loop", s.str())) return false;
    const auto afterCurves = CurveItems(generated_ + ".Sources.Take_loop");
    if (afterCurves.empty()) return Fail("loop: Make Loop stored no \"Take_loop\"");
    const int length = window.end - window.start;
    std::vector<const Zyra::FCurve*> after;
    for (const std::string& target : targets) {
      auto it = afterCurves.find(target);
      after.push_back(it == afterCurves.end() ? nullptr : &it->second);
    }
    auto evalAfter = [&](size_t c, double frame) {
      return after[c] ? after[c]->Eval(CTime(frame)) : before[c]->Eval(CTime(frame + window.start));
    };
    const SeamMeasure seamAfter = MeasureSeam(after.size(), evalAfter, 0, length);
    LoopRecord loop;
    loop.start = window.start;
    loop.end = window.end;
    loop.foot = window.foot >= 0 ? feet_[static_cast<size_t>(window.foot)] : "";
    loop.seamBefore = window.seamBefore.value;
    loop.seamAfter = seamAfter.value;
    r_.loop = loop;
    char seam[120];
    std::snprintf(seam, sizeof seam, "seam %.3g before blending, %.3g after", loop.seamBefore,
                  loop.seamAfter);
    Info(seam);
    if (window.seamBefore.channel >= 0) {
      const size_t c = static_cast<size_t>(window.seamBefore.channel);
      SeamPlot plot;
      plot.channel = generated_ + "." + targets[c];
      for (int pass = 0; pass < 2; ++pass) {
        for (int k = 0; k <= length; ++k) {
          plot.frames.push_back(static_cast<double>(pass * (length + 1) + k));
          plot.before.push_back(evalBefore(c, window.start + k));
          plot.after.push_back(evalAfter(c, k));
        }
      }
      r_.seam = plot;
    }
    Phase("loop", start);
    return true;
  }

  int MinCycleFrames() const {
    return std::max(2,
                    static_cast<int>(std::lround(kMinCycleSeconds * rt::Host::Get().FrameRate())));
  }

  bool Save() {
    const auto start = std::chrono::steady_clock::now();
    const std::filesystem::path actorFile = dir_ / (r_.take + ".actor.zyra");
    const std::filesystem::path sceneFile = dir_ / (r_.take + ".zyra");
    std::ostringstream s;
    s << "SelectObj " << Quote(generated_ + "." + cog_) << "\n"
      << "Answer File \"Save Actor\" " << Quote(actorFile.string()) << "\nKnrSaveActor\n"
      << "SaveScene " << Quote(sceneFile.string()) << "\n";
    if (!Script("save", s.str())) return false;
    r_.filesWritten = true;
    Phase("save", start);
    return true;
  }

  std::filesystem::path bvh_, dir_;
  const ConvertOptions& options_;
  TakeRecord& r_;
  size_t logSeen_ = 0;
  std::string actor_, generated_, cog_, skill_;
  std::vector<std::string> feet_;
  int first_ = 0, last_ = 0;
  double hipHeight_ = 0, basicPrep_ = 0;
  bool travels_ = false;
  std::map<std::string, Zyra::FCurve> skillCurves_;
  std::vector<std::vector<Interval>> contacts_;
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

bool ConvertTake(const std::filesystem::path& bvh, const std::filesystem::path& dir,
                 const ConvertOptions& options, TakeRecord& record) {
  record.take = TakeName(bvh);
  std::error_code ec;
  const std::filesystem::path absolute = std::filesystem::absolute(bvh, ec);
  record.source = (ec ? bvh : absolute).lexically_normal().string();
  return Road(record.source, dir, options, record).Run();
}

}  // namespace knrconvert
