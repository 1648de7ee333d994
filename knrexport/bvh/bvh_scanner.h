// Whitespace-delimited scanning of BVH text, with the results of formatted input ("%s", "%d",
// "%f" and literal format text) but without a library call per value: the text is held in
// memory or streamed from a file in large blocks, and numbers are parsed with std::from_chars.
// Private to the BVH reader.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

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

  // Streams `file` (taken over; closed by Reset) of `size` bytes, positioned at byte `offset`.
  void AttachFile(std::FILE* file, std::uint64_t size, std::uint64_t offset = 0);
  // Scans a copy of `size` bytes at `data`.
  void AttachMemory(const char* data, std::size_t size);
  // Makes `other` a second cursor over the same text, at byte `offset`: for a file, a stream of
  // its own (`reopened`, positioned there); in memory, a view of this scanner's copy, which must
  // outlive it. False when the stream cannot be positioned.
  bool Fork(std::FILE* reopened, std::uint64_t offset, BvScanner* other) const;
  // The descriptor of the streamed file, or -1 for text in memory.
  int FileDescriptor() const { return file_ ? fileno(file_) : -1; }
  // Moves the cursor to the start of the first line that begins at or after byte `offset` (not
  // before the cursor) and adds the line ends passed to *lineEnds. False when the text ends
  // first.
  bool SkipToLineStart(std::uint64_t offset, std::uint64_t* lineEnds);
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
  // SkipSpace that also tells whether a line end was among the whitespace skipped (*newLine).
  bool SkipSpaceNotingLines(bool* newLine) {
    bool seen = false;
    for (;;) {
      while (pos_ < end_ && IsSpace(*pos_)) seen |= *pos_++ == '\n';
      if (eof_ || static_cast<std::size_t>(end_ - pos_) >= kLookahead) {
        *newLine = seen;
        return pos_ < end_;
      }
      Refill();
    }
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
  static bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
  const char* Data() const { return view_ ? view_ : buf_.data(); }
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

  std::FILE* file_ = nullptr;
  std::vector<char> buf_;
  const char* view_ = nullptr;  // the text of another scanner, instead of buf_
  const char* pos_ = nullptr;
  const char* end_ = nullptr;
  std::uint64_t base_ = 0;  // offset of buf_[0] in the text
  std::uint64_t size_ = 0;
  bool eof_ = true;  // nothing more to read into the buffer
  bool open_ = false;
};
