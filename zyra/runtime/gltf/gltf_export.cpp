// glTF 2.0 export of a model (rules in gltf_export.h) and the host command ExportGLTF.
#include "gltf/gltf_export.h"

#include <tiny_gltf.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <map>
#include <sstream>
#include <thread>

#include "files/atomic_file.h"
#include "gltf/gltf_buffer.h"
#include "gltf/gltf_figure.h"
#include "host/host.h"
#include "model/scene_graph.h"

namespace Zyra::rt {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kDegToRad = kPi / 180.0;

// The local state's channels in order: translation, rotation (degrees, XYZ), scaling.
constexpr int kChannelCount = 9;
const wchar_t* const kChannelNames[kChannelCount] = {L"posx", L"posy", L"posz", L"rotx", L"roty",
                                                     L"rotz", L"sclx", L"scly", L"sclz"};
constexpr double kChannelDefaults[kChannelCount] = {0, 0, 0, 0, 0, 0, 1, 1, 1};
const wchar_t* const kHomeNames[kChannelCount] = {L"px", L"py", L"pz", L"rx", L"ry",
                                                  L"rz", L"sx", L"sy", L"sz"};
const char* const kPathNames[3] = {"translation", "rotation", "scale"};
constexpr size_t kWidths[3] = {3, 4, 3};  // floats per key of each path
const char* const kSkillKinds[4] = {"Default", "Basic", "Locomotion", "Raw"};
constexpr int kLocomotionKind = 2;

constexpr double kJointCubeHalf = 0.025;    // metres: the cube of a joint without bones
constexpr size_t kMaxJoints = 65535;        // JOINTS_0 is written as unsigned short
constexpr size_t kKeysForThreads = 100000;  // poses to sample before a second thread pays

// Where one channel's value comes from while a source plays. Frames are asked in increasing
// order, so a cursor finds a key standing at the frame itself without a search (a take's curves
// have one a frame); between keys the curve is evaluated as usual.
struct ChannelSource {
  const FCurveObject* curve = nullptr;  // null: constant
  double constant = 0;
  size_t cursor = 0;
  double At(double frame) {
    if (!curve) return constant;
    const FCurveKeys& keys = curve->keys;
    const size_t n = keys.size();
    while (cursor < n && keys.Frame(cursor) < frame) ++cursor;
    if (cursor < n && keys.Frame(cursor) == frame) return keys.Value(cursor);
    return curve->Evaluate(frame);
  }
};

struct Node {
  std::shared_ptr<X3D> object;
  int parent = -1;
  const Parameter* params[kChannelCount] = {};
  MATH::CTransformation restGlobal;  // scene units
  MATH::CTransformation rest;        // local (the model node: global), scene units
  int joint = -1;                    // index among the skin's joints; -1 for none
  bool sphere = false;               // a collision sphere: no bone ends there
};

bool IsJointClass(siClassID id) {
  return id != siCameraID && id != siLightID && id != siCameraInterestID && id != siLightInterestID;
}

// The node's recorded home pose (global), when it has one.
bool HomePose(const X3D& object, double now, MATH::CTransformation& out) {
  const Property* tag = object.FindProperty(L"RTKHomePose");
  if (!tag) return false;
  double v[kChannelCount];
  for (int c = 0; c < kChannelCount; ++c) {
    const Parameter* p = tag->FindParam(kHomeNames[c]);
    if (!p) return false;
    v[c] = p->Evaluate(now).AsDouble();
  }
  out.SetTranslationFromValues(v[0], v[1], v[2])
      .SetRotationFromXYZAnglesValues(v[3], v[4], v[5])
      .SetScalingFromValues(v[6], v[7], v[8]);
  return true;
}

void Collect(const std::shared_ptr<X3D>& object, int parent, std::vector<Node>& nodes) {
  Node node;
  node.object = object;
  node.parent = parent;
  for (int c = 0; c < kChannelCount; ++c)
    node.params[c] = object->local ? object->local->FindParam(kChannelNames[c]) : nullptr;
  node.sphere = object->FindProperty(L"RTKSphere") != nullptr;
  nodes.push_back(node);
  const int index = static_cast<int>(nodes.size()) - 1;
  for (const auto& child : object->children) Collect(child, index, nodes);
}

MATH::CTransformation FromChannels(const double v[kChannelCount]) {
  MATH::CTransformation t;
  t.SetTranslationFromValues(v[0], v[1], v[2])
      .SetRotationFromXYZAnglesValues(v[3] * kDegToRad, v[4] * kDegToRad, v[5] * kDegToRad)
      .SetScalingFromValues(v[6], v[7], v[8]);
  return t;
}

// The three or four floats of one path of `t`, lengths in metres.
void PathValues(const MATH::CTransformation& t, int path, double metres, float out[4]) {
  if (path == 0) {
    const MATH::CVector3 v = t.GetTranslation();
    out[0] = static_cast<float>(v.GetX() * metres);
    out[1] = static_cast<float>(v.GetY() * metres);
    out[2] = static_cast<float>(v.GetZ() * metres);
  } else if (path == 1) {
    const MATH::CQuaternion q = t.GetRotationQuaternion();
    out[0] = static_cast<float>(q.GetX());
    out[1] = static_cast<float>(q.GetY());
    out[2] = static_cast<float>(q.GetZ());
    out[3] = static_cast<float>(q.GetW());
  } else {
    const MATH::CVector3 v = t.GetScaling();
    out[0] = static_cast<float>(v.GetX());
    out[1] = static_cast<float>(v.GetY());
    out[2] = static_cast<float>(v.GetZ());
  }
}

// The keys of a node's three paths at `frame` straight from its local channels, as PathValues
// gives them from the local transform: the rotation is made in single precision, which is what
// the file holds (the half angles in float keep a quaternion within 1e-6 of the double one).
void KeysAt(ChannelSource* channels, double frame, double metres, float keys[3][4]) {
  double v[kChannelCount];
  for (int c = 0; c < kChannelCount; ++c) v[c] = channels[c].At(frame);
  float sn[3], cs[3];
  for (int a = 0; a < 3; ++a) {
    // Angles are brought into one period of the quaternion (720 degrees) for float precision.
    const double angle = std::fabs(v[3 + a]) > 360.0 ? std::remainder(v[3 + a], 720.0) : v[3 + a];
    const auto half = static_cast<float>(angle * (0.5 * kDegToRad));
    sn[a] = std::sin(half);
    cs[a] = std::cos(half);
  }
  for (int i = 0; i < 3; ++i) {
    keys[0][i] = static_cast<float>(v[i] * metres);
    keys[2][i] = static_cast<float>(v[6 + i]);
  }
  // qz * qy * qx multiplied out, x y z w.
  keys[1][0] = cs[2] * cs[1] * sn[0] - sn[2] * sn[1] * cs[0];
  keys[1][1] = cs[2] * sn[1] * cs[0] + sn[2] * cs[1] * sn[0];
  keys[1][2] = sn[2] * cs[1] * cs[0] - cs[2] * sn[1] * sn[0];
  keys[1][3] = cs[2] * cs[1] * cs[0] + sn[2] * sn[1] * sn[0];
}

// The exporter's state for one call.
class Exporter {
 public:
  Exporter(const ModelObject& model, const GltfExportOptions& options)
      : model_(model), options_(options), now_(Host::Get().CurrentFrame()), writer_(out_) {}

