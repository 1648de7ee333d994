// glTF 2.0 export of a model: its hierarchy, a figure skinned to it, and its action sources as
// animations, for game engines and viewers. Written with tinygltf (Debian's libtinygltf).
//
// What the file holds:
//   1. Nodes: the model, then every 3D object below it in depth-first order, each named as its
//      object is and parented as in the scene. The model node carries the model's global
//      transform (so the figure stands where it stands in the scene); every other node its local
//      transform.
//   2. Rest pose: a node's recorded home pose (its "RTKHomePose" tag: global position, XYZ
//      angles in radians, scaling) where it has one, else its pose at the current frame.
//   3. Units: metres and Y up. The host is Y up; lengths are multiplied by the metres per scene
//      unit the caller gives (the host keeps no unit of its own; 1 means the scene is in metres).
//      Scaling is carried as it stands: under the host's hierarchical scaling a non-uniform
//      scaling below a rotated parent has no exact glTF equal (glTF composes matrices).
//   4. Skin and figure: every node except lights, cameras and their interests is a joint; the
//      skeleton root is the model node. The figure is one mesh on a node of its own at the top
//      of the scene, named "<model>.figure" (a "." cannot occur in an object's name, so it never
//      collides): a thin box along each bone (from a joint to each child joint, the model node's
//      own links and collision spheres left out; as wide as a tenth of the bone's length, 4 mm
//      at least), each vertex weighted wholly to the bone's parent joint. A model without
//      bones gets a 5 cm cube on every joint instead.
//   5. Animations: one per action source given, named as the source, sampled at every whole
//      frame from "FrameStart" to "FrameEnd" (times in seconds from the first frame, at the
//      scene's frame rate), LINEAR, rotations as unit quaternions kept on one hemisphere from
//      frame to frame. A node's parameters play as "ApplyAction" would make them: an item of the
//      source replaces the parameter's own animation; parameters without an item keep theirs.
//      A node gets a translation, rotation or scale channel when the source or the scene
//      animates one of its three parameters, or when its constant value differs from the rest
//      pose (then as a single key). A source that moves nothing gets the model node's constant
//      rotation, since an animation needs a channel.
//   6. Animation extras: "skill" (the source's kind: "Default", "Basic", "Locomotion" or
//      "Raw"), "frameStart", "frameEnd", "frameRate"; a Locomotion source adds "feet" (the nodes
//      whose "RTKEffector.Contact" the source holds) and "footContacts": per foot with at least
//      one contact, the intervals in which its contact item is 1, each {"firstFrame",
//      "lastFrame", "start", "end"}: the first and last planted frame (inclusive) and their times
//      in seconds on the animation's timeline. A foot of "feet" missing from "footContacts" has
//      no contact (no empty lists are written: the writer would make them null).
//   7. A path ending in ".gltf" gets JSON with the buffer embedded; any other path a binary .glb.
//      The file is written whole or not at all (atomic_file.h); the scene is never changed.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "model/model.h"
#include "zyra/core.h"

namespace Zyra::rt {

struct GltfExportOptions {
  double metresPerUnit = 1.0;                                // metres per scene length unit, > 0
  std::vector<std::shared_ptr<ActionSourceObject>> sources;  // exported in this order
};

// Writes `model` to `path` (rules above). Fails, writing nothing, with a message that names the
// file or the object at fault.
CStatus ExportGltf(const ModelObject& model, const std::string& path,
                   const GltfExportOptions& options);

}  // namespace Zyra::rt
