// akl-mp3dec: decodes an MPEG-1/2 Layer III stream to a 16-bit PCM WAV file
// (or raw PCM) with the aklac library; see --help.
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "mp3dec/mp3_stream.hpp"
#include "cli_io.hpp"
#include "kit/wav_writer.hpp"
#include "mp4/bmff.hpp"
#include "mp4/mp3_input.hpp"

namespace {

const char kUsageLine[] = "usage: akl-mp3dec [options] INPUT OUTPUT";

const char kUsage[] =
    "usage: akl-mp3dec [options] INPUT OUTPUT\n"
    "\n"
    "Decodes an MPEG-1 or MPEG-2 Layer III stream (mono, stereo, joint or dual\n"
    "channel; CRC, free format and VBR streams), plain or carried in an MP4 file,\n"
    "to 16-bit PCM.  INPUT or OUTPUT may be '-' for standard input or output.\n"
    "\n"
    "options:\n"
    "  --raw         write headerless interleaved signed 16-bit little-endian PCM\n"
    "                instead of a WAV file\n"
    "  --no-gapless  keep every decoded sample; by default the encoder delay and\n"
    "                padding recorded in a LAME tag (or an MP4 file's edit list)\n"
    "                are trimmed, as gapless players do\n"
    "  --mono        one output channel: stereo mixed down, (left + right) / 2\n"
    "  --damage-report\n"
    "                list every kind of damage in the summary, zero counts too\n"
    "  -q, --quiet   print nothing but errors\n"
    "  -h, --help    show this text\n"
    "  --version     print the program's and the library's versions\n"
    "  --            end of options: the names that follow are files\n"
    "\n"
    "A named OUTPUT is written under a temporary name beside it and takes its\n"
    "name only when the run succeeds; OUTPUT may not be the INPUT file.\n"
    "\n"
    "ID3v2, ID3v1, APE and Lyrics3 tags and the Xing/Info/VBRI frame are skipped.\n"
    "Damaged or truncated frames are concealed (decoded as silence) and counted;\n"
    "decoding resumes at the next good frame.  The output has the sampling rate of\n"
    "the first frame and the largest channel count found in the stream: mono frames\n"
    "in a stream that also holds stereo frames are written to both channels, and\n"
    "frames at another sampling rate are dropped (and counted).  MPEG-2.5 and\n"
    "Layers I and II are not supported (their frames are dropped).  The summary\n"
    "counts bytes skipped, frames concealed and frames dropped, by kind.\n";

// The input file as the frame loop's byte source.
class InputSource : public aklmp3::ByteSource {
 public:
  explicit InputSource(aklcli::InputFile* in) : in_(in) {}
  std::size_t Read(std::uint8_t* dst, std::size_t n) override { return in_->Read(dst, n); }
  bool Rewind() override { return in_->Rewind(); }
  std::uint64_t Size() const override { return in_->size(); }

 private:
  aklcli::InputFile* in_;
};

class FileSink : public aklmp3::PcmSink {
 public:
  FileSink(std::FILE* f, bool raw, bool progress) : wav_(f, raw), progress_(progress) {}

  void Format(int rate, int channels) override { wav_.Start(aklkit::WavFormat{rate, channels, 0}); }
  void Write(const std::int16_t* s, std::size_t frames) override { wav_.Write(s, frames); }
  void Progress(std::size_t done, std::size_t total) override {
    if (!progress_ || total == 0) return;
    const auto now = std::chrono::steady_clock::now();
    if (done < total && now - last_ < std::chrono::milliseconds(200)) return;
    last_ = now;
    std::fprintf(stderr, "\rakl-mp3dec: %3d%%", static_cast<int>(100.0 * static_cast<double>(done) / static_cast<double>(total)));
    if (done >= total) std::fprintf(stderr, "\r                \r");
  }
  bool Finish() { return wav_.Finish(); }

 private:
  aklkit::WavWriter wav_;
  bool progress_;
  std::chrono::steady_clock::time_point last_{};
};

}  // namespace

