#include "token_gen.h"

#include <gtest/gtest.h>

namespace tarvo {

TEST(TokenGenTest, HandsOutConsecutiveTokensAndSkipsTheNoTokenValue) {
    TokenGen tokens;
    EXPECT_EQ(tokens.GetNext(), 0u);
    EXPECT_EQ(tokens.GetNext(), 1u);

    TokenGen near_wrap(0xFFFFFFFD);
    EXPECT_EQ(near_wrap.GetNext(), 0xFFFFFFFDu);
    EXPECT_EQ(near_wrap.GetNext(), 0xFFFFFFFEu);
    EXPECT_EQ(near_wrap.GetNext(), 0u);
    EXPECT_EQ(near_wrap.GetNext(), 1u);
}

}  // namespace tarvo
