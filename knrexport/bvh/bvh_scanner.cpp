#include "knrexport/bvh/bvh_scanner.h"

#include <sys/types.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>
#include <system_error>

namespace {

bool IsHexDigit(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// The value strtof gives for a number that from_chars found outside the float range: a tiny
// value may still be a subnormal float, which the double parse keeps; beyond the double range
// the exponent's sign tells infinity from zero.
float OutOfRangeValue(const char* first, const char* last, std::chars_format format) {
  double d = 0.0;
  const std::from_chars_result r = std::from_chars(first, last, d, format);
  if (r.ec == std::errc()) return static_cast<float>(d);
  const char marker = format == std::chars_format::hex ? 'p' : 'e';
  for (const char* p = first; p + 1 < last; ++p) {
    if ((*p | 0x20) == marker) return p[1] == '-' ? 0.0f : std::numeric_limits<float>::infinity();
  }
  return std::numeric_limits<float>::infinity();
}

}  // namespace

void BvScanner::AttachFile(std::FILE* file, std::uint64_t size, std::uint64_t offset) {
  Reset();
  file_ = file;
  size_ = size;
  buf_.resize(kBlockSize);
  pos_ = end_ = buf_.data();
  base_ = offset;
  eof_ = false;
  open_ = true;
}

void BvScanner::AttachMemory(const char* data, std::size_t size) {
  Reset();
  // Exactly `size` bytes, so that a read past the text shows under the address sanitizer.
  buf_.assign(data, data + size);
  pos_ = buf_.data();
  end_ = pos_ + size;
  size_ = size;
  base_ = 0;
  eof_ = true;
  open_ = true;
}

bool BvScanner::Reset() {
  bool closed = true;
  if (file_) closed = std::fclose(file_) == 0;
  file_ = nullptr;
  std::vector<char>().swap(buf_);
  view_ = nullptr;
  pos_ = end_ = nullptr;
  base_ = size_ = 0;
  eof_ = true;
  open_ = false;
  return closed;
}

bool BvScanner::Fork(std::FILE* reopened, std::uint64_t offset, BvScanner* other) const {
  if (!file_) {
    if (reopened) std::fclose(reopened);
    other->Reset();
    other->view_ = Data();
    other->pos_ = Data() + offset;
    other->end_ = end_;
    other->size_ = size_;
    other->open_ = true;
    return true;
  }
  if (!reopened) return false;
  if (fseeko(reopened, static_cast<off_t>(offset), SEEK_SET) != 0) {
    std::fclose(reopened);
    return false;
  }
  std::setvbuf(reopened, nullptr, _IONBF, 0);
  other->AttachFile(reopened, size_, offset);
  return true;
}

bool BvScanner::SkipToLineStart(std::uint64_t offset, std::uint64_t* lineEnds) {
  for (;;) {
    // Line ends before `offset`, then the first one at or after it.
    const std::uint64_t here = Offset();
    const char* stop = end_;
    if (offset > here && offset - here < static_cast<std::uint64_t>(end_ - pos_)) {
      stop = pos_ + (offset - here);
    }
    if (offset > here) {
      *lineEnds += static_cast<std::uint64_t>(std::count(pos_, stop, '\n'));
      pos_ = stop;
    }
    if (Offset() >= offset) {
      const char* lineEnd = static_cast<const char*>(std::memchr(pos_, '\n', end_ - pos_));
      if (lineEnd) {
        *lineEnds += 1;
        pos_ = lineEnd + 1;
        return true;
      }
      pos_ = end_;
    }
    if (eof_) return false;
    Refill();
  }
}

void BvScanner::Refill() {
  const std::size_t keep = static_cast<std::size_t>(end_ - pos_);
  base_ += static_cast<std::uint64_t>(pos_ - Data());
  std::memmove(buf_.data(), pos_, keep);
  char* fill = buf_.data() + keep;
  const std::size_t want = buf_.size() - keep;
  const std::size_t got = std::fread(fill, 1, want, file_);
  if (got < want) eof_ = true;
  pos_ = buf_.data();
  end_ = fill + got;
}

bool BvScanner::SkipSpaceRefilling() {
  for (;;) {
    while (pos_ < end_ && IsSpace(*pos_)) ++pos_;
    if (eof_ || static_cast<std::size_t>(end_ - pos_) >= kLookahead) return pos_ < end_;
    Refill();
  }
}

bool BvScanner::ReadToken(std::string_view* token) {
  if (!SkipSpace()) return false;
  const char* p = pos_;
  while (p < end_ && !IsSpace(*p)) ++p;
  if (p == end_ && !eof_) return false;
  *token = std::string_view(pos_, static_cast<std::size_t>(p - pos_));
  pos_ = p;
  return true;
}

bool BvScanner::ReadInt(int* value) {
  if (!SkipSpace()) return false;
  const char* p = pos_;
  // from_chars takes a minus sign itself but not a plus sign.
  if (*p == '+') {
    ++p;
    if (p == end_ || *p == '-') return false;
  }
  int v = 0;
  const std::from_chars_result r = std::from_chars(p, end_, v);
  if (r.ec != std::errc()) return false;
  *value = v;
  pos_ = r.ptr;
  return true;
}

bool BvScanner::ParseFloat(float* value) {
  const char* p = pos_;
  bool negative = false;
  if (*p == '+' || *p == '-') {
    negative = *p == '-';
    ++p;
    if (p == end_ || *p == '-') return false;
  }
  float v = 0.0f;
  std::chars_format format = std::chars_format::general;
  const char* digits = p;
  // "0x" starts a hexadecimal float only when a digit follows; otherwise it is the number 0.
  if (end_ - p > 2 && p[0] == '0' && (p[1] | 0x20) == 'x' &&
      (IsHexDigit(p[2]) || (p[2] == '.' && end_ - p > 3 && IsHexDigit(p[3])))) {
    format = std::chars_format::hex;
    digits = p + 2;
  }
  const std::from_chars_result r = std::from_chars(digits, end_, v, format);
  if (r.ec == std::errc::invalid_argument) return false;
  if (r.ptr == end_ && !eof_) return false;  // longer than the look-ahead
  if (r.ec == std::errc::result_out_of_range) v = OutOfRangeValue(digits, r.ptr, format);
  *value = negative ? -v : v;
  pos_ = r.ptr;
  return true;
}

bool BvScanner::MatchLiteral(std::string_view literal) {
  if (!SkipSpace()) return false;
  for (const char c : literal) {
    if (pos_ == end_ || *pos_ != c) return false;
    ++pos_;
  }
  return true;
}

std::string BvScanner::Excerpt() {
  if (!SkipSpace()) return std::string();
  const char* p = pos_;
  while (p < end_ && !IsSpace(*p) && p - pos_ < 40) ++p;
  std::string text(pos_, p);
  for (char& c : text) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) c = '?';
  }
  return text;
}

