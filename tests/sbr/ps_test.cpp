// Parametric stereo in akl-aacdec: the mixing matrices against the reference
// table, and the PS parser's results on hand-made payloads (bit counts,
// envelope borders, the added last envelope, rejected data).
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "aacdec/ps.hpp"

namespace {

TEST(PsMixing, MatchesReferenceTable) {
  std::ifstream in(std::string(AKLAC_TEST_DATA_DIR) + "/sbr/ps_mixing.txt");
  std::string line;
  int rows = 0;
  double worst = 0;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream f(line);
    std::string proc, res;
    int iid, icc;
    double h[4];
    f >> proc >> res >> iid >> icc >> h[0] >> h[1] >> h[2] >> h[3];
    float got[4];
    aacdec::PsMixingMatrix(proc == "B", res == "fine", iid, icc, got);
    for (int j = 0; j < 4; ++j) worst = std::max(worst, std::abs(got[j] - h[j]));
    ++rows;
  }
  EXPECT_EQ(rows, 2 * 8 * (15 + 31));
  EXPECT_LT(worst, 1e-6);  // float rounding of values up to sqrt(2)
}

// Bits, most significant first, from a string of '0' and '1'.
std::vector<std::uint8_t> Pack(const std::string& bits) {
  std::vector<std::uint8_t> out((bits.size() + 7) / 8 + 1, 0);
  for (std::size_t i = 0; i < bits.size(); ++i)
    if (bits[i] == '1') out[i / 8] = static_cast<std::uint8_t>(out[i / 8] | (0x80 >> (i % 8)));
  return out;
}

TEST(PsParser, Payloads) {
  struct Row {
    const char* name;
    const char* bits;
    int used;        // -1: rejected
    int num_env;     // after the added envelope
    int border1;     // end of the first envelope
    int iid0;        // IID of band 0 in the first envelope
  } rows[] = {
      // header: no IID, no ICC, no extension; fixed borders, one envelope
      {"one fixed envelope", "1" "0" "0" "0" "0" "01", 7, 1, 31, 0},
      // fixed class, index 0: no envelope, one added over the whole frame
      {"no envelope", "1" "0" "0" "0" "0" "00", 7, 1, 31, 0},
      // fixed class, four envelopes: borders 7, 15, 23, 31
      {"four fixed envelopes", "1" "0" "0" "0" "0" "11", 7, 4, 7, 0},
      // variable class, one envelope ending at 20: one added up to 31
      {"variable border", "1" "0" "0" "0" "1" "00" "10100", 12, 2, 20, 0},
      {"decreasing borders", "1" "0" "0" "0" "1" "01" "10100" "01000", -1, 1, 31, 0},
      {"reserved IID mode", "1" "1" "110" "0" "0" "0" "01", -1, 1, 31, 0},
      {"reserved ICC mode", "1" "0" "1" "111" "0" "0" "01", -1, 1, 31, 0},
      // IID, 10 coarse bands, frequency deltas: +2 then nine zeros
      {"IID deltas", "1" "1" "000" "0" "0" "0" "01" "0" "1100" "000000000", 7 + 3 + 1 + 4 + 9, 1, 31, 2},
      // +7 then +1: 8 is out of the coarse range
      {"IID out of range", "1" "1" "000" "0" "0" "0" "01" "0" "11111111110" "100" "00000000", -1, 1, 31, 0},
      // ICC, 10 bands: -1 from 0 is below the range
      {"ICC out of range", "1" "0" "1" "000" "0" "0" "01" "0" "110" "000000000", -1, 1, 31, 0},
      // an extension of one byte holding extension 0 with IPD/OPD off
      {"empty extension", "1" "0" "0" "1" "0" "01" "0001" "00" "0" "0" "00000", 7 + 4 + 8, 1, 31, 0},
      // the extension claims more bytes than there are
      {"extension too long", "1" "0" "0" "1" "0" "01" "1111" "11111111", -1, 1, 31, 0},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.name);
    const std::string bits = r.bits;
    const std::vector<std::uint8_t> data = Pack(bits);
    aacdec::PsSyntax s;
    EXPECT_EQ(aacdec::ParsePsData(data.data(), 0, static_cast<int>(bits.size()), &s), r.used);
    EXPECT_EQ(s.num_env, r.num_env);
    EXPECT_EQ(s.border[0], -1);
    EXPECT_EQ(s.border[1], r.border1);
    EXPECT_EQ(s.border[static_cast<std::size_t>(s.num_env)], 31);
    EXPECT_EQ(s.iid[0][0], r.iid0);
  }
}

}  // namespace
