// ISO base media file reader; see bmff.hpp for the contract.
#include "mp4/bmff.hpp"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <map>

namespace mp4 {
namespace {

constexpr std::uint32_t Tag(const char (&s)[5]) {
  return (static_cast<std::uint32_t>(static_cast<unsigned char>(s[0])) << 24) |
         (static_cast<std::uint32_t>(static_cast<unsigned char>(s[1])) << 16) |
         (static_cast<std::uint32_t>(static_cast<unsigned char>(s[2])) << 8) |
         static_cast<std::uint32_t>(static_cast<unsigned char>(s[3]));
}

std::string TagName(std::uint32_t t) {
  std::string s;
  for (int i = 3; i >= 0; --i) {
    const char c = static_cast<char>((t >> (8 * i)) & 0xFF);
    s += (c >= 0x20 && c < 0x7F) ? c : '?';
  }
  return s;
}

// Big-endian fields of one box's payload, [pos, end).  A read past `end`
// returns 0 and clears ok(); callers test ok() before using what they read.
class Fields {
 public:
  Fields(const std::uint8_t* file, std::uint64_t begin, std::uint64_t end) : f_(file), pos_(begin), end_(end) {}
  std::uint64_t Get(int bytes) {
    if (!ok_ || end_ - pos_ < static_cast<std::uint64_t>(bytes)) {
      ok_ = false;
      return 0;
    }
    std::uint64_t v = 0;
    for (int i = 0; i < bytes; ++i) v = (v << 8) | f_[pos_ + static_cast<std::uint64_t>(i)];
    pos_ += static_cast<std::uint64_t>(bytes);
    return v;
  }
  std::uint32_t U8() { return static_cast<std::uint32_t>(Get(1)); }
  std::uint32_t U16() { return static_cast<std::uint32_t>(Get(2)); }
  std::uint32_t U24() { return static_cast<std::uint32_t>(Get(3)); }
  std::uint32_t U32() { return static_cast<std::uint32_t>(Get(4)); }
  std::uint64_t U64() { return Get(8); }
  void Skip(std::uint64_t n) {
    if (!ok_ || end_ - pos_ < n) {
      ok_ = false;
      return;
    }
    pos_ += n;
  }
  std::uint64_t pos() const { return pos_; }
  std::uint64_t left() const { return ok_ ? end_ - pos_ : 0; }
  bool ok() const { return ok_; }

 private:
  const std::uint8_t* f_;
  std::uint64_t pos_, end_;
  bool ok_ = true;
};

struct Box {
  std::uint32_t type = 0;
  std::uint64_t start = 0;  // header
  std::uint64_t body = 0;   // payload
  std::uint64_t end = 0;    // one past the box
};

// Defaults of a track's fragments (trex).
struct TrackDefaults {
  std::uint32_t duration = 0, size = 0;
};

class Parser {
 public:
  Parser(const std::uint8_t* data, std::size_t size, Movie* movie) : f_(data), size_(size), m_(movie) {}
  bool Run(std::string* error);

 private:
  // The box at `pos` inside a parent ending at `limit`.  At top level a box
  // running past the end of the file is cut there (`*cut` set); inside a
  // parent that is damage.
  bool ReadBox(std::uint64_t pos, std::uint64_t limit, bool top, Box* box, bool* cut);
  void Damage(const std::string& what) {
    m_->warnings.push_back(what);
    if (m_->damage.empty()) m_->damage = what;
  }
  bool Fail(const Box& b, const std::string& what) {
    if (error_.empty()) error_ = "box '" + TagName(b.type) + "' at offset " + std::to_string(b.start) + ": " + what;
    return false;
  }
  // Calls `fn(child)` for each child box of [begin, end); stops on damage.
  template <class Fn>
  bool Children(std::uint64_t begin, std::uint64_t end, Fn fn) {
    std::uint64_t pos = begin;
    while (pos < end) {
      // Some writers end a list of boxes with four zero bytes.
      if (end - pos < 8 && end - pos >= 4 && Fields(f_, pos, end).U32() == 0) return true;
      Box c;
      if (!ReadBox(pos, end, false, &c, nullptr)) return false;
      if (!fn(c)) return false;
      pos = c.end;
    }
    return true;
  }
  bool Moov(const Box& b);
  bool Trak(const Box& b);
  bool Elst(const Box& b, Track& t);
  bool Stbl(const Box& b, Track& t);
  bool Stsd(const Box& b, Track& t);
  bool AudioEntry(const Box& e, Track& t);
  bool Esds(const Box& b, Track& t);
  bool BuildSamples(Track& t);
  bool Meta(const Box& b);
  void ItunesComment(const Box& b);
  bool Moof(const Box& b, std::string* why);
  bool Traf(const Box& b, std::uint64_t moof_start, bool first_traf, std::uint64_t* data_end, std::string* why);
  bool AddSample(Track& t, std::uint64_t offset, std::uint64_t size);

