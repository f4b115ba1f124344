// Input and output files of the decoder programs: the whole input read into
// memory and the output written to a temporary file beside it that takes
// the output's name only when the run succeeds, "-" standing for standard
// input or output; failures are reported on stderr as
// "<program>: cannot ... <path>: <reason>".  Also the command-line
// conventions both programs share (--version, usage errors).
#pragma once

#include <fcntl.h>
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

// An input read as it comes: a file, or standard input for "-".  Its first
// bytes can be looked at (Peek) before the caller decides how to read it; a
// regular file can be read again from its start (Rewind).
class InputFile {
 public:
  InputFile() = default;
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;
  ~InputFile() {
    if (fd_ > 0) close(fd_);
  }

  // False (message printed) if `path` cannot be opened or is a directory.
  bool Open(const char* program, const std::string& path) {
    program_ = program;
    path_ = path;
    fd_ = path == "-" ? 0 : open(path.c_str(), O_RDONLY);
    if (fd_ < 0) {
      std::fprintf(stderr, "%s: cannot open %s: %s\n", program, path.c_str(), std::strerror(errno));
      return false;
    }
    struct stat st {};
    if (fstat(fd_, &st) == 0) {
      if (S_ISDIR(st.st_mode)) {
        std::fprintf(stderr, "%s: cannot read %s: %s\n", program, path.c_str(), std::strerror(EISDIR));
        return false;
      }
      if (S_ISREG(st.st_mode)) {
        start_ = lseek(fd_, 0, SEEK_CUR);
        if (start_ >= 0 && st.st_size >= start_) size_ = static_cast<std::uint64_t>(st.st_size - start_);
      }
    }
    return true;
  }

  // The first n bytes (fewer if the input is shorter), left to be read.
  const std::vector<std::uint8_t>& Peek(std::size_t n) {
    while (peeked_.size() < n) {
      std::uint8_t b[4096];
      const std::size_t got = ReadFd(b, std::min(sizeof b, n - peeked_.size()));
      if (got == 0) break;
      peeked_.insert(peeked_.end(), b, b + got);
    }
    return peeked_;
  }

  // Up to n bytes; 0 at the end or after a read error (failed()).
  std::size_t Read(std::uint8_t* dst, std::size_t n) {
    if (taken_ < peeked_.size()) {
      n = std::min(n, peeked_.size() - taken_);
      std::memcpy(dst, peeked_.data() + taken_, n);
      taken_ += n;
      return n;
    }
    return ReadFd(dst, n);
  }

  // Back to the first byte; false if the input is not a regular file.
  bool Rewind() {
    if (start_ < 0 || lseek(fd_, start_, SEEK_SET) != start_) return false;
    peeked_.clear();
    taken_ = 0;
    return true;
  }

  // Everything not yet read, appended to *out; false on a read error.
  bool ReadRest(std::vector<std::uint8_t>* out) {
    if (size_) out->reserve(static_cast<std::size_t>(size_) + 1);
    std::uint8_t b[65536];
    for (std::size_t n; (n = Read(b, sizeof b)) > 0;) out->insert(out->end(), b, b + n);
    return !failed_;
  }

  std::uint64_t size() const { return size_; }  // a regular file's bytes, else 0
  bool failed() const { return failed_; }
  // Prints the read error, if there was one; true if there was.
  bool ReportError() const {
    if (failed_) std::fprintf(stderr, "%s: cannot read %s: %s\n", program_, path_.c_str(), std::strerror(errno_));
    return failed_;
  }

 private:
  std::size_t ReadFd(std::uint8_t* dst, std::size_t n) {
    if (failed_) return 0;
    for (;;) {
      const ssize_t got = ::read(fd_, dst, n);
      if (got >= 0) return static_cast<std::size_t>(got);
      if (errno == EINTR) continue;
      failed_ = true;
      errno_ = errno;
      return 0;
    }
  }

  const char* program_ = "";
  std::string path_;
  int fd_ = -1;
  off_t start_ = -1;
  std::uint64_t size_ = 0;
  std::vector<std::uint8_t> peeked_;
  std::size_t taken_ = 0;
  bool failed_ = false;
  int errno_ = 0;
};

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
    const bool exists = stat(path.c_str(), &out_st) == 0;
    if (exists && S_ISDIR(out_st.st_mode)) {
      std::fprintf(stderr, "%s: cannot create %s: %s\n", program, path.c_str(), std::strerror(EISDIR));
      return false;
    }
    if (exists && !S_ISREG(out_st.st_mode)) {
      // A device or a pipe (/dev/null, a FIFO) is written as it is.
      f_ = std::fopen(path.c_str(), "wb");
      if (!f_) std::fprintf(stderr, "%s: cannot create %s: %s\n", program, path.c_str(), std::strerror(errno));
      direct_ = f_ != nullptr;
      return direct_;
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
    if (!closed || (!direct_ && std::rename(temp_.c_str(), path_.c_str()) != 0)) {
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
  bool direct_ = false;  // written in place (not a regular file)
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
