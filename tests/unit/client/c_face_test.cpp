#include <gtest/gtest.h>

extern "C" int kalix_c_face();

TEST(CFace, CompilesAndLinksAsC)
{
    EXPECT_EQ(kalix_c_face(), 0);
}
