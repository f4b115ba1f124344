// The AAC spectral tools on arbitrary spectra and side information: leading
// bytes choose the window length, grouping, band limit and sampling index;
// the rest fills the spectra, codebooks, scale factors and TNS fields.  Only
// the statuses may vary; nothing may read or write outside the buffers.
#include <cstdint>
#include <cstring>
#include <vector>

#include "aklac.h"
#include "fuzz_util.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  akl::fuzz::Params p(data, size);
  const Akl32s win_len = (p.Byte() & 1) ? 128 : 1024;
  const Akl32s groups = win_len == 128 ? p.Int(1, 8) : 1;
  Akl32s group_len[8];
  for (auto& g : group_len) g = p.Int(1, 3);
  const Akl32s max_sfb = p.Int(0, 51);
  const Akl32s sfi = p.Int(0, 11);
  const Akl32s ms_mask = p.Int(0, 2);
  Akl32s seed = p.Int(0, 65535);

  std::vector<Akl32s> l(1024), r(1024), tmp(1024);
  std::vector<Akl16s> sf_l(8 * 64), sf_r(8 * 64);
  std::vector<Akl8u> cb_l(8 * 64), cb_r(8 * 64), ms_used(8 * 60);
  std::vector<Akl8s> tns_coef(64);
  Akl32s nfilt[8], length[8], order[8], coef_res[8], direction[8], ltp_l[41] = {}, ltp_r[41] = {};
  for (int i = 0; i < 1024; ++i) {
    l[static_cast<std::size_t>(i)] = p.Int(-9000, 9000);
    r[static_cast<std::size_t>(i)] = p.Int(-9000, 9000);
  }
  for (int i = 0; i < 8 * 64; ++i) {
    cb_l[static_cast<std::size_t>(i)] = static_cast<Akl8u>(p.Int(0, 15));
    cb_r[static_cast<std::size_t>(i)] = static_cast<Akl8u>(p.Int(0, 15));
    sf_l[static_cast<std::size_t>(i)] = static_cast<Akl16s>(p.Int(-300, 300));
    sf_r[static_cast<std::size_t>(i)] = static_cast<Akl16s>(p.Int(-300, 300));
  }
  for (auto& m : ms_used) m = p.Byte() & 1;
  for (int i = 0; i < 8; ++i) {
    nfilt[i] = p.Int(-1, 4);
    length[i] = p.Int(-1, 52);
    order[i] = p.Int(-1, 13);
    coef_res[i] = p.Int(2, 5);
    direction[i] = p.Int(-1, 2);
  }
  for (auto& c : tns_coef) c = static_cast<Akl8s>(p.Int(-9, 8));

  aklsQuantInv_AAC_32s_I(l.data(), sf_l.data(), groups, group_len, max_sfb, cb_l.data(), sfi, win_len);
  aklsQuantInv_AAC_32s_I(r.data(), sf_r.data(), groups, group_len, max_sfb, cb_r.data(), sfi, win_len);
  aklsDecodeMsPNS_AAC_32s(l.data(), r.data(), ltp_l, ltp_r, cb_l.data(), cb_r.data(), sf_l.data(), sf_r.data(),
                          ms_mask, ms_used.data(), max_sfb, groups, group_len, sfi, win_len, &seed);
  aklsDecodePNS_AAC_32s(l.data(), ltp_l, cb_l.data(), sf_l.data(), max_sfb, groups, group_len, sfi, win_len, &seed);
  aklsDecodeMsStereo_AAC_32s_I(l.data(), r.data(), ms_mask, ms_used.data(), cb_r.data(), groups, group_len, max_sfb,
                               sfi, win_len);
  aklsDecodeIsStereo_AAC_32s(l.data(), r.data(), sf_r.data(), cb_r.data(), groups, group_len, max_sfb, sfi, win_len);
  aklsDeinterleaveSpectrum_AAC_32s(l.data(), tmp.data(), groups, group_len, max_sfb, sfi, win_len);
  aklsDecodeTNS_AAC_32s_I(l.data(), nfilt, length, order, coef_res, tns_coef.data(), direction, max_sfb, 1, sfi,
                          win_len);
  aklsEncodeTNS_AAC_32s_I(r.data(), nfilt, length, order, coef_res, tns_coef.data(), direction, max_sfb, 1, sfi,
                          win_len);
  return 0;
}
