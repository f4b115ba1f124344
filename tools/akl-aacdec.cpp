// akl-aacdec: decodes an AAC-LC stream (MP4/M4A/3GP/MOV, ADTS or ADIF) to a
// WAV file or raw 16-bit PCM, using only the aklac library's public interface.
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <cstdio>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "aacdec/aac_decoder.hpp"
#include "mp4/aac_input.hpp"
#include "cli_io.hpp"
#include "kit/wav_writer.hpp"

namespace {

const char kUsageLine[] = "usage: akl-aacdec [options] INPUT OUTPUT";

const char kUsage[] =
    "usage: akl-aacdec [options] INPUT OUTPUT\n"
    "Decodes an AAC stream (LC, Main, LTP and HE-AAC; MP4, M4A, 3GP, MOV, ADTS or\n"
    "ADIF) to 16-bit PCM.\n"
    "INPUT or OUTPUT may be '-' for standard input or output.\n"
    "\n"
    "options:\n"
    "  --raw        write raw interleaved little-endian 16-bit samples instead of WAV\n"
    "  --no-sbr     play only the AAC-LC core of HE-AAC streams (half the rate and bandwidth)\n"
    "  --no-ps      play HE-AAC v2 (parametric stereo) streams as their mono signal\n"
    "  --no-gapless keep every decoded sample of an MP4 file; by default its edit list\n"
    "               (or iTunSMPB comment) trims the encoder's priming and padding\n"
    "  --damage-report\n"
    "               list every kind of damage in the summary, zero counts too\n"
    "  -q, --quiet  print nothing but errors (no warnings, progress or summary)\n"
    "  -h, --help   show this text\n"
    "  --version    print the program's and the library's versions\n"
    "  --           end of options: the names that follow are files\n"
    "\n"
    "A named OUTPUT is written under a temporary name beside it and takes its\n"
    "name only when the run succeeds; OUTPUT may not be the INPUT file.\n"
    "\n"
    "The container is recognised from the content, not the file name.  ADTS and ADIF\n"
    "output holds every decoded frame, the encoder's priming included.  Multichannel\n"
    "output is in WAV channel order with the matching channel mask.  HE-AAC streams are\n"
    "decoded with band replication (parametric stereo not yet: its mono output is\n"
    "written); SSR streams are refused.\n"
    "Damaged frames are concealed (the overlap of the last good frame fades into\n"
    "silence) and counted; decoding resumes at the next good frame.  Frames at another\n"
    "sampling rate than the first are dropped and counted.  Exit status: 0 success,\n"
    "1 failure (unreadable input, unsupported stream, write error; also a damaged MP4\n"
    "file, after the audio before the damage), 2 usage.\n";

class FileSink : public aacdec::PcmSink {
 public:
  FileSink(std::FILE* f, bool raw, bool quiet, bool progress) : wav_(f, raw), quiet_(quiet), progress_(progress) {}

  bool Format(const aacdec::StreamFormat& fmt) override {
    format_ = fmt;
    return wav_.Start(aklkit::WavFormat{fmt.sample_rate, fmt.channels, fmt.channel_mask});
  }

  bool Frame(const std::int16_t* pcm, int frames) override {
    return wav_.Write(pcm, static_cast<std::size_t>(frames));
  }

  void Warn(const std::string& msg) override {
    if (!quiet_) std::fprintf(stderr, "%sakl-aacdec: warning: %s\n", progress_shown_ ? "\n" : "", msg.c_str());
    progress_shown_ = false;
  }

  void Progress(std::size_t consumed, std::size_t total) override {
    if (!progress_ || quiet_ || total == 0) return;
    const auto now = std::chrono::steady_clock::now();
    if (now - last_ < std::chrono::milliseconds(200) && consumed < total) return;
    last_ = now;
    std::fprintf(stderr, "\rakl-aacdec: %3d%%", static_cast<int>(100.0 * static_cast<double>(consumed) / static_cast<double>(total)));
    progress_shown_ = true;
  }