  const std::uint8_t* f_;
  std::uint64_t size_;
  Movie* m_;
  std::string error_;
  std::map<std::uint32_t, TrackDefaults> trex_;
  bool truncated_samples_ = false;
  bool overlap_warned_ = false;
  // Sample tables of the track being read (offsets into the file; 0 = absent).
  struct Tables {
    Box stsz, stz2, stsc, stco, co64;
    bool have_stsz = false, have_stz2 = false, have_stsc = false, have_stco = false, have_co64 = false;
  } tab_;
};

bool Parser::ReadBox(std::uint64_t pos, std::uint64_t limit, bool top, Box* box, bool* cut) {
  Box b;
  b.start = pos;
  Fields h(f_, pos, std::min<std::uint64_t>(limit, size_));
  const std::uint64_t size32 = h.U32();
  b.type = h.U32();
  if (!h.ok()) {
    b.end = limit;
    return Fail(b, "box header cut short (" + std::to_string(limit - pos) + " bytes left)");
  }
  std::uint64_t size = size32;
  if (size32 == 1) {
    size = h.U64();
    if (!h.ok()) return Fail(b, "64-bit box size cut short");
  } else if (size32 == 0) {
    size = limit - pos;
  }
  if (b.type == Tag("uuid")) h.Skip(16);
  if (!h.ok()) return Fail(b, "box header cut short");
  b.body = h.pos();
  if (size < b.body - pos) return Fail(b, "size " + std::to_string(size) + " is smaller than its header");
  if (size > limit - pos) {
    if (!top) return Fail(b, "size " + std::to_string(size) + " runs past its parent (" + std::to_string(limit - pos) +
                             " bytes left)");
    if (cut) *cut = true;
    size = limit - pos;
  }
  b.end = pos + size;
  *box = b;
  return true;
}

bool Parser::Run(std::string* error) {
  std::vector<Box> moofs;
  bool have_moov = false;
  std::uint64_t pos = 0;
  while (pos < size_) {
    if (size_ - pos < 8) {
      if (Fields(f_, pos, size_).Get(static_cast<int>(size_ - pos)) != 0)
        m_->warnings.push_back(std::to_string(size_ - pos) + " stray bytes at the end of the file");
      break;
    }
    Box b;
    bool cut = false;
    if (!ReadBox(pos, size_, true, &b, &cut)) {
      if (have_moov) {  // damage after the movie box: keep what was found
        Damage(error_ + "; the rest of the file is ignored");
        error_.clear();
        break;
      }
      *error = error_;
      return false;
    }
    if (cut) {
      Damage("the file ends inside box '" + TagName(b.type) + "' (offset " + std::to_string(b.start) +
             "): it is truncated");
    }
    if (b.type == Tag("moov")) {
      if (have_moov) {
        m_->warnings.push_back("a second movie box (moov) is ignored");
      } else {
        if (cut) {
          *error = "the movie box (moov) is truncated";
          return false;
        }
        if (!Moov(b)) {
          *error = error_;
          return false;
        }
        have_moov = true;
      }
    } else if (b.type == Tag("moof")) {
      moofs.push_back(b);
    }
    pos = b.end;
  }
  if (!have_moov) {
    *error = "no movie box (moov): not a complete MP4 file";
    return false;
  }
  for (const Box& b : moofs) {
    std::string why;
    if (!Moof(b, &why)) {
      Damage("movie fragment at offset " + std::to_string(b.start) + ": " + why +
             "; it and the fragments after it are ignored");
      break;
    }
  }
  if (!moofs.empty()) m_->fragmented = true;
  if (truncated_samples_) {
    for (const Track& t : m_->tracks) {
      if (t.samples.size() < t.declared_samples) {
        Damage("track " + std::to_string(t.id) + ": " + std::to_string(t.samples.size()) + " of " +
               std::to_string(t.declared_samples) +
               " access units lie inside the file (it is truncated or its tables are damaged)");
      }
    }
  }
  return true;
}

bool Parser::Moov(const Box& moov) {
  return Children(moov.body, moov.end, [&](const Box& b) {
    if (b.type == Tag("mvhd")) {
      Fields r(f_, b.body, b.end);
      const std::uint32_t version = r.U8();
      r.Skip(3);
      r.Skip(version == 1 ? 16 : 8);
      m_->timescale = r.U32();
      if (!r.ok()) return Fail(b, "movie header cut short");
      return true;
    }
    if (b.type == Tag("trak")) return Trak(b);
    if (b.type == Tag("mvex")) {
      return Children(b.body, b.end, [&](const Box& c) {
        if (c.type != Tag("trex")) return true;
        Fields r(f_, c.body, c.end);
        r.Skip(4);
        const std::uint32_t id = r.U32();
        r.Skip(4);  // default sample description index
        TrackDefaults d;
        d.duration = r.U32();
        d.size = r.U32();
        if (!r.ok()) return Fail(c, "track extends box cut short");
        trex_[id] = d;
        return true;
      });
    }
    if (b.type == Tag("udta")) {
      return Children(b.body, b.end, [&](const Box& c) { return c.type == Tag("meta") ? Meta(c) : true; });
    }
    if (b.type == Tag("meta")) return Meta(b);
    return true;
  });
}

bool Parser::Trak(const Box& trak) {
  Track t;
  tab_ = Tables();
  const bool ok = Children(trak.body, trak.end, [&](const Box& b) {
    if (b.type == Tag("tkhd")) {
      Fields r(f_, b.body, b.end);
      const std::uint32_t version = r.U8();
      r.Skip(3);
      r.Skip(version == 1 ? 16 : 8);
      t.id = r.U32();
      if (!r.ok()) return Fail(b, "track header cut short");
      return true;
    }
    if (b.type == Tag("edts")) {
      return Children(b.body, b.end, [&](const Box& c) { return c.type == Tag("elst") ? Elst(c, t) : true; });
    }
    if (b.type != Tag("mdia")) return true;
    return Children(b.body, b.end, [&](const Box& c) {
      if (c.type == Tag("mdhd")) {
        Fields r(f_, c.body, c.end);
        const std::uint32_t version = r.U8();
        r.Skip(3);
        r.Skip(version == 1 ? 16 : 8);
        t.timescale = r.U32();
        if (!r.ok()) return Fail(c, "media header cut short");
        return true;
      }
      if (c.type == Tag("hdlr")) {
        Fields r(f_, c.body, c.end);
        r.Skip(8);
        const std::uint32_t h = r.U32();
        if (!r.ok()) return Fail(c, "handler box cut short");
        t.handler = TagName(h);
        return true;
      }
      if (c.type != Tag("minf")) return true;
      return Children(c.body, c.end, [&](const Box& d) { return d.type == Tag("stbl") ? Stbl(d, t) : true; });
    });
  });
  if (!ok) return false;
  if (!BuildSamples(t)) return false;
  m_->tracks.push_back(std::move(t));
  return true;
}

bool Parser::Elst(const Box& b, Track& t) {
  Fields r(f_, b.body, b.end);
  const std::uint32_t version = r.U8();
  r.Skip(3);
  const std::uint32_t count = r.U32();
  const std::uint64_t entry = version == 1 ? 20 : 12;
  if (!r.ok() || r.left() / entry < count) return Fail(b, "edit list of " + std::to_string(count) + " entries cut short");
  t.edit_count = static_cast<int>(std::min<std::uint32_t>(count, 1u << 30));
  for (std::uint32_t i = 0; i < count && !t.has_media_edit; ++i) {
    const std::uint64_t duration = version == 1 ? r.U64() : r.U32();
    const std::int64_t media_time = version == 1 ? static_cast<std::int64_t>(r.U64())
                                                 : static_cast<std::int64_t>(static_cast<std::int32_t>(r.U32()));
    r.Skip(4);  // media rate
    if (media_time == -1) {
      t.empty_edit_duration += duration;
    } else if (media_time >= 0) {
      t.has_media_edit = true;
      t.edit_media_time = media_time;
      t.edit_duration = duration;
    }
  }
  return true;
}

bool Parser::Stbl(const Box& stbl, Track& t) {
  return Children(stbl.body, stbl.end, [&](const Box& b) {
    switch (b.type) {
      case Tag("stsd"):
        return Stsd(b, t);
      case Tag("stts"): {
        Fields r(f_, b.body, b.end);
        r.Skip(4);
        const std::uint32_t count = r.U32();
        if (!r.ok() || r.left() / 8 < count) return Fail(b, "time-to-sample table of " + std::to_string(count) + " entries cut short");
        std::uint64_t total = 0;
        for (std::uint32_t i = 0; i < count; ++i) {
          const std::uint64_t n = r.U32();
          total += n * r.U32();  // at most 2^32 entries of 2^64: a sum, not an allocation; saturation is harmless
        }
        t.stts_duration = total;
        return true;
      }
      case Tag("stsz"): tab_.stsz = b; tab_.have_stsz = true; return true;
      case Tag("stz2"): tab_.stz2 = b; tab_.have_stz2 = true; return true;
      case Tag("stsc"): tab_.stsc = b; tab_.have_stsc = true; return true;
      case Tag("stco"): tab_.stco = b; tab_.have_stco = true; return true;
      case Tag("co64"): tab_.co64 = b; tab_.have_co64 = true; return true;
      default: return true;
    }
  });
}

bool Parser::Stsd(const Box& b, Track& t) {
  Fields r(f_, b.body, b.end);
  r.Skip(4);
  const std::uint32_t count = r.U32();
  if (!r.ok()) return Fail(b, "sample description box cut short");
  if (count == 0) return true;
  Box e;
  if (!ReadBox(r.pos(), b.end, false, &e, nullptr)) return false;
  t.format = TagName(e.type);
  if (e.type == Tag("mp4a") || e.type == Tag(".mp3") || e.type == Tag("mp3 ")) return AudioEntry(e, t);
  return true;
}

bool Parser::AudioEntry(const Box& e, Track& t) {
  Fields r(f_, e.body, e.end);
  r.Skip(8);  // reserved, data reference index
  const std::uint32_t version = r.U16();
  r.Skip(6);  // revision, vendor
  t.channels = static_cast<int>(r.U16());
  r.Skip(6);  // sample size, compression id, packet size
  t.entry_sample_rate = r.U32() >> 16;
  if (version == 1) r.Skip(16);
  if (version == 2) r.Skip(36);
  if (!r.ok()) return Fail(e, "audio sample entry cut short");
  if (e.type != Tag("mp4a")) t.codec = Codec::kMp3;
  bool found = false;
  const auto esds = [&](const Box& c) {
    if (c.type != Tag("esds") || found) return true;
    found = true;
    return Esds(c, t);
  };
  // QuickTime files put the esds one level down, inside a 'wave' box.
  return Children(r.pos(), e.end, [&](const Box& c) {
    return c.type == Tag("wave") ? Children(c.body, c.end, esds) : esds(c);
  });
}

// An MPEG-4 descriptor header inside [r.pos, r.end): tag and a length of up
// to four 7-bit groups; the body must fit in what is left.
bool ReadDescriptor(Fields& r, std::uint32_t* tag, std::uint64_t* length) {
  *tag = r.U8();
  std::uint64_t len = 0;
  for (int i = 0; i < 4; ++i) {
    const std::uint32_t c = r.U8();
    len = (len << 7) | (c & 0x7F);
    if (!(c & 0x80)) break;
  }
  *length = len;
  return r.ok() && len <= r.left();
}

bool Parser::Esds(const Box& b, Track& t) {
  Fields r(f_, b.body, b.end);
  r.Skip(4);
  std::uint32_t tag;
  std::uint64_t len;
  if (!ReadDescriptor(r, &tag, &len) || tag != 3) return Fail(b, "no elementary stream descriptor");
  Fields es(f_, r.pos(), r.pos() + len);
  es.Skip(2);
  const std::uint32_t flags = es.U8();
  if (flags & 0x80) es.Skip(2);
  if (flags & 0x40) es.Skip(es.U8());
  if (flags & 0x20) es.Skip(2);
  while (es.ok() && es.left() > 0) {
    if (!ReadDescriptor(es, &tag, &len)) return Fail(b, "elementary stream descriptor damaged");
    if (tag != 4) {
      es.Skip(len);
      continue;
    }
    Fields dc(f_, es.pos(), es.pos() + len);
    t.object_type_indication = static_cast<int>(dc.U8());
    dc.Skip(12);  // stream type, buffer size, bit rates
    if (!dc.ok()) return Fail(b, "decoder configuration descriptor cut short");
    const int oti = t.object_type_indication;
    if (oti == 0x40 || oti == 0x66 || oti == 0x67 || oti == 0x68) t.codec = Codec::kAac;
    else if (oti == 0x69 || oti == 0x6B) t.codec = Codec::kMp3;
    else t.codec = Codec::kOther;
    while (dc.ok() && dc.left() > 0) {
      if (!ReadDescriptor(dc, &tag, &len)) return Fail(b, "decoder configuration descriptor damaged");
      if (tag == 5) {
        t.decoder_config.assign(f_ + dc.pos(), f_ + dc.pos() + len);
        return true;
      }
      dc.Skip(len);
    }
    return true;
  }
  if (!es.ok()) return Fail(b, "elementary stream descriptor cut short");
  return true;
}

bool Parser::AddSample(Track& t, std::uint64_t offset, std::uint64_t size) {
  if (offset > size_ || size > size_ - offset || size > 0xFFFFFFFFu) {
    truncated_samples_ = true;
    return false;
  }
  if (size > size_ - t.sample_bytes) {
    if (!overlap_warned_) Damage("track " + std::to_string(t.id) + ": its access units overlap; the rest are ignored");
    overlap_warned_ = true;
    return false;
  }
  t.sample_bytes += size;
  t.samples.push_back({offset, static_cast<std::uint32_t>(size)});
  return true;
}

bool Parser::BuildSamples(Track& t) {
  if (!tab_.have_stsz && !tab_.have_stz2) return true;  // no tables (fragmented, or not a media track)
  // Sizes: constant, or 32-bit entries (stsz), or 4/8/16-bit entries (stz2).
  const Box& sz = tab_.have_stsz ? tab_.stsz : tab_.stz2;
  Fields r(f_, sz.body, sz.end);
  r.Skip(4);
  std::uint32_t constant = 0, field_bits = 32;
  if (tab_.have_stsz) {
    constant = r.U32();
  } else {
    r.Skip(3);
    field_bits = r.U8();
    if (field_bits != 4 && field_bits != 8 && field_bits != 16) return Fail(sz, "field size " + std::to_string(field_bits));
  }
  const std::uint64_t count = r.U32();
  if (!r.ok()) return Fail(sz, "sample size box cut short");
  if (constant == 0 && (count * field_bits + 7) / 8 > r.left())
    return Fail(sz, std::to_string(count) + " sample sizes do not fit in the box");
  if (constant != 0 && count > size_ / constant)
    return Fail(sz, std::to_string(count) + " samples of " + std::to_string(constant) + " bytes exceed the file");
  const std::uint64_t sizes_at = r.pos();
  const auto size_of = [&](std::uint64_t i) -> std::uint64_t {
    if (constant) return constant;
    const std::uint64_t bit = i * field_bits;
    Fields s(f_, sizes_at + bit / 8, sz.end);
    const std::uint64_t v = s.Get(static_cast<int>((field_bits + 7) / 8));
    return field_bits == 4 ? ((bit % 8) ? v & 0xF : v >> 4) : v;
  };
  t.declared_samples = count;
  if (count == 0) return true;
  if (!tab_.have_stsc || !(tab_.have_stco || tab_.have_co64)) {
    m_->warnings.push_back("track " + std::to_string(t.id) + ": no chunk tables; its samples cannot be located");
    return true;
  }
  const Box& co = tab_.have_stco ? tab_.stco : tab_.co64;
  const std::uint64_t off_bytes = tab_.have_stco ? 4 : 8;
  Fields cr(f_, co.body, co.end);
  cr.Skip(4);
  const std::uint64_t chunks = cr.U32();
  if (!cr.ok() || chunks > cr.left() / off_bytes) return Fail(co, std::to_string(chunks) + " chunk offsets do not fit in the box");
  Fields sc(f_, tab_.stsc.body, tab_.stsc.end);
  sc.Skip(4);
  const std::uint64_t runs = sc.U32();
  if (!sc.ok() || runs > sc.left() / 12) return Fail(tab_.stsc, std::to_string(runs) + " sample-to-chunk entries do not fit in the box");
  t.samples.reserve(count);
  std::uint64_t sample = 0;
  std::uint64_t run = 0, run_first = 0, run_spc = 0, next_first = 0;
  const auto next_run = [&]() {
    run_first = sc.U32();
    run_spc = sc.U32();
    sc.Skip(4);
    ++run;
    next_first = 0;
    if (run < runs) {
      Fields peek(f_, sc.pos(), tab_.stsc.end);
      next_first = peek.U32();
    }
  };
  if (runs == 0) return Fail(tab_.stsc, "no entries for " + std::to_string(count) + " samples");
  next_run();
  if (run_first != 1) return Fail(tab_.stsc, "the first entry starts at chunk " + std::to_string(run_first));
  for (std::uint64_t chunk = 1; chunk <= chunks && sample < count; ++chunk) {
    while (next_first != 0 && chunk >= next_first) {
      if (next_first <= run_first) return Fail(tab_.stsc, "chunk numbers do not increase");
      next_run();
    }
    std::uint64_t offset = cr.Get(static_cast<int>(off_bytes));
    for (std::uint64_t j = 0; j < run_spc && sample < count; ++j, ++sample) {
      const std::uint64_t n = size_of(sample);
      if (!AddSample(t, offset, n)) return true;
      offset += n;
    }
  }
  if (sample < count) truncated_samples_ = true;
  return true;
}

bool Parser::Meta(const Box& b) {
  // ISO meta boxes carry a version and flags; QuickTime's start with a child box.
  std::uint64_t begin = b.body;
  if (b.end - b.body >= 8 && Fields(f_, b.body + 4, b.end).U32() != Tag("hdlr")) begin += 4;
  if (begin > b.end) return Fail(b, "cut short");
  return Children(begin, b.end, [&](const Box& c) {
    if (c.type != Tag("ilst")) return true;
    return Children(c.body, c.end, [&](const Box& d) {
      if (d.type == Tag("----")) ItunesComment(d);
      return true;
    });
  });
}

// A freeform item: mean, name and data children.  Damage inside it only
// loses the item.
void Parser::ItunesComment(const Box& item) {
  std::string name, value;
  Children(item.body, item.end, [&](const Box& c) {
    const std::uint64_t skip = c.type == Tag("data") ? 8 : 4;
    if (c.end - c.body < skip) return true;
    std::string s(reinterpret_cast<const char*>(f_ + c.body + skip), static_cast<std::size_t>(c.end - c.body - skip));
    if (c.type == Tag("name")) name = s;
    if (c.type == Tag("data")) value = s;
    return true;
  });
  error_.clear();
  if (name != "iTunSMPB") return;
  // Hexadecimal words: 0, priming, padding, original length, ...
  unsigned long long w[4] = {0, 0, 0, 0};
  int n = 0;
  std::size_t i = 0;
  while (n < 4 && i < value.size()) {
    while (i < value.size() && value[i] == ' ') ++i;
    std::size_t j = i;
    unsigned long long v = 0;
    while (j < value.size() && j - i < 16 && std::isxdigit(static_cast<unsigned char>(value[j]))) {
      const char ch = value[j];
      v = v * 16 + static_cast<unsigned>(ch <= '9' ? ch - '0' : (ch | 0x20) - 'a' + 10);
      ++j;
    }
    if (j == i) break;
    w[n++] = v;
    i = j;
  }
  if (n < 4 || w[1] > 0xFFFFFFFFu || w[2] > 0xFFFFFFFFu) {
    m_->warnings.push_back("unreadable iTunSMPB comment ignored");
    return;
  }
  m_->has_itunsmpb = true;
  m_->itunsmpb_delay = static_cast<std::uint32_t>(w[1]);
  m_->itunsmpb_padding = static_cast<std::uint32_t>(w[2]);
  m_->itunsmpb_length = w[3];
}

bool Parser::Moof(const Box& moof, std::string* why) {
  std::uint64_t data_end = moof.start;
  bool first = true;
  const bool ok = Children(moof.body, moof.end, [&](const Box& b) {
    if (b.type != Tag("traf")) return true;
    const bool r = Traf(b, moof.start, first, &data_end, why);
    first = false;
    return r;
  });
  if (!ok && why->empty()) *why = error_;
  error_.clear();
  return ok;
}

bool Parser::Traf(const Box& traf, std::uint64_t moof_start, bool first_traf, std::uint64_t* data_end, std::string* why) {
  Track* t = nullptr;
  TrackDefaults d;
  std::uint64_t base = 0;
  bool have_tfhd = false;
  return Children(traf.body, traf.end, [&](const Box& b) {
    if (b.type == Tag("tfhd")) {
      Fields r(f_, b.body, b.end);
      const std::uint32_t flags = r.U32() & 0xFFFFFF;
      const std::uint32_t id = r.U32();
      for (Track& c : m_->tracks)
        if (c.id == id) t = &c;
      if (trex_.count(id)) d = trex_[id];
      base = (flags & 0x020000) || first_traf ? moof_start : *data_end;
      if (flags & 0x1) base = r.U64();
      if (flags & 0x2) r.Skip(4);
      if (flags & 0x8) d.duration = r.U32();
      if (flags & 0x10) d.size = r.U32();
      if (!r.ok()) return Fail(b, "fragment header cut short");
      *data_end = base;
      have_tfhd = true;
      return true;
    }
    if (b.type != Tag("trun")) return true;
    if (!have_tfhd) return Fail(b, "track run before its fragment header");
    Fields r(f_, b.body, b.end);
    const std::uint32_t flags = r.U32() & 0xFFFFFF;
    const std::uint64_t count = r.U32();
    std::uint64_t pos = *data_end;
    if (flags & 0x1) {
      const auto delta = static_cast<std::int32_t>(r.U32());
      if (delta < 0 && static_cast<std::uint64_t>(-static_cast<std::int64_t>(delta)) > base) return Fail(b, "data offset before the file");
      pos = base + static_cast<std::uint64_t>(static_cast<std::int64_t>(delta));
    }
    if (flags & 0x4) r.Skip(4);
    const std::uint64_t per = 4 * ((flags >> 8 & 1) + (flags >> 9 & 1) + (flags >> 10 & 1) + (flags >> 11 & 1));
    if (!r.ok()) return Fail(b, "track run cut short");
    if (per ? count > r.left() / per : count > size_) return Fail(b, std::to_string(count) + " samples do not fit");
    if (!t) return true;  // a track this file does not describe: skip its run
    if (t->declared_samples + count > size_) return Fail(b, "more samples than the file has bytes");
    t->declared_samples += count;
    t->samples.reserve(t->samples.size() + count);
    for (std::uint64_t i = 0; i < count; ++i) {
      if (flags & 0x100) r.Skip(4);
      const std::uint64_t n = (flags & 0x200) ? r.U32() : d.size;
      if (flags & 0x400) r.Skip(4);
      if (flags & 0x800) r.Skip(4);
      if (!AddSample(*t, pos, n)) {
        *why = overlap_warned_ ? "its access units overlap earlier ones" : "its data lies outside the file";
        return false;
      }
      pos += n;
    }
    *data_end = pos;
    return true;
  });
}

}  // namespace

bool LooksLikeIsoBmff(const std::uint8_t* data, std::size_t size) {
  if (!data || size < 8) return false;
  Fields r(data, 0, size);
  const std::uint32_t box_size = r.U32();
  const std::uint32_t type = r.U32();
  if (box_size != 0 && box_size != 1 && box_size < 8) return false;
  switch (type) {
    case Tag("ftyp"): case Tag("moov"): case Tag("mdat"): case Tag("free"): case Tag("skip"):
    case Tag("wide"): case Tag("pnot"): case Tag("styp"): case Tag("moof"): case Tag("sidx"):
      return true;
    default:
      return false;
  }
}

bool ReadMovie(const std::uint8_t* data, std::size_t size, Movie* movie, std::string* error) {
  *movie = Movie();
  if (!data) size = 0;
  Parser p(data, size, movie);
  return p.Run(error);
}

int SelectAudioTrack(const Movie& movie, Codec want, std::string* note, std::string* error) {
  int chosen = -1, audio = 0;
  std::string first_other;
  for (std::size_t i = 0; i < movie.tracks.size(); ++i) {
    const Track& t = movie.tracks[i];
    if (t.handler != "soun") continue;
    ++audio;
    if (chosen < 0 && t.codec == want) {
      chosen = static_cast<int>(i);
    } else if (first_other.empty() && chosen < 0) {
      char oti[32] = "";
      if (t.object_type_indication) std::snprintf(oti, sizeof oti, ", object type 0x%02X", t.object_type_indication);
      first_other = t.codec == Codec::kAac   ? std::string("AAC")
                    : t.codec == Codec::kMp3 ? std::string("MPEG audio (Layer I-III)")
                                             : "'" + t.format + "'" + oti;
    }
  }
  note->clear();
  if (chosen < 0) {
    if (audio == 0) *error = "no audio track";
    else *error = "no " + std::string(want == Codec::kAac ? "AAC" : "MPEG audio") + " track (the audio is " + first_other + ")";
    return -1;
  }
  if (audio > 1) {
    *note = "the file has " + std::to_string(audio) + " audio tracks; decoding track " +
            std::to_string(movie.tracks[static_cast<std::size_t>(chosen)].id) + ", the first " +
            (want == Codec::kAac ? "AAC" : "MPEG audio") + " one";
  }
  return chosen;
}

namespace {
// value * num / den, rounded to nearest, without overflow (0 if den is 0).
std::uint64_t Scale(std::uint64_t value, std::uint64_t num, std::uint64_t den) {
  if (den == 0) return 0;
  const unsigned __int128 v = (static_cast<unsigned __int128>(value) * num + den / 2) / den;
  return v > ~std::uint64_t{0} ? ~std::uint64_t{0} : static_cast<std::uint64_t>(v);
}
}  // namespace

Trim GaplessTrim(const Movie& movie, const Track& track, std::uint32_t output_rate, std::uint32_t stream_rate) {
  Trim trim;
  if (track.has_media_edit && track.timescale != 0) {
    trim.source = "edit list";
    trim.skip = Scale(static_cast<std::uint64_t>(track.edit_media_time), output_rate, track.timescale);
    if (track.edit_duration != 0 && movie.timescale != 0) {
      trim.limited = true;
      trim.keep = Scale(track.edit_duration, output_rate, movie.timescale);
    }
  } else if (movie.has_itunsmpb && (stream_rate != 0 || track.timescale != 0)) {
    const std::uint32_t unit = stream_rate != 0 ? stream_rate : track.timescale;
    trim.source = "iTunSMPB";
    trim.skip = Scale(movie.itunsmpb_delay, output_rate, unit);
    if (movie.itunsmpb_length != 0) {
      trim.limited = true;
      trim.keep = Scale(movie.itunsmpb_length, output_rate, unit);
    }
  }
  return trim;
}

}  // namespace mp4
