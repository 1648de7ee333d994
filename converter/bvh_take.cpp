// Reading, writing and forward kinematics of BVH takes (rules in bvh_take.h).
#include "bvh_take.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <mutex>
#include <string_view>
#include <thread>

namespace knrconvert {
namespace {

constexpr int kMaxChannels = 6;
constexpr size_t kSplitBytes = 1 << 20;  // motion text above this is read on two threads
constexpr size_t kSplitWork = 1 << 16;   // frames x joints above this go on two threads
constexpr size_t kMaxFloatChars = 16;    // "-1.17549435e-38" and a separator
constexpr size_t kQuotedChars = 40;      // longest token quoted in an error
constexpr size_t kWriteBlock = 2 << 20;  // motion text formatted per thread between writes

constexpr const char* kChannelNames[] = {"Xposition", "Yposition", "Zposition",
                                         "Xrotation", "Yrotation", "Zrotation"};

bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// Parses all of `text` as a finite number (a leading '+' allowed).
template <class T>
bool ParseNumber(const char* b, const char* e, T& value, const char** stop = nullptr) {
  if (b < e && *b == '+' && e - b > 1 && b[1] != '-') ++b;
  const auto [ptr, ec] = std::from_chars(b, e, value);
  if (stop) *stop = ptr;
  return ec == std::errc() && ptr != b && (stop || ptr == e) && std::isfinite(double(value));
}

// A plain decimal ("-12.345", "7", ".5", at most 19 digits, no exponent) ending at a separator:
// its digits are an integer below 2^53 and 10^k (k <= 22) is a double, so one division gives the
// double nearest to the text, and the float nearest to that double is the float nearest to the
// text unless the double lies exactly halfway between two floats (rounding twice could then go
// the wrong way). Returns false, for from_chars to decide, on anything else, on those halfway
// doubles and outside the normal float range.
bool ParseFloatFast(const char* p, const char* end, float& value, const char** stop) {
  static constexpr double kPow10[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                      1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                      1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
  constexpr int kMaxDigits = 19;  // below 10^19 < 2^64
  constexpr uint64_t kExact = uint64_t(1) << 53;
  constexpr uint64_t kLowBits = (uint64_t(1) << 29) - 1;  // double mantissa bits below a float's
  constexpr uint64_t kHalfway = uint64_t(1) << 28;
  const bool negative = p < end && *p == '-';
  p += negative;
  uint64_t m = 0;
  int digits = 0, fraction = 0;
  for (; p < end && static_cast<unsigned>(*p - '0') < 10; ++p, ++digits) m = m * 10 + (*p - '0');
  if (p < end && *p == '.')
    for (++p; p < end && static_cast<unsigned>(*p - '0') < 10; ++p, ++digits, ++fraction)
      m = m * 10 + (*p - '0');
  if (digits == 0 || digits > kMaxDigits || m > kExact || fraction > 22 ||
      (p < end && !IsSpace(*p)))
    return false;
  const double d = static_cast<double>(m) / kPow10[fraction];
  if (m != 0) {
    uint64_t bits;
    std::memcpy(&bits, &d, sizeof bits);
    if (d < std::numeric_limits<float>::min() || d > std::numeric_limits<float>::max() ||
        (bits & kLowBits) == kHalfway)
      return false;
  }
  const float f = static_cast<float>(d);
  value = negative ? -f : f;
  *stop = p;
  return true;
}

// The hierarchy and motion header, token by token.
class Reader {
 public:
  Reader(const std::string& file, const char* begin, const char* end)
      : file_(file), begin_(begin), p_(begin), end_(end) {}

  std::string_view Next() {
    while (p_ < end_ && IsSpace(*p_)) ++p_;
    token_ = p_;
    while (p_ < end_ && !IsSpace(*p_)) ++p_;
    return {token_, static_cast<size_t>(p_ - token_)};
  }
  bool Expect(std::string_view word) {
    const std::string_view t = Next();
    return t == word || Fail("expected '" + std::string(word) + "', found " + Quote(t));
  }
  template <class T>
  bool Number(T& value, const char* what) {
    const std::string_view t = Next();
    return ParseNumber(t.data(), t.data() + t.size(), value) ||
           Fail(std::string("bad ") + what + " " + Quote(t));
  }
  // A number on the rest of the current line: a header value left empty must not take the
  // first value of the next line for its own.
  template <class T>
  bool NumberOnLine(T& value, const char* what) {
    while (p_ < end_ && (*p_ == ' ' || *p_ == '\t' || *p_ == '\r')) ++p_;
    if (p_ == end_ || *p_ == '\n') {
      token_ = p_;
      return Fail(std::string("no ") + what + " on the line");
    }
    return Number(value, what);
  }
  // Records `what` at the current token's line; always false.
  bool Fail(const std::string& what) { return FailAt(token_, what); }
  bool FailAt(const char* at, const std::string& what) {
    const long line = 1 + std::count(begin_, at, '\n');
    error = file_ + ":" + std::to_string(line) + ": " + what;
    return false;
  }
  static std::string Quote(std::string_view t) {
    if (t.empty()) return "the end of the file";
    return "'" + std::string(t.substr(0, kQuotedChars)) + "'";
  }
  const char* Pos() const { return p_; }
  const char* End() const { return end_; }

  std::string error;

 private:
  const std::string& file_;
  const char *begin_, *p_, *end_, *token_ = nullptr;
};

bool ParseHierarchy(Reader& in, BvhTake& take) {
  std::vector<int> open;  // joints whose '}' is still to come
  auto startJoint = [&](int parent) {
    const char* keyword = in.Pos();  // the end of "ROOT" or "JOINT": the line to blame
    const std::string_view name = in.Next();
    if (name.empty() || name == "{") return in.FailAt(keyword, "a joint without a name");
    take.joints.push_back({});
    take.joints.back().name = std::string(name);
    take.joints.back().parent = parent;
    open.push_back(static_cast<int>(take.joints.size()) - 1);
    return in.Expect("{");
  };
  if (!in.Expect("HIERARCHY") || !in.Expect("ROOT") || !startJoint(-1)) return false;
  while (!open.empty()) {
    BvhJoint& joint = take.joints[open.back()];
    const std::string_view t = in.Next();
    if (t == "OFFSET") {
      for (double& v : joint.offset)
        if (!in.Number(v, "offset")) return false;
    } else if (t == "CHANNELS") {
      int n = 0;
      if (!in.Number(n, "channel count")) return false;
      if (n < 0 || n > kMaxChannels)
        return in.Fail("a joint with " + std::to_string(n) + " channels");
      joint.channels.clear();
      for (int i = 0; i < n; ++i) {
        const std::string_view c = in.Next();
        const auto* found = std::find(std::begin(kChannelNames), std::end(kChannelNames), c);
        if (found == std::end(kChannelNames)) return in.Fail("unknown channel " + in.Quote(c));
        joint.channels.push_back(static_cast<BvhChannel>(found - std::begin(kChannelNames)));
      }
    } else if (t == "JOINT") {
      if (!startJoint(open.back())) return false;
    } else if (t == "End") {
      if (!in.Expect("Site") || !in.Expect("{") || !in.Expect("OFFSET")) return false;
      for (double& v : joint.endSite)
        if (!in.Number(v, "offset")) return false;
      if (!in.Expect("}")) return false;
      joint.hasEndSite = true;
    } else if (t == "}") {
      open.pop_back();
    } else {
      return in.Fail("unexpected " + in.Quote(t) + " in joint " + joint.name);
    }
  }
  const std::string_view t = in.Next();
  if (t == "ROOT") return in.Fail("a second ROOT");
  if (t != "MOTION") return in.Fail("expected 'MOTION', found " + in.Quote(t));
  take.AssignColumns();
  return take.columns > 0 || in.Fail("no channels");
}

// The '\n' in [p, end), by memchr (some ten times std::count's pace at -O2).
size_t CountLines(const char* p, const char* end) {
  size_t lines = 0;
  while ((p = static_cast<const char*>(std::memchr(p, '\n', static_cast<size_t>(end - p))))) {
    ++lines;
    if (++p == end) break;
  }
  return lines;
}

// Frame rows in [p, end): at most maxRows rows of `columns` values into out.
struct Rows {
  size_t rows = 0;
  const char* errorAt = nullptr;  // where the row that failed starts or its bad value
  std::string error;
};

Rows ParseRows(const char* p, const char* end, int columns, size_t maxRows, float* out) {
  Rows r;
  while (p < end && r.rows < maxRows) {
    const char* line = p;
    int n = 0;
    float* row = out + r.rows * columns;
    for (;;) {
      while (p < end && (*p == ' ' || *p == '\t' || *p == '\r')) ++p;
      if (p == end || *p == '\n') break;
      const char* stop = nullptr;
      if (n < columns && ParseFloatFast(p, end, row[n], &stop)) {
        p = stop;
        ++n;
        continue;
      }
      if (n == columns || !ParseNumber(p, end, row[n], &stop) || (stop < end && !IsSpace(*stop))) {
        r.errorAt = p;
        r.error =
            n == columns
                ? "more than " + std::to_string(columns) + " values in a frame"
                : "bad number " +
                      Reader::Quote({p, static_cast<size_t>(std::find_if(p, end, IsSpace) - p)});
        return r;
      }
      p = stop;
      ++n;
    }
    if (p < end) ++p;  // the '\n'
    if (n == 0) continue;
    if (n != columns) {
      r.errorAt = line;
      r.error = std::to_string(n) + " values in a frame of " + std::to_string(columns);
      return r;
    }
    ++r.rows;
  }
  return r;
}

bool ParseMotion(Reader& in, BvhTake& take) {
  long long frames = 0;
  if (!in.Expect("Frames:") || !in.NumberOnLine(frames, "frame count")) return false;
  if (frames <= 0) return in.Fail("no frames");
  const char* framesAt = in.Pos();
  if (!in.Expect("Frame") || !in.Expect("Time:") || !in.NumberOnLine(take.frameTime, "frame time"))
    return false;
  if (take.frameTime <= 0) return in.Fail("a frame time that is not positive");
  if (take.frameTime < kMinFrameTime || take.frameTime > kMaxFrameTime) {
    char text[160];
    std::snprintf(text, sizeof text,
                  "Frame Time: %g is not a motion-capture frame time (seconds a frame, %g to %g)",
                  take.frameTime, kMinFrameTime, kMaxFrameTime);
    return in.Fail(text);
  }
  const char *begin = in.Pos(), *end = in.End();
  const size_t cols = static_cast<size_t>(take.columns);
  if (static_cast<unsigned long long>(frames) > (end - begin + 1) / (2 * cols))
    return in.FailAt(framesAt,
                     "Frames: " + std::to_string(frames) + " is more than the file holds");
  take.frames = static_cast<int>(frames);
  ResizeFresh(take.values, static_cast<size_t>(frames) * cols);

  // Two threads: the second reads the frames after the middle line straight into their rows,
  // counted as the lines before it (all but a blank rest of the "Frame Time:" line); when blank
  // lines make that count too high, the second half is read again after the first.
  const char* mid = end;
  if (static_cast<size_t>(end - begin) > kSplitBytes) {
    mid = std::find(begin + (end - begin) / 2, end, '\n');
    if (mid < end) ++mid;
  }
  const size_t wanted = static_cast<size_t>(frames);
  size_t guess = 0;
  Rows second;
  std::thread worker;
  if (mid < end)
    worker = std::thread([&] {
      const char* lineEnd = std::find(begin, mid, '\n');
      guess = CountLines(lineEnd, mid) - std::all_of(begin, lineEnd, IsSpace);
      if (guess < wanted)
        second =
            ParseRows(mid, end, take.columns, wanted - guess, take.values.data() + guess * cols);
    });
  const Rows first = ParseRows(begin, mid, take.columns, wanted, take.values.data());
  if (worker.joinable()) worker.join();

  if (first.rows >= wanted) return true;
  if (first.errorAt) return in.FailAt(first.errorAt, first.error);
  if (mid == end || first.rows != guess || guess >= wanted)
    second = ParseRows(mid, end, take.columns, wanted - first.rows,
                       take.values.data() + first.rows * cols);
  if (second.rows >= wanted - first.rows) return true;
  if (second.errorAt) return in.FailAt(second.errorAt, second.error);
  return in.FailAt(end, "the take ends after " + std::to_string(first.rows + second.rows) + " of " +
                            std::to_string(frames) + " frames");
}

size_t AppendDouble(char* out, double v) {
  return static_cast<size_t>(std::to_chars(out, out + 32, v).ptr - out);
}

void AppendTriple(std::string& s, const char* word, const double v[3]) {
  char buf[32];
  s += word;
  for (int i = 0; i < 3; ++i) {
    s += ' ';
    s.append(buf, AppendDouble(buf, v[i]));
  }
  s += '\n';
}

std::string HierarchyText(const BvhTake& take) {
  std::string s = "HIERARCHY\n";
  std::vector<int> open;  // the path from the top joint to the joint last written
  auto closeLast = [&] {
    const BvhJoint& j = take.joints[open.back()];
    const std::string pad(open.size(), '\t');
    if (j.hasEndSite) {
      s += pad + "End Site\n" + pad + "{\n" + pad + '\t';
      AppendTriple(s, "OFFSET", j.endSite);
      s += pad + "}\n";
    }
    open.pop_back();
    s += std::string(open.size(), '\t') + "}\n";
  };
  for (size_t i = 0; i < take.joints.size(); ++i) {
    const BvhJoint& j = take.joints[i];
    while (!open.empty() && open.back() != j.parent) closeLast();
    const std::string pad(open.size(), '\t');
    s += pad + (j.parent < 0 ? "ROOT " : "JOINT ") + j.name + "\n" + pad + "{\n" + pad + '\t';
    AppendTriple(s, "OFFSET", j.offset);
    s += pad + "\tCHANNELS " + std::to_string(j.channels.size());
    for (const BvhChannel c : j.channels) s += std::string(" ") + ChannelName(c);
    s += '\n';
    open.push_back(static_cast<int>(i));
  }
  while (!open.empty()) closeLast();
  return s;
}

// The text of frames [begin, end) into out; returns its length.
size_t MotionText(const BvhTake& take, int begin, int end, char* out) {
  char* p = out;
  for (int f = begin; f < end; ++f) {
    const float* row = take.Row(f);
    for (int c = 0; c < take.columns; ++c) {
      p = std::to_chars(p, p + kMaxFloatChars, row[c]).ptr;
      *p++ = c + 1 < take.columns ? ' ' : '\n';
    }
  }
  return static_cast<size_t>(p - out);
}

}  // namespace

const char* ChannelName(BvhChannel c) { return kChannelNames[static_cast<int>(c)]; }

void BvhTake::AssignColumns() {
  columns = 0;
  for (BvhJoint& j : joints) {
    j.column = columns;
    columns += static_cast<int>(j.channels.size());
  }
}

// The whole file, mapped read-only.
class MappedFile {
 public:
  explicit MappedFile(const std::string& file) {
    const int fd = ::open(file.c_str(), O_RDONLY);
    if (fd < 0) {
      errno_ = errno;
      return;
    }
    struct stat st;
    if (::fstat(fd, &st) != 0) {
      errno_ = errno;
    } else if (S_ISDIR(st.st_mode)) {
      errno_ = EISDIR;
    } else {
      opened_ = true;
      size_ = static_cast<size_t>(st.st_size);
      if (size_ > 0) {
        void* data = ::mmap(nullptr, size_, PROT_READ, MAP_PRIVATE | MAP_POPULATE, fd, 0);
        opened_ = data != MAP_FAILED;
        if (!opened_) errno_ = errno;
        data_ = opened_ ? static_cast<const char*>(data) : nullptr;
      }
    }
    ::close(fd);
  }
  // The system's reason when the file could not be opened.
  std::string why() const { return std::strerror(errno_); }
  ~MappedFile() {
    if (data_) ::munmap(const_cast<char*>(data_), size_);
  }
  bool opened() const { return opened_; }
  const char* begin() const { return data_; }
  const char* end() const { return data_ + (data_ ? size_ : 0); }

