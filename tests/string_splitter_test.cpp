#include "lib/platform/string_splitter.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <tuple>
#include <vector>

namespace {

TEST(StringSplitter, DropsEmptyPieces) {
    const std::tuple<const char*, const char*, std::vector<std::string>> cases[] = {
        {"3-", "-", {"3"}}, {"-3", "-", {"3"}}, {"1,,2", ",", {"1", "2"}}, {"a=b;c", ";=", {"a", "b", "c"}},
        {"--", "-", {}},    {"", "-", {}},      {"whole", "-", {"whole"}}};
    for (const auto& [text, separators, pieces] : cases) {
        const StringSplitter splitter(text, separators);
        ASSERT_EQ(splitter.size(), pieces.size()) << text;
        for (std::size_t i = 0; i < pieces.size(); ++i) {
            EXPECT_EQ(splitter[i], pieces[i]) << text;
        }
    }
}

}  // namespace