  CStatus Build() {
    // The exporter only reads the scene; Node holds the handles the scene graph gives out.
    Collect(std::const_pointer_cast<X3D>(
                std::static_pointer_cast<const X3D>(model_.shared_from_this())),
            -1, nodes_);
    auto parent = model_.Parent();
    if (parent) modelParent_ = parent->GlobalTransform(now_);
    RestPose();
    size_t joints = 0;
    for (Node& node : nodes_) {
      if (IsJointClass(node.object->classId)) node.joint = static_cast<int>(joints++);
    }
    if (joints > kMaxJoints) {
      return CStatus(CStatus::Fail, model_.FullName() + L" has " + std::to_wstring(joints) +
                                        L" objects; a glTF skin takes at most 65535 joints.");
    }
    out_.asset.version = "2.0";
    out_.asset.generator = "Zyra glTF export";
    for (const Node& node : nodes_) AddNode(node);
    Figure();
    // Room for every key at once (an upper bound: untouched room costs no memory), so that the
    // buffer is not copied as it grows.
    size_t bound = size_t{1} << 20;
    for (const auto& source : options_.sources) {
      double start = 0;
      size_t frames = 0;
      FrameRange(*source, start, frames);
      bound += frames * (nodes_.size() * 10 + 1) * sizeof(float) + nodes_.size() * 64;
    }
    writer_.Reserve(out_.buffers[0].data.size() + bound);
    for (const auto& source : options_.sources) Animation(*source);
    tinygltf::Scene scene;
    scene.nodes = {0, figureNode_};
    out_.scenes.push_back(scene);
    out_.defaultScene = 0;
    return CStatus::OK;
  }

