#include "lib/platform/posix_helpers.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "lib/platform/errno_exception.h"
#include "lib/platform/unique_fd.h"
#include "tests/message_of.h"

namespace {

TEST(ExactIo, GathersPiecesAndSaysWhyItCannot) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const strata::UniqueFd readEnd(ends[0]);
    strata::UniqueFd writeEnd(ends[1]);

    write_all_throw(writeEnd.Get(), "ab", 2);
    write_all_throw(writeEnd.Get(), "cdef", 4);
    char buffer[24] = {};
    read_all_throw(readEnd.Get(), buffer, 5);
    EXPECT_STREQ(buffer, "abcde");

    writeEnd.Reset();
    EXPECT_EQ(MessageOf([&] { read_all_throw(readEnd.Get(), buffer, sizeof buffer); }),
              "Input/output error (5)");
    EXPECT_EQ(ErrnoException(5).GetErrno(), 5);
    EXPECT_EQ(MessageOf([&] { read_all_throw(-1, buffer, 1); }), "read_all_throw: Bad file descriptor (9)");
    EXPECT_EQ(MessageOf([] { write_all_throw(-1, "x", 1); }), "Bad file descriptor (9)");
}

TEST(ExactIo, ReadsAWholeFileOrNamesIt) {
    const std::string path = testing::TempDir() + "read_file_throw";
    const std::string content = std::string(9000, 'x') + '\0' + "end";
    std::ofstream(path) << content;
    EXPECT_EQ(read_file_throw(path), content);
    std::remove(path.c_str());
    EXPECT_EQ(MessageOf([&] { read_file_throw(path); }), path + ": No such file or directory (2)");
}

}  // namespace
