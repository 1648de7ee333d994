// Whitespace-delimited scanning of BVH text, with the results of formatted input ("%s", "%d",
// "%f" and literal format text) but without a library call per value: the text is held in
// memory or streamed from a file in large blocks, and numbers are parsed with std::from_chars.
// Private to the BVH reader.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

class BvScanner {
 public:
  // A token must fit into this much look-ahead to be read from a streamed file; names are far
  // shorter and numbers do not come close.
  static constexpr std::size_t kLookahead = 64 * 1024;
  static constexpr std::size_t kBlockSize = 1024 * 1024;

  BvScanner() = default;
  ~BvScanner() { Reset(); }
  BvScanner(const BvScanner&) = delete;
  BvScanner& operator=(const BvScanner&) = delete;

  // Streams `file` (taken over; closed by Reset) of `size` bytes.
  void AttachFile(std::FILE* file, std::uint64_t size);
  // Scans a copy of `size` bytes at `data`.
  void AttachMemory(const char* data, std::size_t size);
  // Drops the text and closes the file; false when closing the file failed.
  bool Reset();
  bool IsOpen() const { return open_; }

  // Skips whitespace (as isspace in the C locale); false when the text ends first. After a true
  // result the next token is wholly in the buffer unless it is longer than kLookahead.
  bool SkipSpace() {
    while (pos_ < end_ && IsSpace(*pos_)) ++pos_;
    if (eof_ || static_cast<std::size_t>(end_ - pos_) >= kLookahead) return pos_ < end_;
    return SkipSpaceRefilling();
  }
  // Reads a maximal run of non-whitespace ("%s"). The view stays valid until the next call.
  // False at the end of the text or for a token longer than kLookahead.
  bool ReadToken(std::string_view* token);
  // Reads a decimal integer with an optional sign ("%d"); false when none starts at the next
  // non-blank character or it does not fit an int. The rest of the token stays unread.
  bool ReadInt(int* value);
  // Reads a float as strtof does: optional sign, decimal or hexadecimal digits, exponent, "inf",
  // "infinity", "nan"; out-of-range values become infinity or zero. False when none starts at
  // the next non-blank character; the rest of the token stays unread.
  bool ReadFloat(float* value) {
    if (!SkipSpace()) return false;
    const bool negative = *pos_ == '-';
    if (ParseShortDecimal(pos_ + negative, end_, value, &pos_)) {
      if (negative) *value = -*value;
      return true;
    }
    return ParseFloat(value);
  }
  // Reads up to `count` floats as ReadFloat would, one after the other; returns how many were
  // read (fewer only where ReadFloat would fail, the cursor then on the failing token).
  int ReadFloats(float* values, int count) {
    int done = 0;
    while (done < count) {
#if defined(__SSE2__)
      done += ReadShortDecimalRun(values + done, count - done);
      if (done == count) break;
#endif
      if (!ReadFloat(values + done)) break;
      ++done;
    }
    return done;
  }
  // Skips whitespace, then consumes `literal` character by character like literal format text.
  bool MatchLiteral(std::string_view literal);

  // Byte offset of the cursor from the start of the text, and the bytes after it.
  std::uint64_t Offset() const { return base_ + static_cast<std::uint64_t>(pos_ - Data()); }
  std::uint64_t Remaining() const { return size_ - Offset(); }
  bool AtEnd() { return !SkipSpace(); }
  // Up to 40 characters of the token at the cursor, for messages ("" at the end of the text).
  std::string Excerpt();
  // The 1-based line that holds byte `offset`. Counts the text again (re-reads a file), so it is
  // meant for error messages only.
  int LineAt(std::uint64_t offset);
  // The offset to report for a failure at the end of the text: just after its last token.
  std::uint64_t EndOffset();

