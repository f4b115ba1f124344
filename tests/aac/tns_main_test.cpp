// TNS of the Main profile: long-window filters up to order 20 when the
// profile argument is 0, 12 otherwise; the analysis filter of order 20 is
// undone by the synthesis filter.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <vector>

#include "aklac.h"
#include "../support/test_util.hpp"

namespace {

TEST(TnsMain, OrderLimitDependsOnProfile) {
  std::mt19937 rng(akl::test::TestSeed());
  std::uniform_int_distribution<int> u(-100000, 100000), c(-3, 3);
  const Akl32s nfilt[1] = {1};
  const Akl32s length[1] = {40};
  const Akl32s res[1] = {4};
  const Akl32s dir[1] = {0};
  std::vector<Akl8s> coef(21);
  for (auto& v : coef) v = static_cast<Akl8s>(c(rng));
  struct Case {
    Akl32s order, profile;
    Status want;
  };
  const Case cases[] = {{12, 1, kStsOk}, {13, 1, kStsAacTnsOrderErr}, {13, 0, kStsOk},
                        {20, 0, kStsOk}, {21, 0, kStsAacTnsOrderErr}};
  for (const Case& k : cases) {
    const Akl32s order[1] = {k.order};
    std::vector<Akl32s> x(1024);
    for (auto& v : x) v = u(rng);
    std::vector<Akl32s> y = x;
    EXPECT_EQ(aklsEncodeTNS_AAC_32s_I(y.data(), nfilt, length, order, res, coef.data(), dir, 49, k.profile, 4, 1024), k.want)
        << "order " << k.order << " profile " << k.profile;
    EXPECT_EQ(aklsDecodeTNS_AAC_32s_I(y.data(), nfilt, length, order, res, coef.data(), dir, 49, k.profile, 4, 1024), k.want);
    if (k.want != kStsOk) continue;
    int worst = 0;
    for (std::size_t i = 0; i < x.size(); ++i) worst = std::max(worst, std::abs(y[i] - x[i]));
    // The analysis filter's truncation (under one unit a line), amplified by
    // the synthesis filter's gain, which grows with the order.
    EXPECT_LE(worst, 16) << "order " << k.order;
  }
}

}  // namespace
