#include "index/unpack.h"

#include <lzma.h>
#include <zlib.h>

#include <new>

namespace {

constexpr int kGzipWindow = 15 + 16;                   // the widest, with the header of gzip
constexpr std::uint64_t kMostXzMemory = 256ULL << 20;  // xz -9 takes 65 MiB

bool TakeSuffix(std::string_view *name, std::string_view suffix) {
  if (!name->ends_with(suffix)) return false;
  name->remove_suffix(suffix.size());
  return true;
}

class GzipUnpacker : public Unpacker {
 public:
  GzipUnpacker() {
    if (inflateInit2(&stream_, kGzipWindow) != Z_OK) throw std::bad_alloc();
  }
  ~GzipUnpacker() override { inflateEnd(&stream_); }
  GzipUnpacker(const GzipUnpacker &) = delete;
  GzipUnpacker &operator=(const GzipUnpacker &) = delete;
  const char *Name() const override { return "gzip"; }

  UnpackResult Step(std::string_view *packed, char *bytes, std::size_t size,
                    std::size_t *written) override {
    if (whole_ && !packed->empty()) {  // several files in one
      inflateReset(&stream_);
      whole_ = false;
    }
    stream_.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(packed->data()));  // not written
    stream_.avail_in = static_cast<uInt>(packed->size());
    stream_.next_out = reinterpret_cast<Bytef *>(bytes);
    stream_.avail_out = static_cast<uInt>(size);
    const int code = inflate(&stream_, Z_NO_FLUSH);
    packed->remove_prefix(packed->size() - stream_.avail_in);
    *written = size - stream_.avail_out;
    if (code == Z_STREAM_END) whole_ = true;
    if (code == Z_MEM_ERROR) return UnpackResult::kMemory;
    if (code != Z_OK && code != Z_STREAM_END && code != Z_BUF_ERROR) return UnpackResult::kBroken;
    return whole_ ? UnpackResult::kWhole : UnpackResult::kOk;
  }

 private:
  z_stream stream_ = {};
  bool whole_ = false;
};

class XzUnpacker : public Unpacker {
 public:
  XzUnpacker() {
    if (lzma_stream_decoder(&stream_, kMostXzMemory, LZMA_CONCATENATED) != LZMA_OK)
      throw std::bad_alloc();
  }
  ~XzUnpacker() override { lzma_end(&stream_); }
  XzUnpacker(const XzUnpacker &) = delete;
  XzUnpacker &operator=(const XzUnpacker &) = delete;
  const char *Name() const override { return "xz"; }

  UnpackResult Step(std::string_view *packed, char *bytes, std::size_t size,
                    std::size_t *written) override {
    stream_.next_in = reinterpret_cast<const std::uint8_t *>(packed->data());
    stream_.avail_in = packed->size();
    stream_.next_out = reinterpret_cast<std::uint8_t *>(bytes);
    stream_.avail_out = size;
    // Of several files in one only the end of the input says that the last is whole.
    const lzma_ret code = lzma_code(&stream_, packed->empty() ? LZMA_FINISH : LZMA_RUN);
    packed->remove_prefix(packed->size() - stream_.avail_in);
    *written = size - stream_.avail_out;
    if (code == LZMA_STREAM_END) return UnpackResult::kWhole;
    if (code == LZMA_MEM_ERROR || code == LZMA_MEMLIMIT_ERROR) return UnpackResult::kMemory;
    return code == LZMA_OK || code == LZMA_BUF_ERROR ? UnpackResult::kOk : UnpackResult::kBroken;
  }

 private:
  lzma_stream stream_ = LZMA_STREAM_INIT;
};

}  // namespace

std::unique_ptr<Unpacker> Unpack_BySuffix(std::string_view *file) {
  if (TakeSuffix(file, ".gz")) return std::make_unique<GzipUnpacker>();
  if (TakeSuffix(file, ".xz")) return std::make_unique<XzUnpacker>();
  return nullptr;
}