  const tinygltf::Model& Result() const { return out_; }

 private:
  void RestPose() {
    for (Node& node : nodes_) {
      MATH::CTransformation home;
      const bool tagged = HomePose(*node.object, now_, home);
      if (node.parent < 0) {
        node.restGlobal = tagged ? home : node.object->GlobalTransform(now_);
        node.rest = node.restGlobal;
        continue;
      }
      const Node& parent = nodes_[static_cast<size_t>(node.parent)];
      if (!tagged)
        home = MATH::CTransformation::Compose(parent.restGlobal, node.object->LocalTransform(now_));
      node.restGlobal = home;
      node.rest = MATH::CTransformation::LocalFrom(parent.restGlobal, home);
    }
  }

  void AddNode(const Node& node) {
    tinygltf::Node n;
    n.name = ToUtf8(node.object->name);
    float v[4];
    PathValues(node.rest, 0, options_.metresPerUnit, v);
    n.translation = {v[0], v[1], v[2]};
    PathValues(node.rest, 1, 1, v);
    n.rotation = {v[0], v[1], v[2], v[3]};
    PathValues(node.rest, 2, 1, v);
    n.scale = {v[0], v[1], v[2]};
    out_.nodes.push_back(n);
    const int index = static_cast<int>(out_.nodes.size()) - 1;
    if (node.parent >= 0) out_.nodes[static_cast<size_t>(node.parent)].children.push_back(index);
    // The global matrix as a viewer composes it, for the bind pose.
    const Mat4 local = MatrixOf(node.rest.GetTranslation() * options_.metresPerUnit,
                                node.rest.GetRotationQuaternion(), node.rest.GetScaling());
    globals_.push_back(
        node.parent < 0 ? local : Multiply(globals_[static_cast<size_t>(node.parent)], local));
  }