std::uint64_t BvScanner::EndOffset() {
  const char* p = end_;
  while (p > Data() && IsSpace(p[-1])) --p;
  return base_ + static_cast<std::uint64_t>(p - Data());
}

int BvScanner::LineAt(std::uint64_t offset) {
  std::uint64_t lines = 0;
  if (!file_) {
    const std::size_t n = static_cast<std::size_t>(
        std::min<std::uint64_t>(offset, static_cast<std::uint64_t>(end_ - Data())));
    lines = static_cast<std::uint64_t>(std::count(Data(), Data() + n, '\n'));
  } else {
    // The consumed part of a streamed file is gone from the buffer: count it in the file again.
    const off_t resume = ftello(file_);
    std::vector<char> block(64 * 1024);
    std::uint64_t done = 0;
    if (fseeko(file_, 0, SEEK_SET) == 0) {
      while (done < offset) {
        const std::size_t want =
            static_cast<std::size_t>(std::min<std::uint64_t>(block.size(), offset - done));
        const std::size_t got = std::fread(block.data(), 1, want, file_);
        if (got == 0) break;
        lines += static_cast<std::uint64_t>(std::count(block.data(), block.data() + got, '\n'));
        done += got;
      }
    }
    fseeko(file_, resume, SEEK_SET);
  }
  const std::uint64_t line = lines + 1;
  return line > static_cast<std::uint64_t>(std::numeric_limits<int>::max())
             ? std::numeric_limits<int>::max()
             : static_cast<int>(line);
}
