// Inputs the fuzz targets found, kept as tests so that a fixed fault stays fixed. Each case is
// the smallest input found for the fault, widened to the family of inputs that share it.
#include <gtest/gtest.h>
#include <lz4.h>
#include <string.h>

#include <vector>

#include "test_util.h"
#include "zemdc.h"

namespace {

// The high-compression encoder, stopped by a full output right after a match, closed the block
// there: a block must end with a run of literals, so neither liblz4 nor our decoder read it.
// Every capacity and level must leave a block that decodes to exactly the bytes reported.
// Disabled until the encoder's fix is merged; enable it with the fix.
TEST(FuzzRegressions, DISABLED_Lz4HcBlockCutByCapacityEndsWithLiterals) {
    std::vector<uint8_t> in(111, 'x');
    memcpy(in.data(), "abcdefghijk", 11);
    const int32_t n = int32_t(in.size());
    std::vector<uint8_t> hash(131072), chain(262144);
    uint8_t* tables[2] = {hash.data(), chain.data()};
    for (int32_t level = 1; level <= 9; ++level) {
        for (int32_t cap = 1; cap <= ZEM_LZ4_BOUND(n); ++cap) {
            zt::GuardedBuffer dst(static_cast<size_t>(cap));
            zemsEncodeLZ4HCHashTableInit_8u(tables);
            int32_t used = n, out = cap;
            const zemStatus st = zemsEncodeLZ4HC_8u(in.data(), 0, &used, dst.data(), &out, tables, nullptr, 0, level);
            ASSERT_TRUE(st == zemStatusOk || st == zemStatusDstTooSmall) << level << " " << cap;
            if (used == 0) continue;
            std::vector<uint8_t> back(size_t(used) + 1);
            int32_t produced = used + 1;
            EXPECT_EQ(zemsDecodeLZ4_8u(dst.data(), out, back.data(), &produced), zemStatusOk) << level << " " << cap;
            EXPECT_EQ(LZ4_decompress_safe(reinterpret_cast<const char*>(dst.data()), reinterpret_cast<char*>(back.data()),
                                          out, used + 1),
                      used)
                << level << " " << cap;
            EXPECT_EQ(memcmp(back.data(), in.data(), size_t(used)), 0);
        }
    }
}

}  // namespace