  void Figure() {
    auto position = [&](size_t i, double p[3]) {
      for (int k = 0; k < 3; ++k) p[k] = globals_[i][12 + static_cast<size_t>(k)];
    };
    for (size_t i = 1; i < nodes_.size(); ++i) {
      const Node& child = nodes_[i];
      if (child.joint < 0 || child.sphere || child.parent <= 0) continue;
      const Node& parent = nodes_[static_cast<size_t>(child.parent)];
      if (parent.joint < 0 || parent.sphere) continue;
      double a[3], b[3];
      position(static_cast<size_t>(child.parent), a);
      position(i, b);
      figure_.AddBox(a, b, 0, parent.joint);
    }
    if (figure_.indices.empty()) {
      for (size_t i = 0; i < nodes_.size(); ++i) {
        if (nodes_[i].joint < 0) continue;
        double a[3];
        position(i, a);
        figure_.AddBox(a, nullptr, kJointCubeHalf, nodes_[i].joint);
      }
    }
    tinygltf::Skin skin;
    skin.name = ToUtf8(model_.name);
    skin.skeleton = 0;
    std::vector<float> inverseBind;
    for (size_t i = 0; i < nodes_.size(); ++i) {
      if (nodes_[i].joint < 0) continue;
      skin.joints.push_back(static_cast<int>(i));
      for (double x : InverseAffine(globals_[i])) inverseBind.push_back(static_cast<float>(x));
    }
    skin.inverseBindMatrices = writer_.Floats(inverseBind, TINYGLTF_TYPE_MAT4, 16);
    out_.skins.push_back(skin);

    std::vector<double> min(3, 1e300), max(3, -1e300);
    for (size_t i = 0; i < figure_.positions.size(); ++i) {
      min[i % 3] = std::min<double>(min[i % 3], figure_.positions[i]);
      max[i % 3] = std::max<double>(max[i % 3], figure_.positions[i]);
    }
    tinygltf::Primitive primitive;
    primitive.mode = TINYGLTF_MODE_TRIANGLES;
    primitive.attributes["POSITION"] =
        writer_.Add(figure_.positions.data(), figure_.positions.size() * sizeof(float),
                    TINYGLTF_COMPONENT_TYPE_FLOAT, TINYGLTF_TYPE_VEC3, figure_.positions.size() / 3,
                    TINYGLTF_TARGET_ARRAY_BUFFER, min, max);
    primitive.attributes["JOINTS_0"] =
        writer_.Add(figure_.joints.data(), figure_.joints.size() * sizeof(uint16_t),
                    TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT, TINYGLTF_TYPE_VEC4,
                    figure_.joints.size() / 4, TINYGLTF_TARGET_ARRAY_BUFFER);
    primitive.attributes["WEIGHTS_0"] =
        writer_.Add(figure_.weights.data(), figure_.weights.size() * sizeof(float),
                    TINYGLTF_COMPONENT_TYPE_FLOAT, TINYGLTF_TYPE_VEC4, figure_.weights.size() / 4,
                    TINYGLTF_TARGET_ARRAY_BUFFER);
    primitive.indices =
        writer_.Add(figure_.indices.data(), figure_.indices.size() * sizeof(uint32_t),
                    TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT, TINYGLTF_TYPE_SCALAR,
                    figure_.indices.size(), TINYGLTF_TARGET_ELEMENT_ARRAY_BUFFER);
    tinygltf::Mesh mesh;
    mesh.name = ToUtf8(model_.name) + ".figure";
    mesh.primitives.push_back(primitive);
    out_.meshes.push_back(mesh);
    tinygltf::Node node;
    node.name = mesh.name;
    node.mesh = 0;
    node.skin = 0;
    out_.nodes.push_back(node);
    figureNode_ = static_cast<int>(out_.nodes.size()) - 1;
  }

  // The parameter an item of a source plays on, as "ApplyAction" resolves it.
  const Parameter* ItemTarget(const SourceItem& item) const {
    const std::wstring path = model_.Owner() ? model_.FullName() + L"." + item.target : item.target;
    return dynamic_cast<const Parameter*>(Resolve(path).get());
  }

  ChannelSource SourceOf(const Parameter* param, const SourceItem* item, int channel) const {
    if (item && item->fcurve && !item->fcurve->keys.empty()) return {item->fcurve.get(), 0};
    if (item && !item->fcurve) return {nullptr, item->staticValue.AsDouble()};
    if (!param) return {nullptr, kChannelDefaults[channel]};
    if (param->fcurve && !param->fcurve->keys.empty()) return {param->fcurve.get(), 0};
    return {nullptr, param->value.AsDouble()};
  }

  // The source's first frame and its number of whole frames (one at least).
  static void FrameRange(const ActionSourceObject& source, double& start, size_t& frames) {
    const Parameter* startParam = source.FindParam(L"FrameStart");
    const Parameter* endParam = source.FindParam(L"FrameEnd");
    start = startParam ? startParam->value.AsDouble() : 1.0;
    const double end = endParam ? endParam->value.AsDouble() : start;
    frames = static_cast<size_t>(std::max(0.0, std::floor(end - start + 1e-9))) + 1;
  }

