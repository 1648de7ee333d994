// Scene files (".zyra"): the open scene, or one branch of it, as JSON text, and back.
//
// A file is {"format": "zyra-scene", "version": 1, "scene": {...}}. The "scene" object holds
// either a whole scene ("kind": "scene": the scene root's branch, groups, passes, play control,
// preferences and export options) or one exported branch ("kind": "branch"). docs/scene-file.md
// describes every field.
//
// Reading never touches the open scene until the whole file was read and every reference in it
// resolved: the reader builds a detached graph and only a complete one is swapped in or moved
// under its new parent. A file that fails leaves the scene, and every handle into it, as it was.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "model/scene_graph.h"

namespace Zyra::rt {

inline constexpr const char* kSceneFileFormat = "zyra-scene";
// The newest scene file version this host writes and reads.
inline constexpr int kSceneFileVersion = 1;

// Parameter values may nest arrays this deep. The reader refuses a deeper value with a message
// that names the file and the value, and the writer refuses to save one (a plug-in may build it),
// so that neither recurses past what the stack holds and every file written can be read back.
inline constexpr int kMaxValueDepth = 1000;

// Objects (children, properties, nested items) may nest this deep: the reader refuses a deeper
// file and the writer a deeper scene, for the same reasons.
inline constexpr int kMaxObjectDepth = 1000;

// What a branch export keeps ("dotZyraExportOptions": custompset, animall).
struct BranchWriteOptions {
  bool customProperties = true;  // false: custom and plug-in properties are left out
  bool animation = true;         // false: parameters are written as their value at `frame`
  double frame = 1.0;
  // Called with each curve's key count as it is written (for a progress bar); may be empty.
  std::function<void(size_t keys)> progress;
};

// Receives a scene file's text in pieces, in order, as it is made; false stops the writing.
using TextSink = std::function<bool(std::string_view piece)>;

// Why a scene could not be written: `refusal` says what in the scene cannot be written ("the value
// of A.p nests arrays deeper than 1000 levels"), before anything reached the sink; empty when the
// sink stopped the writing (the sink knows why).
struct WriteOutcome {
  bool written = false;
  std::string refusal;
};

// Writes the scene as scene-file text through `sink`, which gets it in pieces of about a MiB.
// `progress` hears of each curve's keys as they are written.
WriteOutcome WriteSceneText(const Scene& scene, const TextSink& sink,
                            const std::function<void(size_t keys)>& progress = {});
// One branch through `sink`.
WriteOutcome WriteBranchText(const X3D& top, const BranchWriteOptions& options,
                             const TextSink& sink);

// The scene as scene-file text. Deterministic: the same scene always gives the same bytes. Empty
// when the scene cannot be written (a value nested deeper than kMaxValueDepth).
std::string WriteSceneText(const Scene& scene,
                           const std::function<void(size_t keys)>& progress = {});
// One branch (`top` and everything below it) as scene-file text; empty as above.
std::string WriteBranchText(const X3D& top, const BranchWriteOptions& options);

// Reads a whole file; fails with "<path>: cannot open: <reason>", also for a path that names no
// regular file ("it is a FIFO, not a regular file": regular_file.h).
CStatus ReadWholeFile(const std::string& path, std::string& text);

// Reads scene-file text into a new scene that is not yet the open one. `fileName` names the
// file in messages. On failure `out` is left empty and the status says what and where.
CStatus ReadSceneText(const std::string& text, const std::string& fileName, Scene& out);
// Files are read through a buffer of this size: a number column longer than it is parsed as it
// streams past, shorter ones whole (by two threads when long).
inline constexpr size_t kSceneReadBuffer = 4 << 20;

// Reads a scene file into a new scene as it streams from disk through a buffer of `bufferSize`
// bytes (the file's text is never held whole); fails with "<path>: cannot open: <reason>" or as
// ReadSceneText.
CStatus ReadSceneFile(const std::string& path, Scene& out, size_t bufferSize = kSceneReadBuffer);
// Reads the branch of scene-file text under a new, detached holder and, once complete, moves it
// under `parent` (names made unique in its name space). A whole-scene file imports as a model
// named after the file. `out` is the imported top object.
CStatus ReadBranchText(const std::string& text, const std::string& fileName,
                       const std::shared_ptr<X3D>& parent, std::shared_ptr<X3D>& out);

// ReadBranchText of a file, streamed from disk.
CStatus ReadBranchFile(const std::string& path, const std::shared_ptr<X3D>& parent,
                       std::shared_ptr<X3D>& out);

// Makes `scene` the open scene; the old scene's objects are destroyed so that handles to them
// report invalid.
void SwapInScene(Scene scene);
// Destroys every object of a scene that is not the open one (a scene that failed to load).
void DestroySceneObjects(Scene& scene);

// Writes the open scene (temporary file, then rename). Fails naming the file.
CStatus SaveSceneFile(const std::string& path);
// Replaces the open scene by the file's; on any error the open scene stays as it was.
CStatus OpenSceneFile(const std::string& path);
// Writes `object`'s branch to `path` with the open scene's export options.
CStatus ExportBranch(const std::shared_ptr<X3D>& object, const std::string& path);
// Reads the branch in `path` under `parent`; `out` is the imported top object.
CStatus ImportBranch(const std::string& path, const std::shared_ptr<X3D>& parent,
                     std::shared_ptr<X3D>& out);

}  // namespace Zyra::rt
