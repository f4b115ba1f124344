// Input and output files of the decoder programs: the whole input read into
// memory and the output opened, "-" standing for standard input or output;
// failures are reported on stderr as "<program>: cannot ... <path>".
#pragma once

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace aklcli {

inline bool ReadAll(std::FILE* f, std::vector<std::uint8_t>* out) {
  unsigned char chunk[1 << 16];
  std::size_t n;
  while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0) out->insert(out->end(), chunk, chunk + n);
  return !std::ferror(f);
}

// Reads all of `path` into *data; false (message printed) if it cannot.
inline bool ReadInput(const char* program, const std::string& path, std::vector<std::uint8_t>* data) {
  std::FILE* in = path == "-" ? stdin : std::fopen(path.c_str(), "rb");
  if (!in) {
    std::fprintf(stderr, "%s: cannot open %s: %s\n", program, path.c_str(), std::strerror(errno));
    return false;
  }
  const bool ok = ReadAll(in, data);
  if (in != stdin) std::fclose(in);
  if (!ok) std::fprintf(stderr, "%s: cannot read %s\n", program, path.c_str());
  return ok;
}

// Opens `path` for writing; null (message printed) if it cannot.
inline std::FILE* OpenOutput(const char* program, const std::string& path) {
  std::FILE* out = path == "-" ? stdout : std::fopen(path.c_str(), "wb");
  if (!out) std::fprintf(stderr, "%s: cannot create %s: %s\n", program, path.c_str(), std::strerror(errno));
  return out;
}

}  // namespace aklcli
