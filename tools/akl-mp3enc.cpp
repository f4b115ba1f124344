// akl-mp3enc: encodes a WAV file to MPEG-1/2 Layer III with the aklac
// library; see --help.
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "mp3enc/encoder.hpp"
#include "mp3enc/wav_reader.hpp"

namespace {

const char kUsage[] =
    "usage: akl-mp3enc [options] INPUT OUTPUT\n"
    "\n"
    "Encodes a WAV file (16- or 24-bit PCM or 32-bit float, mono or stereo, at\n"
    "32, 44.1 or 48 kHz for MPEG-1 or 16, 22.05 or 24 kHz for MPEG-2) to an MPEG\n"
    "Layer III stream.  INPUT or OUTPUT may be '-' for standard input or output.\n"
    "\n"
    "options:\n"
    "  -b KBPS        constant bit rate (default 128; MPEG-1 32..320, MPEG-2 8..160)\n"
    "  --abr KBPS     average bit rate: frame sizes vary, the mean follows KBPS\n"
    "  -V N           variable bit rate by quality, N from 0 (best) to 9\n"
    "  -m MODE        s stereo, j joint stereo (mid/side when it pays; default),\n"
    "                 m mono (a stereo input is down-mixed)\n"
    "  --crc          protect every frame with a CRC word\n"
    "  --lowpass HZ   cut-off frequency (default: chosen from the bit rate or\n"
    "                 quality; 0 keeps the whole band)\n"
    "  --tt TEXT      ID3v2 title\n"
    "  --ta TEXT      ID3v2 artist\n"
    "  --tl TEXT      ID3v2 album\n"
    "  -q, --quiet    print nothing but errors\n"
    "  -h, --help     show this text\n"
    "  --version      show the program and library versions\n"
    "\n"
    "The first frame is a Xing/Info frame with the frame and byte counts, a seek\n"
    "table and the encoder delay and padding, so that gapless decoders return\n"
    "exactly the input's samples (it is left out when OUTPUT cannot be rewound,\n"
    "as with a pipe).  A truncated WAV file is encoded as far as it goes.\n";

void Append32Syncsafe(std::vector<std::uint8_t>& b, std::uint32_t v) {
  for (int i = 3; i >= 0; --i) b.push_back(static_cast<std::uint8_t>((v >> (7 * i)) & 0x7F));
}

// An ID3v2.4 tag with UTF-8 text frames.
std::vector<std::uint8_t> Id3v2(const std::string& title, const std::string& artist, const std::string& album) {
  std::vector<std::uint8_t> frames;
  auto add = [&frames](const char* id, const std::string& text) {
    if (text.empty()) return;
    frames.insert(frames.end(), id, id + 4);
    Append32Syncsafe(frames, static_cast<std::uint32_t>(text.size() + 1));
    frames.push_back(0);
    frames.push_back(0);
    frames.push_back(3);  // UTF-8
    frames.insert(frames.end(), text.begin(), text.end());
  };
  add("TIT2", title);
  add("TPE1", artist);
  add("TALB", album);
  if (frames.empty()) return {};
  std::vector<std::uint8_t> tag = {'I', 'D', '3', 4, 0, 0};
  Append32Syncsafe(tag, static_cast<std::uint32_t>(frames.size()));
  tag.insert(tag.end(), frames.begin(), frames.end());
  return tag;
}

bool ParseInt(const char* s, int lo, int hi, int* out) {
  char* end = nullptr;
  const long v = std::strtol(s, &end, 10);
  if (!*s || *end || v < lo || v > hi) return false;
  *out = static_cast<int>(v);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  const char* prog = "akl-mp3enc";
  aklenc::EncoderConfig cfg;
  bool quiet = false, have_rate = false;
  std::string title, artist, album, in_path, out_path;
  std::vector<std::string> pos;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    auto value = [&](const char* what) -> const char* {
      if (i + 1 >= argc) {
        std::fprintf(stderr, "%s: %s needs a value\n", prog, what);
        std::exit(2);
      }
      return argv[++i];
    };
    auto bad = [&](const char* what, const char* v) {
      std::fprintf(stderr, "%s: bad value for %s: %s\n", prog, what, v);
      std::exit(2);
    };
    if (a == "-h" || a == "--help") {
      std::fputs(kUsage, stdout);
      return 0;
    } else if (a == "--version") {
      const AklLibraryVersion* v = aklacGetLibVersion();
      std::printf("akl-mp3enc 1.0 (%s %s)\n", v->Name, v->Version);
      return 0;
    } else if (a == "-b") {
      const char* v = value("-b");
      if (!ParseInt(v, 8, 320, &cfg.kbps)) bad("-b", v);
      cfg.rc = aklenc::RateControl::kCbr;
      have_rate = true;
    } else if (a == "--abr") {
      const char* v = value("--abr");
      if (!ParseInt(v, 8, 320, &cfg.kbps)) bad("--abr", v);
      cfg.rc = aklenc::RateControl::kAbr;
      have_rate = true;
    } else if (a == "-V") {
      const char* v = value("-V");
      if (!ParseInt(v, 0, 9, &cfg.vbr_quality)) bad("-V", v);
      cfg.rc = aklenc::RateControl::kVbr;
      have_rate = true;
    } else if (a == "-m") {
      const char* v = value("-m");
      if (std::strlen(v) != 1 || !std::strchr("sjm", v[0])) bad("-m", v);
      cfg.mode = v[0];
    } else if (a == "--crc") {
      cfg.crc = true;
    } else if (a == "--lowpass") {
      const char* v = value("--lowpass");
      if (!ParseInt(v, 0, 24000, &cfg.lowpass_hz)) bad("--lowpass", v);
    } else if (a == "--tt") {
      title = value("--tt");
    } else if (a == "--ta") {
      artist = value("--ta");
    } else if (a == "--tl") {
      album = value("--tl");
    } else if (a == "-q" || a == "--quiet") {
      quiet = true;
    } else if (a.size() > 1 && a[0] == '-') {
      std::fprintf(stderr, "%s: unknown option %s (see --help)\n", prog, a.c_str());
      return 2;
    } else {
      pos.push_back(a);
    }
  }
  (void)have_rate;
  if (pos.size() != 2) {
    std::fprintf(stderr, "%s: expected INPUT and OUTPUT (see --help)\n", prog);
    return 2;
  }
  in_path = pos[0];
  out_path = pos[1];

