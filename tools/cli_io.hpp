// Input and output files of the decoder programs: the whole input read into
// memory and the output written to a temporary file beside it that takes
// the output's name only when the run succeeds, "-" standing for standard
// input or output; failures are reported on stderr as
// "<program>: cannot ... <path>: <reason>".  Also the command-line
// conventions both programs share (--version, usage errors).
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "aklac.h"

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
  struct stat st {};
  if (fstat(fileno(in), &st) == 0 && S_ISDIR(st.st_mode)) {
    std::fprintf(stderr, "%s: cannot read %s: %s\n", program, path.c_str(), std::strerror(EISDIR));
    if (in != stdin) std::fclose(in);
    return false;
  }
  errno = 0;
  const bool ok = ReadAll(in, data);
  const int err = errno;
  if (in != stdin) std::fclose(in);
  if (!ok) std::fprintf(stderr, "%s: cannot read %s: %s\n", program, path.c_str(), std::strerror(err ? err : EIO));
  return ok;
}

// The output file.  A named output is written to a temporary file in the
// same directory, which Commit renames to the output's name; without a
// Commit (a failed run) the temporary file is removed and whatever was at
// the output's name stays as it was.  Standard output is written directly.
class Output {
 public:
  Output() = default;
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;
  ~Output() { Abort(); }

  // Opens `path` for writing; false (message printed) if it cannot, or if it
  // names the same file as `input`.
  bool Open(const char* program, const std::string& path, const std::string& input) {
    program_ = program;
    path_ = path;
    if (path == "-") {
      f_ = stdout;
      return true;
    }
    struct stat in_st {}, out_st {};
    if (input != "-" && stat(input.c_str(), &in_st) == 0 && stat(path.c_str(), &out_st) == 0 &&
        in_st.st_dev == out_st.st_dev && in_st.st_ino == out_st.st_ino) {
      std::fprintf(stderr, "%s: %s is the input file; refusing to write over it\n", program, path.c_str());
      return false;
    }
    if (stat(path.c_str(), &out_st) == 0 && S_ISDIR(out_st.st_mode)) {
      std::fprintf(stderr, "%s: cannot create %s: %s\n", program, path.c_str(), std::strerror(EISDIR));
      return false;
    }
    const std::size_t slash = path.find_last_of('/');
    temp_ = (slash == std::string::npos ? std::string() : path.substr(0, slash + 1)) + "." +
            (slash == std::string::npos ? path : path.substr(slash + 1)) + ".XXXXXX";
    const int fd = mkstemp(temp_.data());
    if (fd < 0) {
      std::fprintf(stderr, "%s: cannot create %s: %s\n", program, path.c_str(), std::strerror(errno));
      temp_.clear();
      return false;
    }
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(fd, 0666 & ~mask);
    f_ = fdopen(fd, "wb");
    if (!f_) {
      close(fd);
      Abort();
      std::fprintf(stderr, "%s: cannot create %s: %s\n", program, path.c_str(), std::strerror(errno));
      return false;
    }
    return true;
  }

  std::FILE* file() const { return f_; }

  // Closes the output and gives it its name; false (message printed) if
  // that fails.
  bool Commit() {
    if (!f_ || f_ == stdout) return f_ != nullptr;
    const bool closed = std::fclose(f_) == 0;
    f_ = nullptr;
    if (!closed || std::rename(temp_.c_str(), path_.c_str()) != 0) {
      std::fprintf(stderr, "%s: cannot write %s: %s\n", program_, path_.c_str(), std::strerror(errno));
      Abort();
      return false;
    }
    temp_.clear();
    return true;
  }

  // Drops a named output that was not committed.
  void Abort() {
    if (f_ && f_ != stdout) std::fclose(f_);
    f_ = nullptr;
    if (!temp_.empty()) std::remove(temp_.c_str());
    temp_.clear();
  }

 private:
  const char* program_ = "";
  std::string path_, temp_;
  std::FILE* f_ = nullptr;
};

// --version: the program, the library it runs against and its version.
inline void PrintVersion(const char* program) {
  const AklLibraryVersion* v = aklacGetLibVersion();
  std::printf("%s: %s %s\n", program, v->Name, v->Version);
}

// A usage error: what is wrong, the one usage line, where to find more.
// Returns the exit status of a usage error, 2.
inline int UsageError(const char* program, const char* usage_line, const std::string& what) {
  std::fprintf(stderr, "%s: %s\n%s\nTry '%s --help' for more information.\n", program, what.c_str(), usage_line,
               program);
  return 2;
}

}  // namespace aklcli