  // A node's pose at `frame` as its channels play (the model node: global).
  MATH::CTransformation PoseAt(const Node& node, ChannelSource* channels, double frame) const {
    double v[kChannelCount];
    for (int c = 0; c < kChannelCount; ++c) v[c] = channels[c].At(frame);
    const MATH::CTransformation local = FromChannels(v);
    return node.parent < 0 ? MATH::CTransformation::Compose(modelParent_, local) : local;
  }

  void Animation(const ActionSourceObject& source) {
    double start = 0;
    size_t frames = 0;
    FrameRange(source, start, frames);
    const double rate = Host::Get().FrameRate();

    std::map<const Parameter*, const SourceItem*> items;
    for (const auto& item : source.items) {
      if (const Parameter* p = ItemTarget(*item)) items[p] = item.get();
    }
    tinygltf::Animation animation;
    animation.name = ToUtf8(source.name);
    std::vector<float> times(frames);
    for (size_t k = 0; k < frames; ++k) times[k] = static_cast<float>(double(k) / rate);
    int input = -1, singleInput = -1;
    std::vector<float> values;
    // First which paths each node gets, and with how many keys: every frame for a driven path,
    // one key for a constant one that differs from the rest pose, none otherwise. Then the keys
    // are sampled straight into the buffer, one pose a frame for all of a node's paths.
    struct Track {
      size_t node;
      ChannelSource channels[kChannelCount];
      size_t counts[3];
      size_t offsets[3];
    };
    std::vector<Track> tracks;
    for (size_t n = 0; n < nodes_.size(); ++n) {
      Track track{};
      track.node = n;
      const Node& node = nodes_[n];
      bool driven[3] = {};
      for (int c = 0; c < kChannelCount; ++c) {
        auto found = items.find(node.params[c]);
        track.channels[c] =
            SourceOf(node.params[c], found == items.end() ? nullptr : found->second, c);
        if (track.channels[c].curve) driven[c / 3] = true;
      }
      ChannelSource probe[kChannelCount];
      std::copy(track.channels, track.channels + kChannelCount, probe);
      const MATH::CTransformation first = PoseAt(node, probe, start);
      for (int path = 0; path < 3; ++path) {
        float rest[4], v[4];
        PathValues(node.rest, path, options_.metresPerUnit, rest);
        PathValues(first, path, options_.metresPerUnit, v);
        track.counts[path] = driven[path] ? frames : SamePath(v, rest, path) ? 0 : 1;
      }
      if (track.counts[0] + track.counts[1] + track.counts[2] > 0) tracks.push_back(track);
    }
    for (Track& track : tracks) {
      for (int path = 0; path < 3; ++path)
        track.offsets[path] = writer_.Allocate(track.counts[path] * kWidths[path] * sizeof(float));
    }
    const auto sample = [&](Track& track) {
      const Node& node = nodes_[track.node];
      float* out[3];
      for (int path = 0; path < 3; ++path) out[path] = writer_.FloatsAt(track.offsets[path]);
      const size_t sampled = std::max({track.counts[0], track.counts[1], track.counts[2]});
      for (size_t k = 0; k < sampled; ++k) {
        float keys[3][4];
        if (node.parent < 0) {
          const MATH::CTransformation pose = PoseAt(node, track.channels, start + double(k));
          for (int path = 0; path < 3; ++path)
            PathValues(pose, path, options_.metresPerUnit, keys[path]);
        } else {
          KeysAt(track.channels, start + double(k), options_.metresPerUnit, keys);
        }
        for (int path = 0; path < 3; ++path) {
          if (k >= track.counts[path]) continue;
          float* key = out[path] + k * kWidths[path];
          std::memcpy(key, keys[path], kWidths[path] * sizeof(float));
          if (path == 1 && k > 0) {
            // Neighbouring keys on one hemisphere, so that interpolation takes the short way.
            const float* previous = key - 4;
            if (key[0] * previous[0] + key[1] * previous[1] + key[2] * previous[2] +
                    key[3] * previous[3] <
                0) {
              for (int i = 0; i < 4; ++i) key[i] = -key[i];
            }
          }
        }
      }
    };
    // Tracks write disjoint parts of the buffer and only read the scene: they are sampled on up
    // to two threads, interleaved so that each gets a like share (a short source on one).
    const size_t workers =
        frames * tracks.size() < kKeysForThreads
            ? 1
            : std::min<size_t>(2, std::max(1u, std::thread::hardware_concurrency()));
    std::vector<std::thread> threads;
    for (size_t w = 1; w < workers && tracks.size() > 1; ++w) {
      threads.emplace_back([&, w] {
        for (size_t t = w; t < tracks.size(); t += workers) sample(tracks[t]);
      });
    }
    const size_t step = threads.empty() ? 1 : workers;
    for (size_t t = 0; t < tracks.size(); t += step) sample(tracks[t]);
    for (std::thread& thread : threads) thread.join();
    for (Track& track : tracks) {
      for (int path = 0; path < 3; ++path) {
        if (track.counts[path] == 0) continue;
        const size_t count = track.counts[path];
        const int output =
            writer_.Accessor(track.offsets[path], count * kWidths[path] * sizeof(float),
                             TINYGLTF_COMPONENT_TYPE_FLOAT,
                             path == 1 ? TINYGLTF_TYPE_VEC4 : TINYGLTF_TYPE_VEC3, count);
        AddChannel(animation, static_cast<int>(track.node), path, output, count, times, input,
                   singleInput);
      }
    }
    if (animation.channels.empty()) {
      // An animation needs a channel: the model node holds its rest rotation.
      float rest[4];
      PathValues(nodes_[0].rest, 1, 1, rest);
      values.assign(rest, rest + 4);
      AddChannel(animation, 0, 1, writer_.Floats(values, TINYGLTF_TYPE_VEC4, 4), 1, times, input,
                 singleInput);
    }
    animation.extras = Extras(source, items, start, frames, rate);
    out_.animations.push_back(animation);
  }

