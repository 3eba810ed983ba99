#include "index/source.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <lzma.h>
#include <signal.h>
#include <unistd.h>
#include <zlib.h>

#include "tests/system/harness.h"

namespace {

std::string Gzip(const std::string &text) {
  z_stream stream = {};
  deflateInit2(&stream, 9, Z_DEFLATED, 15 + 16, 9, Z_DEFAULT_STRATEGY);
  std::string packed(deflateBound(&stream, text.size()) + 64, '\0');
  stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef *>(packed.data());
  stream.avail_out = static_cast<uInt>(packed.size());
  EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
  packed.resize(stream.total_out);
  deflateEnd(&stream);
  return packed;
}

std::string Xz(const std::string &text) {
  std::string packed(lzma_stream_buffer_bound(text.size()), '\0');
  std::size_t size = 0;
  EXPECT_EQ(lzma_easy_buffer_encode(
                9, LZMA_CHECK_CRC64, nullptr, reinterpret_cast<const std::uint8_t *>(text.data()),
                text.size(), reinterpret_cast<std::uint8_t *>(packed.data()), &size, packed.size()),
            LZMA_OK);
  packed.resize(size);
  return packed;
}

struct Unpacked {
  std::string text, error;
  std::int64_t taken;
};

// What a file of that name and those bytes holds, read in pieces of that size.
Unpacked Read(const std::string &name, const std::string &bytes, std::size_t piece = 100) {
  const Folder folder;
  const int fd = open(folder.Write(name, bytes).c_str(), O_RDONLY);
  std::string_view plain = name;
  Source source = {fd, Unpack_BySuffix(&plain)};
  Unpacked unpacked = {};
  std::string buffer(piece, '\0');
  std::ptrdiff_t got = 0;
  while ((got = Source_Read(&source, buffer.data(), piece)) > 0)
    unpacked.text.append(buffer, 0, static_cast<std::size_t>(got));
  close(fd);
  unpacked.taken = source.taken;
  if (got < 0) unpacked.error = source.error;
  return unpacked;
}

// Some text that does not pack to nothing.
std::string Sample(int lines) {
  std::string text;
  for (int i = 0; i < lines; ++i) text += "line " + std::to_string(i * 7919 % 10007) + "\n";
  return text;
}

}  // namespace

TEST(Source, Read_GivesWhatWasPacked) {
  const std::string text = Sample(50000);
  for (const std::size_t piece : {1000u, 65536u}) {
    EXPECT_EQ(Read("a.txt", text, piece).text, text);
    EXPECT_EQ(Read("a.gz", Gzip(text), piece).text, text);
    EXPECT_EQ(Read("a.xz", Xz(text), piece).text, text);
  }
  EXPECT_EQ(Read("a.gz", Gzip("")).text, "");
  EXPECT_EQ(Read("a.gz", Gzip("")).error, "");
  EXPECT_EQ(Read("a.xz", Xz("")).error, "");
  EXPECT_EQ(Read("a.gz", Gzip(text)).taken, static_cast<std::int64_t>(Gzip(text).size()));
}

TEST(Source, Read_GivesSeveralPackedFilesInOne) {
  EXPECT_EQ(Read("a.gz", Gzip("one\n") + Gzip("") + Gzip("two\n")).text, "one\ntwo\n");
  EXPECT_EQ(Read("a.xz", Xz("one\n") + Xz("two\n")).text, "one\ntwo\n");
}

TEST(Source, Read_NamesThePlaceWherePackedBytesEndTooEarly) {
  for (const std::size_t size : {0u, 1u, 5u, 20u, 1000u}) {
    const std::string place = std::to_string(size);
    EXPECT_EQ(Read("a.gz", Gzip(Sample(5000)).substr(0, size)).error,
              "the gzip data end too early, at byte " + place);
    EXPECT_EQ(Read("a.xz", Xz(Sample(5000)).substr(0, size)).error,
              "the xz data end too early, at byte " + place);
  }
}

TEST(Source, Read_NamesThePlaceOfDamagedBytes) {
  EXPECT_EQ(Read("a.gz", "A: 1\n").error, "the gzip data are damaged at byte 2");
  EXPECT_EQ(Read("a.xz", "Title: no xz at all\n").error, "the xz data are damaged at byte 12");
  std::string gzip = Gzip(Sample(5000)), xz = Xz(Sample(5000));
  gzip[gzip.size() - 6] ^= 1;  // in the sum
  xz[xz.size() / 2] ^= 1;
  EXPECT_TRUE(Read("a.gz", gzip).error.starts_with("the gzip data are damaged at byte "));
  EXPECT_TRUE(Read("a.xz", xz).error.starts_with("the xz data are damaged at byte "));
  EXPECT_TRUE(Read("a.gz", Gzip("x") + "tail").error.starts_with("the gzip data are damaged at "));
}

TEST(Source, Read_RefusesWhatAsksForTooMuchMemory) {
  lzma_options_lzma options = {};
  lzma_lzma_preset(&options, 0);
  options.dict_size = 1u << 30;
  const lzma_filter filters[] = {{LZMA_FILTER_LZMA2, &options}, {LZMA_VLI_UNKNOWN, nullptr}};
  lzma_stream stream = LZMA_STREAM_INIT;
  std::uint8_t packed[1024];
  if (lzma_stream_encoder(&stream, filters, LZMA_CHECK_NONE) != LZMA_OK)
    GTEST_SKIP() << "too little memory to make such a file";
  const std::uint8_t byte = 'x';
  stream.next_in = &byte;
  stream.avail_in = 1;
  stream.next_out = packed;
  stream.avail_out = sizeof packed;
  EXPECT_EQ(lzma_code(&stream, LZMA_FINISH), LZMA_STREAM_END);
  const std::string bytes(reinterpret_cast<const char *>(packed), stream.total_out);
  lzma_end(&stream);
  EXPECT_TRUE(Read("a.xz", bytes).error.starts_with("the xz data need too much memory at byte "));
}

TEST(Source, Read_OfADirectory_SaysWhy) {
  for (const char *name : {"a", "a.gz"}) {
    std::string_view plain = name;
    Source source = {open("/", O_RDONLY), Unpack_BySuffix(&plain)};
    char byte = 0;
    EXPECT_EQ(Source_Read(&source, &byte, 1), -1);
    EXPECT_EQ(source.error, "Is a directory");
    close(source.fd);
  }
}

TEST(Unpack, BySuffix_LeavesTheNameOfWhatWasPacked) {
  std::string_view name = "a.csv.gz";
  EXPECT_STREQ(Unpack_BySuffix(&name)->Name(), "gzip");
  EXPECT_EQ(name, "a.csv");
  name = "b.xz";
  EXPECT_STREQ(Unpack_BySuffix(&name)->Name(), "xz");
  EXPECT_EQ(name, "b");
  name = "gz";
  EXPECT_EQ(Unpack_BySuffix(&name), nullptr);
}
