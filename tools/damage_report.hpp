// The damage report of the decoder programs: everything the frame loop had
// to leave out or patch up, counted by kind, and the summary lines that
// print it.
//
// Three tallies:
//   skipped bytes    input bytes that belong to no decoded frame and no
//                    recognised tag (junk before, between or after frames, a
//                    truncated last frame); each call is one skipped region
//   concealed frames frames that are in the output, but as concealment
//                    (silence through the filter banks) instead of their audio
//   dropped frames   frames that were found but are not in the output at all
//                    (another sampling rate, an unsupported layer)
// Every kind is a short phrase that reads after its count ("12 between
// frames", "3 CRC mismatch", "59 at another sampling rate").  Kinds print in
// the order they were declared or first counted, so a program that declares
// its kinds up front gets a fixed layout.
//
// Summary format (standard error, one line each, after the program's name):
//   F frames, S s, R Hz LAYOUT, D damaged, X real time
//   skipped N bytes: n1 KIND1, n2 KIND2, ...
//   concealed N frames: ...
//   dropped N frames: ...
// D is the number of damage events: concealed frames plus skipped regions.
// A tally line appears only when its total is not zero, unless the full
// report is asked for (then all three appear, with every declared kind).
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace aklcli {

enum class Tally { kSkippedBytes, kConcealedFrames, kDroppedFrames };

class DamageReport {
 public:
  // Makes `kind` known (count 0) so that a full report lists it in this order.
  void Declare(Tally tally, const char* kind) { Find(tally, kind); }

  // One skipped region of `bytes` bytes (nothing for 0 bytes).
  void Skip(const char* kind, std::uint64_t bytes) {
    if (!bytes) return;
    Entry& e = Find(Tally::kSkippedBytes, kind);
    e.count += bytes;
    ++e.events;
  }
  void Conceal(const char* kind, std::uint64_t frames = 1) { Add(Tally::kConcealedFrames, kind, frames); }
  void Drop(const char* kind, std::uint64_t frames = 1) { Add(Tally::kDroppedFrames, kind, frames); }

  // Count of one kind (0 if never counted).
  std::uint64_t Count(Tally tally, const std::string& kind) const {
    for (const Entry& e : entries_)
      if (e.tally == tally && e.kind == kind) return e.count;
    return 0;
  }
  std::uint64_t Total(Tally tally) const {
    std::uint64_t n = 0;
    for (const Entry& e : entries_)
      if (e.tally == tally) n += e.count;
    return n;
  }
  std::uint64_t SkippedRegions() const {
    std::uint64_t n = 0;
    for (const Entry& e : entries_)
      if (e.tally == Tally::kSkippedBytes) n += e.events;
    return n;
  }
  // Damage events: concealed frames and skipped regions.
  std::uint64_t Damaged() const { return Total(Tally::kConcealedFrames) + SkippedRegions(); }

  // The tally lines without the program prefix; `full` prints every tally
  // and every declared kind, zeros included.
  std::vector<std::string> Lines(bool full = false) const {
    std::vector<std::string> out;
    static const char* const kHead[3][2] = {{"skipped", "bytes"}, {"concealed", "frames"}, {"dropped", "frames"}};
    for (int t = 0; t < 3; ++t) {
      const Tally tally = static_cast<Tally>(t);
      const std::uint64_t total = Total(tally);
      if (!total && !full) continue;
      std::string line = std::string(kHead[t][0]) + " " + std::to_string(total) + " " + kHead[t][1];
      const char* sep = ": ";
      for (const Entry& e : entries_) {
        if (e.tally != tally || (!e.count && !full)) continue;
        line += sep + std::to_string(e.count) + " " + e.kind;
        sep = ", ";
      }
      out.push_back(line);
    }
    return out;
  }
  void Print(std::FILE* f, const char* program, bool full = false) const {
    for (const std::string& l : Lines(full)) std::fprintf(f, "%s: %s\n", program, l.c_str());
  }

 private:
  struct Entry {
    Tally tally;
    std::string kind;
    std::uint64_t count = 0;
    std::uint64_t events = 0;
  };
  Entry& Find(Tally tally, const char* kind) {
    for (Entry& e : entries_)
      if (e.tally == tally && e.kind == kind) return e;
    entries_.push_back(Entry{tally, kind});
    return entries_.back();
  }
  void Add(Tally tally, const char* kind, std::uint64_t n) {
    Entry& e = Find(tally, kind);
    e.count += n;
    e.events += n;
  }
  std::vector<Entry> entries_;
};

// The first summary line: "F frames, S s, R Hz LAYOUT, D damaged, X real
// time" (X from the decoding time `cpu_seconds`; 0 when it is not known).
inline void PrintSummary(std::FILE* f, const char* program, long frames, double seconds, int sample_rate,
                         const std::string& layout, std::uint64_t damaged, double cpu_seconds) {
  std::fprintf(f, "%s: %ld frames, %.2f s, %d Hz %s, %llu damaged, %.0fx real time\n", program, frames, seconds,
               sample_rate, layout.c_str(), static_cast<unsigned long long>(damaged),
               cpu_seconds > 0 ? seconds / cpu_seconds : 0.0);
}

}  // namespace aklcli