  static bool SamePath(const float a[4], const float b[4], int path) {
    if (path == 1) {
      const double dot =
          double(a[0]) * b[0] + double(a[1]) * b[1] + double(a[2]) * b[2] + double(a[3]) * b[3];
      return std::fabs(dot) > 1 - 1e-7;
    }
    for (int i = 0; i < 3; ++i) {
      if (std::fabs(a[i] - b[i]) > 1e-6f * std::max(1.0f, std::fabs(b[i]))) return false;
    }
    return true;
  }

  void AddChannel(tinygltf::Animation& animation, int node, int path, int output, size_t count,
                  const std::vector<float>& times, int& input, int& singleInput) {
    int& in = count == 1 ? singleInput : input;
    if (in < 0) {
      in = writer_.Add(times.data(), count * sizeof(float), TINYGLTF_COMPONENT_TYPE_FLOAT,
                       TINYGLTF_TYPE_SCALAR, count, 0, {0.0}, {double(times[count - 1])});
    }
    tinygltf::AnimationSampler sampler;
    sampler.input = in;
    sampler.output = output;
    sampler.interpolation = "LINEAR";
    animation.samplers.push_back(sampler);
    tinygltf::AnimationChannel channel;
    channel.sampler = static_cast<int>(animation.samplers.size()) - 1;
    channel.target_node = node;
    channel.target_path = kPathNames[path];
    animation.channels.push_back(channel);
  }