 private:
  static constexpr float kSign[2] = {1.0f, -1.0f};
  static bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
  const char* Data() const { return buf_.data(); }
  bool SkipSpaceRefilling();
  void Refill();
  // The general path of ReadFloat, at the cursor.
  bool ParseFloat(float* value);
  // Motion values are short decimals ("-17.3198"). When all digits fit 24 bits and there are at
  // most ten after the point, the value is digits / 10^n with both operands exact floats, and one
  // IEEE division rounds it correctly: the same float strtof gives, without the general parser.
  // Anything else (exponents, long mantissas, words) is left to from_chars: false.
  static bool ParseShortDecimal(const char* p, const char* end, float* value, const char** next) {
    static constexpr float kPow10[11] = {1e0f, 1e1f, 1e2f, 1e3f, 1e4f, 1e5f,
                                         1e6f, 1e7f, 1e8f, 1e9f, 1e10f};
    std::uint32_t mantissa = 0;
    int digits = 0;
    int fraction = 0;
    while (p < end && *p >= '0' && *p <= '9' && digits < 9) {
      mantissa = mantissa * 10 + static_cast<std::uint32_t>(*p - '0');
      ++digits;
      ++p;
    }
    if (p < end && *p == '.') {
      ++p;
      while (p < end && *p >= '0' && *p <= '9' && digits < 9) {
        mantissa = mantissa * 10 + static_cast<std::uint32_t>(*p - '0');
        ++digits;
        ++fraction;
        ++p;
      }
    }
    if (digits == 0 || digits == 9 || fraction > 10 || mantissa > (1u << 24)) return false;
    // Only a blank or the sign of a next number may follow; "0x", exponents and the like go to
    // the general path.
    if (p < end && !IsSpace(*p) && *p != '-' && *p != '+') return false;
    *value = static_cast<float>(mantissa) / kPow10[fraction];
    *next = p;
    return true;
  }
#if defined(__SSE2__)
  // A frame of motion is a run of short decimals between blanks. This reads such a run 64 bytes
  // at a time: a mask of the blanks in the block gives where every token starts, and each token
  // is then parsed on its own, so that no token waits for the one before it to be measured.
  // Reads up to `count` values; stops (returning how many) at the first token that is not a
  // short decimal followed by a blank, or when fewer than kRunReach bytes are left in the
  // buffer. The cursor is left after the last value read; the values and the refusals are
  // ParseShortDecimal's.
  static constexpr std::ptrdiff_t kRunReach = 64 + 32;
  int ReadShortDecimalRun(float* values, int count) {
    int done = 0;
    const char* block = pos_;
    std::uint64_t blankBefore = 1;  // the cursor starts a token if it is on one
    while (end_ - block >= kRunReach) {
      const std::uint64_t blank = BlankMask(block);
      std::uint64_t starts = ~blank & ((blank << 1) | blankBefore);
      blankBefore = blank >> 63;
      for (; starts != 0; starts &= starts - 1) {
        const char* token = block + __builtin_ctzll(starts);
        const char* next = nullptr;
        if (!ParseStandaloneDecimal(token, &values[done], &next)) {
          pos_ = token;
          return done;
        }
        pos_ = next;
        if (++done == count) return done;
      }
      block += 64;
    }
    return done;
  }
  // One bit per byte of the 64 at `p`, set for a blank.
  static std::uint64_t BlankMask(const char* p) {
    std::uint64_t mask = 0;
    for (int i = 0; i < 4; ++i) {
      const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16 * i));
      const __m128i control = _mm_sub_epi8(bytes, _mm_set1_epi8('\t'));
      const __m128i blank =
          _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8(' ')),
                       _mm_cmpeq_epi8(_mm_min_epu8(control, _mm_set1_epi8(4)), control));
      mask |= static_cast<std::uint64_t>(static_cast<unsigned>(_mm_movemask_epi8(blank))) << (16 * i);
    }
    return mask;
  }
  // ParseShortDecimal for a token at `p` (32 bytes readable) that must end at a blank, without
  // a loop or a branch per character: one 16-byte comparison finds the digits before and after
  // the point, the digits without the point are joined into one word, and that becomes an
  // integer in three multiplications.
  static bool ParseStandaloneDecimal(const char* p, float* value, const char** next) {
    static constexpr float kPow10[9] = {1e0f, 1e1f, 1e2f, 1e3f, 1e4f, 1e5f, 1e6f, 1e7f, 1e8f};
    // Bytes 0 to n - 1 of a word, for n = 0 .. 8.
    static constexpr std::uint64_t kLowBytes[9] = {
        0, 0xFF, 0xFFFF, 0xFFFFFF, 0xFFFFFFFF, 0xFFFFFFFFFFULL, 0xFFFFFFFFFFFFULL,
        0xFFFFFFFFFFFFFFULL, ~0ULL};
    const bool negative = *p == '-';
    p += negative;
    const __m128i text = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    const __m128i offset = _mm_sub_epi8(text, _mm_set1_epi8('0'));
    const __m128i digit = _mm_cmpeq_epi8(_mm_min_epu8(offset, _mm_set1_epi8(9)), offset);
    // A set bit for every byte that is not a digit; bits 16 and up stand for the unseen bytes.
    const unsigned other = ~static_cast<unsigned>(_mm_movemask_epi8(digit));
    const int whole = __builtin_ctz(other);
    if (whole > 8) return false;
    const bool point = p[whole] == '.';
    const int fraction = point ? __builtin_ctz(other >> (whole + 1)) : 0;
    const int digits = whole + fraction;
    const int stop = whole + point + fraction;
    if (digits == 0 || digits > 8 || stop >= 16 || !IsSpace(p[stop])) return false;
    // The digits before the point from the word at p, those after it from the word one byte on,
    // which skips the point; then moved to the top of the word (zero bytes lead, as leading
    // zeros) and combined pairwise: 2, then 4, then 8 digits at a time.
    std::uint64_t before = 0;
    std::uint64_t after = 0;
    std::memcpy(&before, p, sizeof before);
    std::memcpy(&after, p + 1, sizeof after);
    const std::uint64_t keep = point ? kLowBytes[whole] : ~0ULL;
    std::uint64_t word = ((before & keep) | (after & ~keep)) << (8 * (8 - digits));
    word = (word & 0x0F0F0F0F0F0F0F0FULL) * 2561 >> 8;
    word = (word & 0x00FF00FF00FF00FFULL) * 6553601 >> 16;
    const auto mantissa =
        static_cast<std::uint32_t>((word & 0x0000FFFF0000FFFFULL) * 42949672960001ULL >> 32);
    if (mantissa > (1u << 24)) return false;
    *value = static_cast<float>(mantissa) / kPow10[fraction] * kSign[negative];
    *next = p + stop;
    return true;
  }
#endif

  std::FILE* file_ = nullptr;
  std::vector<char> buf_;
  const char* pos_ = nullptr;
  const char* end_ = nullptr;
  std::uint64_t base_ = 0;  // offset of buf_[0] in the text
  std::uint64_t size_ = 0;
  bool eof_ = true;  // nothing more to read into the buffer
  bool open_ = false;
};
