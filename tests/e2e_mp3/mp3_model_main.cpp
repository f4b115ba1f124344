// mp3_model: the double-precision Layer III model on the command line.
//
//   mp3_model DATA_DIR STREAM OUT.pcm [--dump FIRST LAST] [variant...]
//
// OUT.pcm: raw s16le, interleaved, every granule (no delay trimming).  The
// variants are listed in mp3_model.cpp.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "mp3_model.hpp"

using mp3model::Variant;

int main(int argc, char** argv) {
  if (argc < 4) {
    std::fprintf(stderr, "usage: mp3_model DATA_DIR STREAM OUT.pcm [--dump FIRST LAST] [variant...]\n");
    return 2;
  }
  const std::string dir = argv[1];
  Variant var;
  long dump_first = -1, dump_last = -2;
  for (int i = 4; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--dump" && i + 2 < argc) {
      dump_first = std::atol(argv[i + 1]);
      dump_last = std::atol(argv[i + 2]);
      i += 2;
    } else if (a == "--slen0-illegal") {
      var.slen0_illegal = true;
    } else if (a == "--top-band-illegal") {
      var.top_band_illegal = true;
    } else if (a == "--top-band-zero") {
      var.top_band_zero = true;
    } else if (a == "--mpeg1-illegal7") {
      var.mpeg1_illegal7 = true;
    } else if (a == "--no-illegal") {
      var.no_illegal = true;
    } else if (a == "--top-band-outside-illegal") {
      var.top_band_outside = 1;
    } else if (a == "--top-band-outside-zero") {
      var.top_band_outside = 2;
    } else if (a == "--illegal-from" && i + 1 < argc) {
      var.illegal_from = std::atoi(argv[++i]);
    } else if (a == "--illegal-plain") {
      var.illegal_plain = true;
    } else if (a == "--native-channels") {
      var.native_channels = true;
    } else if (a == "--coded-extent") {
      var.coded_extent = true;
    } else {
      std::fprintf(stderr, "mp3_model: unknown argument %s\n", a.c_str());
      return 2;
    }
  }
  std::vector<std::uint8_t> data;
  {
    std::FILE* f = std::fopen(argv[2], "rb");
    if (!f) return 1;
    unsigned char buf[65536];
    std::size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) data.insert(data.end(), buf, buf + n);
    std::fclose(f);
  }
  std::vector<std::int16_t> pcm;
  int channels = 0;
  if (!mp3model::Decode(dir, data, var, &pcm, &channels, dump_first, dump_last)) {
    std::fprintf(stderr, "mp3_model: cannot decode %s (tables in %s/mp3_model?)\n", argv[2], dir.c_str());
    return 1;
  }
  std::FILE* out = std::fopen(argv[3], "wb");
  if (!out || std::fwrite(pcm.data(), 2, pcm.size(), out) != pcm.size()) return 1;
  std::fclose(out);
  std::fprintf(stderr, "mp3_model: %zu granules, %d channels\n", pcm.size() / 576 / static_cast<std::size_t>(channels), channels);
  return 0;
}