  tinygltf::Value Extras(const ActionSourceObject& source,
                         const std::map<const Parameter*, const SourceItem*>& items, double start,
                         size_t frames, double rate) const {
    tinygltf::Value::Object extras;
    const Parameter* typeParam = source.FindParam(L"type");
    const int kind = typeParam ? typeParam->value.AsInt() : 0;
    extras["skill"] = tinygltf::Value(std::string(kind >= 0 && kind < 4 ? kSkillKinds[kind] : ""));
    extras["frameStart"] = tinygltf::Value(start);
    extras["frameEnd"] = tinygltf::Value(start + double(frames - 1));
    extras["frameRate"] = tinygltf::Value(rate);
    if (kind == kLocomotionKind) {
      // The library writes an empty list or object as null, so a foot without contacts is only
      // named in "feet", and "footContacts" holds the feet that have some.
      tinygltf::Value::Array names;
      tinygltf::Value::Object feet;
      const std::wstring kContact = L".RTKEffector.Contact";
      for (const auto& item : source.items) {
        const std::wstring& target = item->target;
        if (target.size() <= kContact.size() ||
            target.compare(target.size() - kContact.size(), kContact.size(), kContact) != 0)
          continue;
        std::wstring foot = target.substr(0, target.size() - kContact.size());
        foot = foot.substr(foot.rfind(L'.') == std::wstring::npos ? 0 : foot.rfind(L'.') + 1);
        auto found = items.find(ItemTarget(*item));
        ChannelSource contact =
            SourceOf(ItemTarget(*item), found == items.end() ? item.get() : found->second, 0);
        tinygltf::Value::Array intervals;
        size_t open = 0;
        bool planted = false;
        for (size_t k = 0; k <= frames; ++k) {
          const bool plantedHere = k < frames && contact.At(start + double(k)) > 0.5;
          if (plantedHere && !planted) open = k;
          if (!plantedHere && planted) {
            tinygltf::Value::Object interval;
            interval["firstFrame"] = tinygltf::Value(start + double(open));
            interval["lastFrame"] = tinygltf::Value(start + double(k - 1));
            interval["start"] = tinygltf::Value(double(open) / rate);
            interval["end"] = tinygltf::Value(double(k - 1) / rate);
            intervals.push_back(tinygltf::Value(std::move(interval)));
          }
          planted = plantedHere;
        }
        names.push_back(tinygltf::Value(ToUtf8(foot)));
        if (!intervals.empty()) feet[ToUtf8(foot)] = tinygltf::Value(std::move(intervals));
      }
      if (!names.empty()) extras["feet"] = tinygltf::Value(std::move(names));
      if (!feet.empty()) extras["footContacts"] = tinygltf::Value(std::move(feet));
    }
    return tinygltf::Value(std::move(extras));
  }

  const ModelObject& model_;
  const GltfExportOptions& options_;
  const double now_;
  tinygltf::Model out_;
  GltfBufferWriter writer_;
  std::vector<Node> nodes_;
  std::vector<Mat4> globals_;
  MATH::CTransformation modelParent_;
  FigureMesh figure_;
  int figureNode_ = -1;
};

bool EndsWith(const std::string& text, const std::string& tail) {
  if (text.size() < tail.size()) return false;
  for (size_t i = 0; i < tail.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(text[text.size() - tail.size() + i])) != tail[i])
      return false;
  }
  return true;
}

}  // namespace

CStatus ExportGltf(const ModelObject& model, const std::string& path,
                   const GltfExportOptions& options) {
  const std::wstring where = FromUtf8(path) + L": ";
  if (!(options.metresPerUnit > 0) || !std::isfinite(options.metresPerUnit))
    return CStatus(CStatus::InvalidArgument, where + L"the metres per unit must be above 0.");
  if (!(Host::Get().FrameRate() > 0) || !std::isfinite(Host::Get().FrameRate()))
    return CStatus(CStatus::InvalidArgument,
                   where +
                       L"the scene's frame rate (preferences.output_format.frame_rate) is not "
                       L"above 0, so frames have no time.");
  Exporter exporter(model, options);
  CStatus status = exporter.Build();
  if (!status.Succeeded()) return CStatus(status.GetCode(), where + status.GetMessage().Wide());
  ReplacingFile file(path);
  status = file.Open();
  if (!status.Succeeded()) return status;
  ReplacingFileBuf buffer(file);
  std::ostream stream(&buffer);
  tinygltf::TinyGLTF gltf;
  const bool binary = !EndsWith(path, ".gltf");
  const bool written = gltf.WriteGltfSceneToStream(&exporter.Result(), stream, false, binary);
  stream.flush();
  // A failed write shows in Commit; a writer that gave up leaves the temporary file behind to be
  // removed, and the target as it was.
  if (!written) return CStatus(CStatus::Fail, where + L"cannot write: the glTF writer failed.");
  return file.Commit();
}

}  // namespace Zyra::rt
