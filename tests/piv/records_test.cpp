// The plain records: bounded texts and the vector status. That texts leave
// nothing behind their end, so that records compare byte for byte, the
// parameter-file round trips check on every text field.
#include <gtest/gtest.h>

#include <string>

#include "piv_types.h"

TEST(Records, PathsAreCutAt2047Characters) {
    IMAGE_CFG cfg;
    const std::string huge(5000, 'p');
    PIV::CopyText(cfg.Bkgd, huge.c_str());
    EXPECT_EQ(std::string(cfg.Bkgd).size(), PIV::MaxPathLength);
    PIV::CopyText(cfg.Bkgd, nullptr);
    EXPECT_STREQ(cfg.Bkgd, "");
}

TEST(Records, FlagTextListsEachStatus) {
    EXPECT_STREQ(PIV::VectorFlagText(VECTOR_MASKED | VECTOR_EDITED),
                 "Vector is disabled\n- masked\n- manually editted");
    EXPECT_STREQ(PIV::VectorFlagText(12), "Vector is disabled\n- no result");
}
