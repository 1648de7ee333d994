#include "knrexport/bvh/bvh_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <new>
#include <string_view>
#include <vector>

#include "knrexport/bvh/bvh_motion.h"
#include "knrexport/bvh/bvh_scanner.h"

namespace {

constexpr std::string_view kChannelNames[kBvMaxChannels] = {"Xrotation", "Yrotation", "Zrotation",
                                                            "Xposition", "Yposition", "Zposition"};

// The channel code of `name`, or -1.
int FindChannel(std::string_view name) {
  for (int code = 0; code < kBvMaxChannels; ++code) {
    if (kChannelNames[code] == name) return code;
  }
  return -1;
}

// `text` in quotes for a message: at most 40 characters, control characters shown as '?'.
std::string Quoted(std::string_view text) {
  std::string out = "\"";
  for (std::size_t i = 0; i < text.size() && i < 40; ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    out += c < 0x20 || c == 0x7f ? '?' : static_cast<char>(c);
  }
  if (text.size() > 40) out += "...";
  return out + "\"";
}

// A second stream over the file open on `fd` (its own position, so that two threads can read it
// at once): the same file even if its name has been moved or reused since, or null.
std::FILE* ReopenSameFile(int fd, const std::string& path) {
  struct stat opened;
  if (fstat(fd, &opened) != 0) return nullptr;
  std::FILE* again = std::fopen(("/proc/self/fd/" + std::to_string(fd)).c_str(), "rb");
  if (!again) again = std::fopen(path.c_str(), "rb");
  struct stat reopened;
  if (again && (fstat(fileno(again), &reopened) != 0 || reopened.st_dev != opened.st_dev ||
                reopened.st_ino != opened.st_ino)) {
    std::fclose(again);
    again = nullptr;
  }
  return again;
}

// File names reach us as wide characters; the file system takes UTF-8.
std::string ToUtf8(const wchar_t* text) {
  std::string out;
  for (; *text; ++text) {
    const auto c = static_cast<std::uint32_t>(*text);
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (c < 0x800) {
      out += static_cast<char>(0xc0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3f));
    } else if (c < 0x10000) {
      out += static_cast<char>(0xe0 | (c >> 12));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3f));
      out += static_cast<char>(0x80 | (c & 0x3f));
    } else {
      out += static_cast<char>(0xf0 | ((c >> 18) & 0x07));
      out += static_cast<char>(0x80 | ((c >> 12) & 0x3f));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3f));
      out += static_cast<char>(0x80 | (c & 0x3f));
    }
  }
  return out;
}

}  // namespace

double ExactFrameRate(float frameTime) {
  if (!(frameTime > 0.0f) || !std::isfinite(frameTime)) return 0.0;
  const double rate = 1.0 / static_cast<double>(frameTime);
  const double whole = std::round(rate);
  // Frame times are written with a handful of digits (0.0083333 for 120 fps): a rate within
  // 0.01% of a whole number is that number.
  return whole >= 1.0 && std::fabs(rate - whole) <= whole * 1e-4 ? whole : rate;
}

const char* BvChannelName(int code) {
  return code >= 0 && code < kBvMaxChannels ? kChannelNames[code].data() : "?";
}

ZyraBvHierarchy::ZyraBvHierarchy() : nodeCount(0) {
  for (ZyraBvNode& node : nodes) {
    std::memset(node.name, 0, sizeof node.name);
    node.parent = -1;
    node.childCount = 0;
    node.channelCount = 0;
    for (int& channel : node.channels) channel = 0;
    node.offset = DrvVector{0.0f, 0.0f, 0.0f};
    node.endsite = DrvVector{0.0f, 0.0f, 0.0f};
    for (float& value : node.spare) value = 0.0f;
  }
}

MocapData::~MocapData() { FreeMocapData(*this); }