 private:
  bool opened_ = false;
  int errno_ = 0;
  const char* data_ = nullptr;
  size_t size_ = 0;
};

bool ParseBvhTake(const std::filesystem::path& path, BvhTake& take, std::string& error) {
  take = BvhTake();
  const std::string file = path.string();
  const MappedFile text(file);
  if (!text.opened()) {
    error = file + ": cannot be read: " + text.why();
    return false;
  }
  Reader in(file, text.begin(), text.end());
  if (ParseHierarchy(in, take) && ParseMotion(in, take)) return true;
  error = in.error;
  take = BvhTake();
  return false;
}

bool WriteBvhTake(const BvhTake& take, const std::filesystem::path& path, std::string& error) {
  std::string head = HierarchyText(take);
  char buf[32];
  head += "MOTION\nFrames: " + std::to_string(take.frames) + "\nFrame Time: ";
  head.append(buf, AppendDouble(buf, take.frameTime));
  head += '\n';

  const std::string file = path.string();
  std::FILE* f = std::fopen(file.c_str(), "wb");
  bool ok = f && std::fwrite(head.data(), 1, head.size(), f) == head.size();
  int why = ok ? 0 : errno;  // the system's reason of the first failure
  // Two threads take turns: each formats every other block of frames into a buffer of its own
  // and writes it once the block before it is written, so that one writes while the other
  // formats.
  const size_t perFrame = static_cast<size_t>(take.columns) * kMaxFloatChars;
  const int block = static_cast<int>(std::max<size_t>(1, kWriteBlock / perFrame));
  const int blocks = (take.frames + block - 1) / block;
  std::mutex mutex;
  std::condition_variable turn;
  int written = 0;  // blocks written so far
  auto writeBlocks = [&](int first) {
    std::unique_ptr<char[]> text(new char[perFrame * block]);
    for (int i = first; i < blocks; i += 2) {
      const size_t length =
          MotionText(take, i * block, std::min(take.frames, (i + 1) * block), text.get());
      std::unique_lock<std::mutex> lock(mutex);
      turn.wait(lock, [&] { return written == i || !ok; });
      if (!ok) return;
      ok = std::fwrite(text.get(), 1, length, f) == length;
      if (!ok) why = errno;
      ++written;
      turn.notify_all();
    }
  };
  if (ok) {
    std::thread worker;
    if (blocks > 1) worker = std::thread(writeBlocks, 1);
    writeBlocks(0);
    if (worker.joinable()) worker.join();
  }
  if (f && std::fclose(f) != 0 && ok) {
    ok = false;
    why = errno;
  }
  if (!ok) error = file + ": cannot be written: " + std::strerror(why);
  return ok;
}

void PrefaultPages(const void* data, size_t bytes) {
#ifdef MADV_POPULATE_WRITE
  const size_t page = static_cast<size_t>(::sysconf(_SC_PAGESIZE));
  const uintptr_t begin = (reinterpret_cast<uintptr_t>(data) + page - 1) / page * page;
  const uintptr_t end = (reinterpret_cast<uintptr_t>(data) + bytes) / page * page;
  if (end <= begin) return;
#ifdef MADV_HUGEPAGE
  // Large pages: a tenth of the cost of mapping and first touching small ones on a VM.
  ::madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
#endif
  ::madvise(reinterpret_cast<void*>(begin), end - begin, MADV_POPULATE_WRITE);
#else
  (void)data, (void)bytes;
#endif
}

void ForFrameRanges(int frames, size_t perFrame, const std::function<void(int, int)>& work) {
  if (frames < 2 || static_cast<size_t>(frames) * perFrame < kSplitWork) {
    work(0, frames);
    return;
  }
  std::thread worker([&] { work(0, frames / 2); });
  work(frames / 2, frames);
  worker.join();
}

PoseSeries ComputePoses(const BvhTake& take) {
  PoseSeries poses;
  poses.frameTime = take.frameTime;
  poses.frames = take.frames;
  for (const BvhJoint& j : take.joints) {
    poses.names.push_back(j.name);
    poses.parents.push_back(j.parent);
  }
  const size_t joints = take.joints.size();
  ResizeFresh(poses.positions, static_cast<size_t>(take.frames) * joints);
  ResizeFresh(poses.topRotation, static_cast<size_t>(take.frames));
  ForFrameRanges(take.frames, joints, [&](int begin, int end) {
    std::vector<Mat3> rotation(joints);
    std::vector<double> position(3 * joints);
    for (int f = begin; f < end; ++f) {
      for (size_t j = 0; j < joints; ++j) {
        const BvhJoint& joint = take.joints[j];
        double local[3];
        Mat3 r;
        LocalPose(joint, take.Row(f), local, r);
        double* p = &position[3 * j];
        if (joint.parent < 0) {
          std::copy_n(local, 3, p);
          rotation[j] = r;
        } else {
          Apply(rotation[joint.parent], local, p);
          for (int k = 0; k < 3; ++k) p[k] += position[3 * joint.parent + k];
          rotation[j] = rotation[joint.parent] * r;
        }
        poses.positions[f * joints + j] = {float(p[0]), float(p[1]), float(p[2])};
      }
      double q[4];
      ToQuaternion(rotation[0], q);
      poses.topRotation[f] = {float(q[0]), float(q[1]), float(q[2]), float(q[3])};
    }
  });
  return poses;
}

}  // namespace knrconvert
