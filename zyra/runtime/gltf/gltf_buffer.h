// What the glTF export writes with: the one binary buffer that its accessors view, and an output
// stream that serialises straight into a ReplacingFile (atomic_file.h).
#pragma once

#include <tiny_gltf.h>

#include <cstring>
#include <streambuf>
#include <string_view>
#include <vector>

#include "files/atomic_file.h"

namespace Zyra::rt {

// Appends data to the one buffer (4-byte aligned) and makes a view and an accessor over it.
class GltfBufferWriter {
 public:
  explicit GltfBufferWriter(tinygltf::Model& model) : m_(model) { m_.buffers.resize(1); }

  // Room for `bytes` at the end of the buffer (4-byte aligned); returns its offset.
  size_t Allocate(size_t bytes) {
    auto& data = m_.buffers[0].data;
    const size_t offset = (data.size() + 3) / 4 * 4;
    data.resize(offset + bytes);
    return offset;
  }
  float* FloatsAt(size_t offset) {
    return reinterpret_cast<float*>(m_.buffers[0].data.data() + offset);
  }
  void Reserve(size_t bytes) { m_.buffers[0].data.reserve(bytes); }

  // A view and an accessor over bytes already in the buffer.
  int Accessor(size_t offset, size_t length, int componentType, int type, size_t count,
               int target = 0, std::vector<double> min = {}, std::vector<double> max = {}) {
    tinygltf::BufferView view;
    view.buffer = 0;
    view.byteOffset = offset;
    view.byteLength = length;
    view.target = target;
    m_.bufferViews.push_back(view);
    tinygltf::Accessor accessor;
    accessor.bufferView = static_cast<int>(m_.bufferViews.size()) - 1;
    accessor.componentType = componentType;
    accessor.type = type;
    accessor.count = count;
    accessor.minValues = std::move(min);
    accessor.maxValues = std::move(max);
    m_.accessors.push_back(accessor);
    return static_cast<int>(m_.accessors.size()) - 1;
  }

  int Add(const void* bytes, size_t length, int componentType, int type, size_t count,
          int target = 0, std::vector<double> min = {}, std::vector<double> max = {}) {
    const size_t offset = Allocate(length);
    if (length > 0) std::memcpy(m_.buffers[0].data.data() + offset, bytes, length);
    return Accessor(offset, length, componentType, type, count, target, std::move(min),
                    std::move(max));
  }

  int Floats(const std::vector<float>& v, int type, int components) {
    return Add(v.data(), v.size() * sizeof(float), TINYGLTF_COMPONENT_TYPE_FLOAT, type,
               v.size() / static_cast<size_t>(components));
  }

 private:
  tinygltf::Model& m_;
};

// An output stream into a ReplacingFile, so that the file is written as it is serialised
// instead of being held whole in memory first.
class ReplacingFileBuf : public std::streambuf {
 public:
  explicit ReplacingFileBuf(ReplacingFile& file) : file_(file), buffer_(size_t{1} << 20) {
    setp(buffer_.data(), buffer_.data() + buffer_.size());
  }

 protected:
  int_type overflow(int_type c) override {
    if (!Drain()) return traits_type::eof();
    if (!traits_type::eq_int_type(c, traits_type::eof())) {
      *pptr() = traits_type::to_char_type(c);
      pbump(1);
    }
    return traits_type::not_eof(c);
  }
  std::streamsize xsputn(const char* s, std::streamsize n) override {
    if (n < static_cast<std::streamsize>(buffer_.size()) / 2) return std::streambuf::xsputn(s, n);
    if (!Drain() || !file_.Write(std::string_view(s, static_cast<size_t>(n)))) return 0;
    return n;
  }
  int sync() override { return Drain() ? 0 : -1; }

 private:
  bool Drain() {
    const auto size = static_cast<size_t>(pptr() - pbase());
    setp(buffer_.data(), buffer_.data() + buffer_.size());
    return size == 0 || file_.Write(std::string_view(buffer_.data(), size));
  }
  ReplacingFile& file_;
  std::vector<char> buffer_;
};

}  // namespace Zyra::rt