void FreeMocapData(MocapData& data) {
  if (data.records) {
    for (int i = 0; i < data.nodeCount; ++i) std::free(data.records[i].samples);
    delete[] data.records;
  }
  data.records = nullptr;
  data.nodeCount = 0;
  data.folds.clear();
}

ZyraBvFile::ZyraBvFile() : scanner_(new BvScanner) {}

ZyraBvFile::~ZyraBvFile() { Close(); }

bool ZyraBvFile::Open(const wchar_t* path, float scale) {
  if (!OpenScanner(scale)) return false;
  if (!path) return FailNoPlace("no file name given");
  const std::string name = ToUtf8(path);
  // Opened without waiting, so that a FIFO is refused at once instead of blocking until a
  // writer comes; only a regular file is read.
  const int fd = ::open(name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return FailNoPlace("cannot open " + Quoted(name) + ": " + std::strerror(errno));
  struct stat info;
  if (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
    ::close(fd);
    return FailNoPlace(Quoted(name) + " is not a regular file");
  }
  ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
  std::FILE* file = ::fdopen(fd, "rb");
  if (!file) {
    ::close(fd);
    return FailNoPlace("cannot open " + Quoted(name) + ": " + std::strerror(errno));
  }
  // The scanner reads in large blocks itself; a second buffer in the stream would only copy.
  std::setvbuf(file, nullptr, _IONBF, 0);
  scanner_->AttachFile(file, static_cast<std::uint64_t>(info.st_size));
  path_ = name;
  return true;
}

bool ZyraBvFile::OpenMemory(const char* data, std::size_t size, float scale) {
  if (!OpenScanner(scale)) return false;
  if (!data && size > 0) return FailNoPlace("no text given");
  scanner_->AttachMemory(data ? data : "", size);
  path_.clear();
  return true;
}

bool ZyraBvFile::OpenScanner(float scale) {
  error_.clear();
  errorLine_ = 0;
  if (scanner_->IsOpen()) return FailNoPlace("a file is already open");
  if (hierarchy_) return FailNoPlace("a hierarchy is still held");
  scale_ = scale;
  return true;
}

bool ZyraBvFile::Close() {
  if (!scanner_->IsOpen()) return false;
  const bool closed = scanner_->Reset();
  hierarchy_.reset();
  layout_.reset();
  motionFrames_ = 0;
  return closed;
}

bool ZyraBvFile::FailAtOffset(std::uint64_t offset, const std::string& message) {
  error_ = message;
  errorLine_ = scanner_->IsOpen() ? scanner_->LineAt(offset) : 0;
  return false;
}

bool ZyraBvFile::Fail(const std::string& message) {
  if (!scanner_->IsOpen()) return FailNoPlace(message);
  const std::uint64_t at = scanner_->AtEnd() ? scanner_->EndOffset() : scanner_->Offset();
  return FailAtOffset(at, message);
}

bool ZyraBvFile::FailNoPlace(const std::string& message) {
  error_ = message;
  errorLine_ = 0;
  return false;
}

bool ZyraBvFile::FailExpected(const char* what, const std::string& context) {
  return FailExpectedAt(*scanner_, what, context);
}

bool ZyraBvFile::FailExpectedAt(BvScanner& at, const char* what, const std::string& context) {
  if (at.AtEnd()) {
    return FailAtOffset(at.EndOffset(), context + ": the file ends where " + what + " should be");
  }
  return FailAtOffset(at.Offset(),
                      context + ": expected " + what + ", found " + Quoted(at.Excerpt()));
}

bool ZyraBvFile::FailReadingFrame(BvScanner& at, const BvMotionLayout& layout,
                                  const BvMotionStop& stop) {
  const std::string frame = "frame " + std::to_string(stop.frame + 1);
  const std::string perFrame = std::to_string(layout.values.size());
  switch (stop.why) {
    case BvMotionStop::kShortRow:
      return FailAtOffset(stop.offset, frame + ": its line holds " + std::to_string(stop.value) +
                                           " values, a frame has " + perFrame);
    case BvMotionStop::kLongRow:
      return FailAtOffset(
          stop.offset, frame + ": its line holds more than the " + perFrame + " values of a frame");
    default:
      break;
  }
  const BvMotionLayout::Value& value = layout.values[static_cast<std::size_t>(stop.value)];
  const std::string where = frame + ", joint " +
                            Quoted(layout.names[static_cast<std::size_t>(value.node)]) + ", " +
                            BvChannelName(value.code);
  if (stop.why == BvMotionStop::kNotFinite) {
    return FailAtOffset(stop.offset, where + ": not a finite number");
  }
  return FailExpectedAt(at, "a number", where);
}

bool ZyraBvFile::ReadFinite(float* value) {
  const std::uint64_t at = scanner_->AtEnd() ? 0 : scanner_->Offset();
  if (!scanner_->ReadFloat(value)) return false;
  if (std::isfinite(*value)) return true;
  nonFinite_ = at;
  return false;
}

bool ZyraBvFile::FailNumber(const char* what, const std::string& context) {
  if (nonFinite_ == kNoOffset) return FailExpected(what, context);
  const std::uint64_t at = nonFinite_;
  nonFinite_ = kNoOffset;
  return FailAtOffset(at, context + ": not a finite number");
}

bool ZyraBvFile::ReadHierarchy() {
  error_.clear();
  errorLine_ = 0;
  if (!scanner_->IsOpen()) return FailNoPlace("no file is open");
  if (hierarchy_) return FailNoPlace("the hierarchy has already been read");
  std::string_view token;
  // A UTF-8 byte-order mark, as some editors write, is not part of the first keyword.
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  bool read = scanner_->ReadToken(&token);
  if (read && token.substr(0, 3) == kByteOrderMark) {
    token.remove_prefix(3);
    if (token.empty()) read = scanner_->ReadToken(&token);
  }
  if (!read || token != "HIERARCHY") {
    if (!token.empty()) {
      return FailAtOffset(scanner_->Offset() - token.size(),
                          "expected \"HIERARCHY\", found " + Quoted(token));
    }
    return FailExpected("\"HIERARCHY\"", "start of file");
  }
  if (!scanner_->MatchLiteral("ROOT")) return FailExpected("\"ROOT\"", "HIERARCHY");
  hierarchy_.reset(new (std::nothrow) ZyraBvHierarchy);
  if (!hierarchy_) return FailNoPlace("out of memory for the joint table");
  return ReadHierarchyNodes(-1);
}

bool ZyraBvFile::ReadHierarchyNodes(int parent) {
  ZyraBvHierarchy& table = *hierarchy_;
  if (table.nodeCount >= kBvMaxNodes) {
    return Fail("more than " + std::to_string(kBvMaxNodes) + " joints");
  }
  const int index = table.nodeCount++;
  ZyraBvNode& node = table.nodes[index];
  std::string_view token;
  const std::string parentContext =
      parent < 0 ? std::string("ROOT") : "joint " + Quoted(table.nodes[parent].name);
  if (!scanner_->ReadToken(&token)) return FailExpected("a joint name", parentContext);
  if (token.size() >= static_cast<std::size_t>(kBvNameSize)) {
    return FailAtOffset(scanner_->Offset() - token.size(),
                        "joint name of " + std::to_string(token.size()) +
                            " characters; names are at most " + std::to_string(kBvNameSize - 1));
  }
  std::memcpy(node.name, token.data(), token.size());
  node.name[token.size()] = '\0';
  node.parent = parent;
  node.childCount = 0;
  const std::string context = "joint " + Quoted(node.name);
  if (!scanner_->MatchLiteral("{")) return FailExpected("\"{\"", context);

  for (;;) {
    if (!scanner_->ReadToken(&token)) return FailExpected("\"}\"", context);
    if (token == "OFFSET") {
      float v[3];
      for (float& value : v) {
        if (!ReadFinite(&value)) return FailNumber("three OFFSET numbers", context);
      }
      node.offset = DrvVector{v[0] * scale_, v[1] * scale_, v[2] * scale_};
    } else if (token == "CHANNELS") {
      int count = 0;
      if (!scanner_->ReadInt(&count)) return FailExpected("a channel count", context);
      if (count < 0 || count > kBvMaxChannels) {
        return FailAtOffset(scanner_->Offset() - 1, context + ": " + std::to_string(count) +
                                                        " channels; a joint has 0 to " +
                                                        std::to_string(kBvMaxChannels));
      }
      for (int c = 0; c < count; ++c) {
        if (!scanner_->ReadToken(&token)) return FailExpected("a channel name", context);
        const int code = FindChannel(token);
        if (code < 0) {
          return FailAtOffset(scanner_->Offset() - token.size(),
                              context + ": unknown channel " + Quoted(token));
        }
        node.channels[c] = code;
      }
      node.channelCount = count;
    } else if (token == "JOINT") {
      if (!ReadHierarchyNodes(index)) return false;
      ++node.childCount;
    } else if (token == "End") {
      float v[3];
      if (!scanner_->MatchLiteral("Site") || !scanner_->MatchLiteral("{") ||
          !scanner_->MatchLiteral("OFFSET") || !ReadFinite(&v[0]) || !ReadFinite(&v[1]) ||
          !ReadFinite(&v[2]) || !scanner_->MatchLiteral("}")) {
        return FailNumber("\"Site { OFFSET x y z }\"", context + ", End Site");
      }
      node.endsite = DrvVector{v[0] * scale_, v[1] * scale_, v[2] * scale_};
    } else if (token == "}") {
      return true;
    } else {
      return FailAtOffset(scanner_->Offset() - token.size(),
                          context + ": unknown keyword " + Quoted(token));
    }
  }
}

bool ZyraBvFile::ReadMotionData(MocapData* data, bool firstFrameOnly) {
  if (!ReadHeader(data, firstFrameOnly)) return false;
  const int frames = motionFrames_;
  for (int i = 0; i < data->nodeCount && frames > 0; ++i) {
    MocapRecord& record = data->records[i];
    record.samples = static_cast<DrvTransform*>(
        std::malloc(static_cast<std::size_t>(frames) * sizeof(DrvTransform)));
    if (!record.samples) {
      return FailNoPlace("out of memory for " + std::to_string(frames) + " frames");
    }
    record.frameCount = frames;
  }
  BvSampleSink sink(data->records, data->nodeCount);
  return ReadFrames(sink);
}

bool ZyraBvFile::ReadMotionHeader(MocapData* data) { return ReadHeader(data, false); }

bool ZyraBvFile::ReadHeader(MocapData* data, bool firstFrameOnly) {
  error_.clear();
  errorLine_ = 0;
  layout_.reset();
  motionFrames_ = 0;
  if (!data) return FailNoPlace("no motion data to fill");
  FreeMocapData(*data);
  if (!scanner_->IsOpen()) return FailNoPlace("no file is open");
  if (!hierarchy_ || hierarchy_->nodeCount < 1) return FailNoPlace("no hierarchy has been read");
  const ZyraBvHierarchy& table = *hierarchy_;
  const int nodeCount = table.nodeCount;

  std::string_view token;
  if (!scanner_->ReadToken(&token) || token != "MOTION") {
    if (!token.empty()) {
      return FailAtOffset(scanner_->Offset() - token.size(),
                          "after the hierarchy: expected \"MOTION\", found " + Quoted(token));
    }
    return FailExpected("\"MOTION\"", "after the hierarchy");
  }
  int fileFrames = 0;
  if (!scanner_->MatchLiteral("Frames:") || !scanner_->ReadInt(&fileFrames)) {
    return FailExpected("\"Frames:\" and a frame count", "MOTION");
  }
  const std::uint64_t framesAt = scanner_->Offset() - 1;
  if (fileFrames < 0) {
    return FailAtOffset(framesAt, "MOTION: negative frame count " + std::to_string(fileFrames));
  }
  float frameTime = 0.0f;
  if (!scanner_->MatchLiteral("Frame") || !scanner_->MatchLiteral("Time:") ||
      !ReadFinite(&frameTime)) {
    return FailNumber("\"Frame Time:\" and a number", "MOTION");
  }

  long long channelTotal = 0;
  for (int i = 0; i < nodeCount; ++i) channelTotal += table.nodes[i].channelCount;
  int frames = firstFrameOnly ? 1 : fileFrames;
  if (!firstFrameOnly) {
    // Every value takes at least two bytes (a character and a separator) but the last, so the
    // rest of the file bounds the frame count before anything is allocated from it. A motion
    // without channels is bounded as if it had one.
    const unsigned long long perFrame =
        2ULL * static_cast<unsigned long long>(channelTotal > 0 ? channelTotal : 1);
    const unsigned long long fit = (scanner_->Remaining() + 1) / perFrame;
    if (static_cast<unsigned long long>(frames) > fit) {
      return FailAtOffset(framesAt, "MOTION: \"Frames: " + std::to_string(frames) +
                                        "\" but the rest of the file " + "holds at most " +
                                        std::to_string(fit) + " frames of " +
                                        std::to_string(channelTotal) + " values");
    }
  }

  data->records = new (std::nothrow) MocapRecord[static_cast<std::size_t>(nodeCount)];
  if (!data->records) return FailNoPlace("out of memory for the motion records");
  data->nodeCount = nodeCount;
  data->frameTime = frameTime;
  data->frameRate = ExactFrameRate(frameTime);
  for (int i = 0; i < nodeCount; ++i) {
    MocapRecord& record = data->records[i];
    std::memcpy(record.name, table.nodes[i].name, sizeof record.name);
    record.origin = i;
  }
  layout_.reset(new (std::nothrow) BvMotionLayout(MakeMotionLayout(table, scale_)));
  if (!layout_) return FailNoPlace("out of memory for the motion layout");
  motionFrames_ = frames;
  firstFrameOnly_ = firstFrameOnly;
  return true;
}

bool ZyraBvFile::ReadFrames(BvFrameSink& sink) {
  error_.clear();
  errorLine_ = 0;
  const std::unique_ptr<BvMotionLayout> held = std::move(layout_);
  if (!held) return FailNoPlace("no motion header has been read");
  if (!scanner_->IsOpen()) return FailNoPlace("no file is open");
  const BvMotionLayout& layout = *held;
  const int frames = motionFrames_;
  // A long take is read by two threads, each from its half of the section on.
  BvSecondReader second;
  const std::uint64_t start = scanner_->Offset();
  const int fd = scanner_->FileDescriptor();
  if (!firstFrameOnly_ && BvSecondReader::WorthIt(scanner_->Remaining(), frames) &&
      scanner_->Fork(fd < 0 ? nullptr : ReopenSameFile(fd, path_), start, &second.Cursor())) {
    second.Start(start + scanner_->Remaining() / 2, frames, layout, sink);
  }
  BvFrameReader reader(layout, sink, frames);
  for (int f = 0; f < frames; ++f) {
    if (second.Reached(f)) {
      // The second reader took each line for a frame: only right in a take of one frame a line.
      if (reader.OneFrameALine() && second.Aligned(*scanner_)) {
        const BvMotionStop stop = second.Join();
        if (stop.frame >= 0) return FailReadingFrame(second.Cursor(), layout, stop);
        return true;
      }
      second.Abandon();
    }
    const BvMotionStop stop = reader.Read(*scanner_, f, f + 1);
    if (stop.frame >= 0) return FailReadingFrame(*scanner_, layout, stop);
  }
  return true;
}
