// Sampling a take for the run report's 3D view (rules in view_sampler.h).
#include "view_sampler.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace knrconvert {
namespace {

constexpr double kInt16Max = 32767.0;
constexpr size_t kBytesPerCoordinate = 2;
constexpr size_t kBase64CharsPerTriple = 4;  // per 3 bytes

struct Vec3d {
  double x = 0, y = 0, z = 0;
};

Vec3d Rotate(const Quatf& q, const Vec3d& v, bool inverse) {
  const double s = inverse ? -1.0 : 1.0;
  const double qx = s * q.x, qy = s * q.y, qz = s * q.z, qw = q.w;
  // v + 2 w (q x v) + 2 q x (q x v)
  const double tx = 2 * (qy * v.z - qz * v.y), ty = 2 * (qz * v.x - qx * v.z),
               tz = 2 * (qx * v.y - qy * v.x);
  return {v.x + qw * tx + (qy * tz - qz * ty), v.y + qw * ty + (qz * tx - qx * tz),
          v.z + qw * tz + (qx * ty - qy * tx)};
}

size_t EncodedSize(size_t coordinates) {
  return (coordinates * kBytesPerCoordinate + 2) / 3 * kBase64CharsPerTriple;
}

// The smallest step that keeps `frames` samples of `joints` joints within the clip budget.
int StepFor(int frames, int joints) {
  const size_t perFrame = static_cast<size_t>(joints) * 3;
  for (int step = 1;; ++step) {
    const size_t samples = static_cast<size_t>((frames - 1) / step + 1);
    if (EncodedSize(samples * perFrame) <= kViewClipBytes) return step;
  }
}

// Quantises `values` (rule 2) into `clip`.
void Encode(const std::vector<Vec3d>& values, ViewClip& clip) {
  double largest = 0;
  for (const Vec3d& v : values)
    largest = std::max({largest, std::fabs(v.x), std::fabs(v.y), std::fabs(v.z)});
  clip.unit = largest > 0 ? largest / kInt16Max : 1.0;
  std::vector<unsigned char> bytes;
  bytes.reserve(values.size() * 3 * kBytesPerCoordinate);
  const auto put = [&](double value) {
    const auto q = static_cast<int16_t>(std::clamp(std::lround(value / clip.unit),
                                                   -static_cast<long>(kInt16Max),
                                                   static_cast<long>(kInt16Max)));
    const auto u = static_cast<uint16_t>(q);
    bytes.push_back(static_cast<unsigned char>(u & 0xff));
    bytes.push_back(static_cast<unsigned char>(u >> 8));
  };
  for (const Vec3d& v : values) {
    put(v.x);
    put(v.y);
    put(v.z);
  }
  clip.positions = Base64(bytes);
}

Vec3d Take(const PoseSeries& poses, int frame, int joint) {
  const Vec3f& p = poses.At(frame, joint);
  return {p.x, p.y, p.z};
}

int TopJoint(const PoseSeries& poses) {
  const auto top = std::find(poses.parents.begin(), poses.parents.end(), -1);
  return top == poses.parents.end() ? 0 : static_cast<int>(top - poses.parents.begin());
}

// The take's pose of `joint` relative to the COG at `frame`.
Vec3d Relative(const PoseSeries& poses, int frame, int joint, int cog) {
  const Vec3d p = Take(poses, frame, joint), c = Take(poses, frame, cog);
  const Quatf& q = poses.topRotation[static_cast<size_t>(frame)];
  return Rotate(q, {p.x - c.x, p.y - c.y, p.z - c.z}, true);
}

}  // namespace

std::string Base64(const std::vector<unsigned char>& bytes) {
  static const char kAlphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  for (size_t i = 0; i < bytes.size(); i += 3) {
    const size_t left = bytes.size() - i;
    const uint32_t n = (uint32_t{bytes[i]} << 16) | (left > 1 ? uint32_t{bytes[i + 1]} << 8 : 0) |
                       (left > 2 ? uint32_t{bytes[i + 2]} : 0);
    out += kAlphabet[(n >> 18) & 63];
    out += kAlphabet[(n >> 12) & 63];
    out += left > 1 ? kAlphabet[(n >> 6) & 63] : '=';
    out += left > 2 ? kAlphabet[n & 63] : '=';
  }
  return out;
}

