// Input and output files of the decoder programs: the whole input read into
// memory and the output opened, "-" standing for standard input or output;
// failures are reported on stderr as "<program>: cannot ... <path>".
#pragma once

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace aklcli {

// Reads straight into the vector: a regular file's size is known up front
// (one allocation, no copies); a pipe grows the buffer geometrically.
inline bool ReadAll(std::FILE* f, std::vector<std::uint8_t>* out) {
  struct stat st {};
  std::size_t cap = 1 << 16;
  if (fstat(fileno(f), &st) == 0 && S_ISREG(st.st_mode) && st.st_size > 0)
    cap = static_cast<std::size_t>(st.st_size) + 1;  // +1: the read that sees the end
  std::size_t used = out->size();
  for (;;) {
    if (out->size() - used == 0) out->resize(used + std::max<std::size_t>(cap, used / 2));
    const std::size_t n = std::fread(out->data() + used, 1, out->size() - used, f);
    used += n;
    if (n == 0) break;
  }
  out->resize(used);
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