  std::FILE* in = in_path == "-" ? stdin : std::fopen(in_path.c_str(), "rb");
  if (!in) {
    std::fprintf(stderr, "%s: cannot open %s: %s\n", prog, in_path.c_str(), std::strerror(errno));
    return 1;
  }
  aklenc::WavReader wav;
  std::string err;
  if (!wav.Open(in, &err)) {
    std::fprintf(stderr, "%s: %s: %s\n", prog, in_path.c_str(), err.c_str());
    return 1;
  }
  cfg.rate = wav.rate();
  cfg.in_channels = wav.channels();
  if (wav.channels() == 1) cfg.mode = 'm';

  // Pre-read a block so that an empty input is refused before any output.
  std::vector<float> block(4608 * 2);
  int got = wav.Read(block.data(), 4608);
  if (got == 0) {
    std::fprintf(stderr, "%s: %s: no audio samples\n", prog, in_path.c_str());
    return 1;
  }

  std::FILE* out = out_path == "-" ? stdout : std::fopen(out_path.c_str(), "wb+");
  if (!out) {
    std::fprintf(stderr, "%s: cannot create %s: %s\n", prog, out_path.c_str(), std::strerror(errno));
    return 1;
  }
  struct stat st {};
  const bool seekable = fstat(fileno(out), &st) == 0 && S_ISREG(st.st_mode) && std::ftell(out) >= 0;
  cfg.info_frame = seekable;

  aklenc::Encoder enc;
  if (!enc.Init(cfg, &err)) {
    std::fprintf(stderr, "%s: %s: %s\n", prog, in_path.c_str(), err.c_str());
    if (out != stdout) {
      std::fclose(out);
      std::remove(out_path.c_str());
    }
    return 1;
  }
  bool write_failed = false;
  const std::vector<std::uint8_t> tag = Id3v2(title, artist, album);
  if (!tag.empty() && std::fwrite(tag.data(), 1, tag.size(), out) != tag.size()) write_failed = true;
  const long info_at = seekable ? std::ftell(out) : -1;
  enc.SetSink([&](const std::uint8_t* p, std::size_t n) {
    if (std::fwrite(p, 1, n, out) != n) write_failed = true;
  });

  const bool progress = !quiet && isatty(STDERR_FILENO);
  const auto t0 = std::chrono::steady_clock::now();
  const std::clock_t c0 = std::clock();
  auto last = t0;
  while (got > 0) {
    enc.Encode(block.data(), got);
    if (progress) {
      const auto now = std::chrono::steady_clock::now();
      if (now - last > std::chrono::milliseconds(500)) {
        last = now;
        const double done = static_cast<double>(wav.frames_read()) / cfg.rate;
        if (wav.declared_frames() > 0)
          std::fprintf(stderr, "\r%s: %.1f s (%d%%)", prog, done,
                       static_cast<int>(100.0 * wav.frames_read() / static_cast<double>(wav.declared_frames())));
        else
          std::fprintf(stderr, "\r%s: %.1f s", prog, done);
      }
    }
    if (write_failed) break;
    got = wav.Read(block.data(), 4608);
  }
  enc.Finish();
  if (seekable && info_at >= 0 && !write_failed) {
    const std::vector<std::uint8_t> info = enc.InfoFrame();
    if (std::fseek(out, info_at, SEEK_SET) != 0 || std::fwrite(info.data(), 1, info.size(), out) != info.size())
      write_failed = true;
  }
  if (std::fflush(out) != 0) write_failed = true;
  if (out != stdout && std::fclose(out) != 0) write_failed = true;
  if (in != stdin) std::fclose(in);
  if (progress) std::fprintf(stderr, "\r\033[K");
  if (write_failed) {
    std::fprintf(stderr, "%s: cannot write %s\n", prog, out_path.c_str());
    return 1;
  }
  if (wav.truncated())
    std::fprintf(stderr, "%s: %s: the file ends before its header says; encoded the %lld frames that are there\n",
                 prog, in_path.c_str(), static_cast<long long>(wav.frames_read()));
  if (!quiet) {
    const double secs = static_cast<double>(enc.samples_in()) / cfg.rate;
    const double cpu = static_cast<double>(std::clock() - c0) / CLOCKS_PER_SEC;
    std::fprintf(stderr, "%s: %.2f s of audio, %lld frames, %.1f kbit/s, %lld bytes, lowpass %d Hz, %.1fx real time\n",
                 prog, secs, static_cast<long long>(enc.frames()), enc.average_kbps(),
                 static_cast<long long>(enc.bytes()), enc.lowpass_hz(), cpu > 0 ? secs / cpu : 0.0);
  }
  return 0;
}