ViewRecord SampleView(const PoseSeries& poses, int firstFrame,
                      const std::vector<std::pair<std::string, int>>& feet) {
  ViewRecord view;
  view.frameTime = poses.frameTime;
  view.parents = poses.parents;
  for (const auto& foot : feet)
    if (foot.second >= 0 && foot.second < poses.Joints()) view.feet.push_back(foot);
  const int joints = poses.Joints();
  if (poses.frames <= 0 || joints <= 0) return view;
  ViewClip& clip = view.skill;
  clip.first = firstFrame;
  clip.step = StepFor(poses.frames, joints);
  clip.count = (poses.frames - 1) / clip.step + 1;
  std::vector<Vec3d> values;
  values.reserve(static_cast<size_t>(clip.count) * static_cast<size_t>(joints));
  for (int s = 0; s < clip.count; ++s)
    for (int j = 0; j < joints; ++j) values.push_back(Take(poses, s * clip.step, j));
  Encode(values, clip);
  return view;
}

void AddLoopView(ViewRecord& view, const PoseSeries& poses, int firstFrame, const MadeLoop& loop) {
  const int joints = poses.Joints();
  if (loop.start < 0 || loop.end <= loop.start || loop.end >= poses.frames || joints <= 0 ||
      poses.topRotation.size() < static_cast<size_t>(poses.frames))
    return;
  const int cog = TopJoint(poses);
  const int frames = loop.end - loop.start + 1;

  // The scene's joint for each of the take's joints, or -1 (rule 4).
  std::vector<int> sceneJoint(static_cast<size_t>(joints), -1);
  const bool sampled = loop.source && loop.made && loop.names && loop.source->frames >= frames &&
                       loop.made->frames >= frames && loop.source->joints == loop.made->joints &&
                       static_cast<int>(loop.names->size()) == loop.source->joints;
  bool made = sampled;
  if (sampled) {
    for (int j = 0; j < joints; ++j) {
      const auto it = std::find(loop.names->begin(), loop.names->end(), poses.names[j]);
      if (it != loop.names->end()) sceneJoint[j] = static_cast<int>(it - loop.names->begin());
    }
    // The scene's window must be the take's window: same joints relative to the same COG frame.
    double size = 0, apart = 0;
    for (int f = 0; f < frames; f += std::max(1, frames / 8)) {
      for (int j = 0; j < joints; ++j) {
        if (sceneJoint[j] < 0) continue;
        const Vec3d t = Relative(poses, loop.start + f, j, cog);
        const Vec3f& s = loop.source->At(f, sceneJoint[j]);
        size = std::max(size, std::sqrt(t.x * t.x + t.y * t.y + t.z * t.z));
        apart = std::max(apart, std::hypot(t.x - s.x, t.y - s.y, t.z - s.z));
      }
    }
    made = size > 0 && apart <= kViewMatchTolerance * size;
  }

  ViewClip clip;
  clip.first = firstFrame + loop.start;
  clip.step = StepFor(frames, joints);
  clip.count = (frames - 1) / clip.step + 1;
  clip.made = made;
  std::vector<Vec3d> values;
  values.reserve(static_cast<size_t>(clip.count) * static_cast<size_t>(joints));
  for (int s = 0; s < clip.count; ++s) {
    const int f = s * clip.step, frame = loop.start + f;
    const Vec3d c = Take(poses, frame, cog);
    const Quatf& q = poses.topRotation[static_cast<size_t>(frame)];
    for (int j = 0; j < joints; ++j) {
      if (!made || sceneJoint[j] < 0) {
        values.push_back(Take(poses, frame, j));
        continue;
      }
      const Vec3f& m = loop.made->At(f, sceneJoint[j]);
      const Vec3d p = Rotate(q, {m.x, m.y, m.z}, false);
      values.push_back({c.x + p.x, c.y + p.y, c.z + p.z});
    }
  }
  Encode(values, clip);
  view.loop = std::move(clip);
}

}  // namespace knrconvert