  // Writes the final sizes into the WAV header when the output can seek;
  // false if a write failed.
  bool Close() {
    if (progress_shown_) std::fprintf(stderr, "\r                 \r");
    return wav_.Finish();
  }

  const aacdec::StreamFormat& format() const { return format_; }

 private:
  aklkit::WavWriter wav_;
  bool quiet_, progress_;
  bool progress_shown_ = false;
  aacdec::StreamFormat format_;
  std::chrono::steady_clock::time_point last_{};
};

}  // namespace

int main(int argc, char** argv) {
  bool raw = false, quiet = false, full_report = false;
  aacdec::InputOptions options;
  std::vector<std::string> files;
  bool options_done = false;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (options_done || a == "-" || a.empty() || a[0] != '-') {
      files.push_back(a);
      continue;
    }
    if (a == "--") {
      options_done = true;
      continue;
    }
    if (a == "--version") {
      aklcli::PrintVersion("akl-aacdec");
      return 0;
    }
    if (a == "--help" || a == "-h") {
      std::fputs(kUsage, stdout);
      return 0;
    }
    if (a == "--no-sbr") {
      options.sbr = false;
    } else if (a == "--no-ps") {
      options.ps = false;
    } else if (a == "--raw") {
      raw = true;
    } else if (a == "--no-gapless") {
      options.gapless = false;
    } else if (a == "--damage-report") {
      full_report = true;
    } else if (a == "--quiet" || a == "-q") {
      quiet = true;
    } else {
      return aklcli::UsageError("akl-aacdec", kUsageLine, "unknown option '" + a + "'");
    }
  }
  if (files.size() != 2) {
    return aklcli::UsageError("akl-aacdec", kUsageLine, files.size() < 2 ? "missing INPUT or OUTPUT" : "more than one INPUT and OUTPUT");
  }
  std::vector<std::uint8_t> data;
  if (!aklcli::ReadInput("akl-aacdec", files[0], &data)) return 1;
  aklcli::Output out;
  if (!out.Open("akl-aacdec", files[1], files[0])) return 1;
  // Progress only on a terminal, and only for inputs that take a while.
  FileSink sink(out.file(), raw, quiet, isatty(STDERR_FILENO) != 0 && data.size() > (1u << 20));
  aacdec::DecodeStats stats;
  std::string message, damage;
  const std::clock_t cpu0 = std::clock();
  const auto wall0 = std::chrono::steady_clock::now();
  const aacdec::DecodeResult r = aacdec::DecodeAacInput(data.data(), data.size(), options, &sink, &stats, &message, &damage);
  const double cpu = static_cast<double>(std::clock() - cpu0) / CLOCKS_PER_SEC;
  const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - wall0).count();
  const bool write_ok = sink.Close();
  if (r == aacdec::DecodeResult::kRefused || r == aacdec::DecodeResult::kNoAudio) {
    std::fprintf(stderr, "akl-aacdec: %s: %s\n", files[0].c_str(), message.c_str());
    return 1;
  }
  if (r == aacdec::DecodeResult::kSinkStopped || !write_ok) {
    std::fprintf(stderr, "akl-aacdec: error writing %s: %s\n", files[1].c_str(), std::strerror(errno));
    return 1;
  }
  if (!out.Commit()) return 1;
  if (!quiet) {
    const auto& f = sink.format();
    const double seconds = f.sample_rate ? static_cast<double>(stats.samples) / f.sample_rate : 0.0;
    const double t = cpu > 0 ? cpu : wall;
    const std::string layout =
        f.channels == 1 ? "mono" : (f.channels == 2 ? "stereo" : std::to_string(f.channels) + " channels");
    aklcli::PrintSummary(stderr, "akl-aacdec", stats.frames, seconds, f.sample_rate, layout, stats.damage.Damaged(), t);
    stats.damage.Print(stderr, "akl-aacdec", full_report);
  }
  if (!damage.empty()) {
    std::fprintf(stderr, "akl-aacdec: %s: damaged MP4 file (%s); the audio before the damage was written\n",
                 files[0].c_str(), damage.c_str());
    return 1;
  }
  return 0;
}