int main(int argc, char** argv) {
  bool raw = false, quiet = false, full_report = false;
  aklmp3::DecodeOptions opt;
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
      aklcli::PrintVersion("akl-mp3dec");
      return 0;
    }
    if (a == "--help" || a == "-h") {
      std::fputs(kUsage, stdout);
      return 0;
    } else if (a == "--raw") {
      raw = true;
    } else if (a == "--no-gapless") {
      opt.gapless = false;
    } else if (a == "--mono") {
      opt.mono = true;
    } else if (a == "--damage-report") {
      full_report = true;
    } else if (a == "--quiet" || a == "-q") {
      quiet = true;
    } else {
      return aklcli::UsageError("akl-mp3dec", kUsageLine, "unknown option '" + a + "'");
    }
  }
  if (files.size() != 2) {
    return aklcli::UsageError("akl-mp3dec", kUsageLine, files.size() < 2 ? "missing INPUT or OUTPUT" : "more than one INPUT and OUTPUT");
  }

  aklcli::InputFile in;
  if (!in.Open("akl-mp3dec", files[0])) return 1;
  aklcli::Output out;
  if (!out.Open("akl-mp3dec", files[1], files[0])) return 1;
  const bool progress = !quiet && isatty(STDERR_FILENO) && in.size() > (4u << 20);
  FileSink sink(out.file(), raw, progress);
  const std::clock_t cpu0 = std::clock();
  const auto wall0 = std::chrono::steady_clock::now();
  std::string refusal, damage;
  std::vector<std::string> warnings;
  aklmp3::DecodeStats st;
  const std::vector<std::uint8_t>& head = in.Peek(8);
  if (mp4::LooksLikeIsoBmff(head.data(), head.size())) {
    // An MP4 file is read whole: its index may be at its end.
    std::vector<std::uint8_t> input;
    if (!in.ReadRest(&input)) return in.ReportError(), 1;
    st = aklmp3::DecodeInput(input.data(), input.size(), opt, &sink, &refusal, &warnings, &damage);
  } else {
    // Anything else is decoded as it is read.
    InputSource source(&in);
    st = aklmp3::DecodeStream(&source, opt, &sink);
    if (in.ReportError()) return 1;
  }
  const double cpu = static_cast<double>(std::clock() - cpu0) / CLOCKS_PER_SEC;
  const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - wall0).count();
  const bool write_ok = sink.Finish();

  if (!quiet)
    for (const std::string& w : warnings) std::fprintf(stderr, "akl-mp3dec: warning: %s\n", w.c_str());
  if (st.frames == 0) {
    if (!refusal.empty())
      std::fprintf(stderr, "akl-mp3dec: %s: %s\n", files[0].c_str(), refusal.c_str());
    else if (st.unsupported_frames)
      std::fprintf(stderr, "akl-mp3dec: %s: %s streams are not supported (only MPEG-1 and MPEG-2 Layer III)\n",
                   files[0].c_str(), st.unsupported_kind.c_str());
    else
      std::fprintf(stderr, "akl-mp3dec: %s: no MPEG audio Layer III frames found\n", files[0].c_str());
    return 1;
  }
  if (!write_ok) {
    std::fprintf(stderr, "akl-mp3dec: error writing %s: %s\n", files[1].c_str(), std::strerror(errno));
    return 1;
  }
  if (!out.Commit()) return 1;
  if (!quiet) {
    if (st.unsupported_frames)
      std::fprintf(stderr, "akl-mp3dec: warning: dropped %ld %s frames (not supported)\n", st.unsupported_frames,
                   st.unsupported_kind.c_str());
    if (st.other_format_frames)
      std::fprintf(stderr, "akl-mp3dec: warning: dropped %ld frames whose sampling rate differs from %d Hz\n",
                   st.other_format_frames, st.sample_rate);
    const double seconds = static_cast<double>(st.samples_out) / st.sample_rate;
    aklcli::PrintSummary(stderr, "akl-mp3dec", st.frames, seconds, st.sample_rate,
                         st.channels == 1 ? "mono" : "stereo", st.damage.Damaged(), cpu > 0 ? cpu : wall);
    st.damage.Print(stderr, "akl-mp3dec", full_report);
  }
  if (!damage.empty()) {
    std::fprintf(stderr, "akl-mp3dec: %s: damaged MP4 file (%s); the audio before the damage was written\n",
                 files[0].c_str(), damage.c_str());
    return 1;
  }
  return 0;
}
